#pragma once
// The persistence base of every stored object: one string-keyed property
// dictionary with typed accessors, saved as an XML property-list file, turned
// into an archive (a binary property list) for copies and containers, and
// identified by an identifier stored in the dictionary itself.
//
// Keys are std::optional<std::string_view>: std::nullopt stands for a missing
// key, which the accessors ignore, as they ignore a missing value. No setter
// removes a key; only removeObjectForKey does.
//
// Thread contract: resources are created and changed on the main thread; other
// threads (a recording connection reading its bookmark, recording threads
// reading the preferences) may read at the same time. A mutex per resource
// guards the dictionary for each single access; sequences of accesses are not
// atomic. The other fields (file path, flags) belong to the main thread.
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/AtomicFile.h"
#include "platform/ByteBuffer.h"
#include "platform/PlistCodec.h"
#include "platform/PlistValue.h"
#include "store/UniqueIDObject.h"

namespace quillon {

struct Point {
    double x = 0;
    double y = 0;
    bool operator==(const Point&) const = default;
};

struct Size {
    double width = 0;
    double height = 0;
    bool operator==(const Size&) const = default;
};

class AbstractResource : public UniqueIDObject {
public:
    using Key = std::optional<std::string_view>;

    static constexpr const char* kUniqueIdKey = "_AbstractResourceUniqueID";
    static constexpr const char* kNameKey = "_AbstractResourceName";
    static constexpr const char* kFileTypeKey = "AbstractResourceFileType";

    AbstractResource() = default;
    ~AbstractResource() override = default;
    AbstractResource(const AbstractResource&) = delete;
    AbstractResource& operator=(const AbstractResource&) = delete;

    // A new, empty resource of class T.
    template <typename T = AbstractResource>
    static std::shared_ptr<T> resource() {
        return std::make_shared<T>();
    }
    // A resource of class T loaded from the file, or null when loading fails.
    template <typename T = AbstractResource>
    static std::shared_ptr<T> resourceFromPath(const std::string& path) {
        auto r = std::make_shared<T>();
        r->setFilePath(path);
        if (!r->loadFromFile()) return nullptr;
        return r;
    }
    // A resource of class T from archive bytes; never null (empty for bad bytes).
    template <typename T = AbstractResource>
    static std::shared_ptr<T> resourceFromData(std::span<const std::uint8_t> archive) {
        auto r = std::make_shared<T>();
        r->setResourceFromArchive(archive);
        return r;
    }

    // A new resource of the same class with a deep copy of the dictionary
    // (identifier included); file path and flags are not copied.
    std::shared_ptr<AbstractResource> copy() const;
    template <typename T>
    std::shared_ptr<T> copyAs() const {
        return std::dynamic_pointer_cast<T>(copy());
    }

    // The identifier lives in the dictionary, so it travels with it.
    std::uint32_t uniqueId() const override;
    void setUniqueId(std::uint32_t id) override;

    // --- Dictionary access
    virtual std::optional<PlistValue> objectForKey(Key key) const;
    virtual void setObject(std::optional<PlistValue> value, Key key);
    virtual void removeObjectForKey(Key key);

    // A string value, or nothing (also for values of other kinds).
    std::optional<std::string> stringForKey(Key key) const;
    void setString(std::optional<std::string> value, Key key);

    // Stored as the strings "YES" / "NO"; only the string "YES" reads as true.
    virtual bool boolForKey(std::string_view key) const;
    virtual void setBool(bool value, std::string_view key);
    // Numbers by value, strings by their leading decimal number; 0 when absent.
    virtual int intForKey(std::string_view key) const;
    virtual void setInt(int value, std::string_view key);
    std::uint32_t unsignedIntForKey(std::string_view key) const;
    void setUnsignedInt(std::uint32_t value, std::string_view key);
    // Stored as the signed 16-bit number of the same bits.
    std::uint16_t unsignedShortForKey(std::string_view key) const;
    void setUnsignedShort(std::uint16_t value, std::string_view key);
    virtual float floatForKey(std::string_view key) const;
    virtual void setFloat(float value, std::string_view key);
    double doubleForKey(std::string_view key) const;
    void setDouble(double value, std::string_view key);
    // Stored as the texts "{x, y}" and "{w, h}".
    Point pointForKey(std::string_view key) const;
    void setPoint(Point value, std::string_view key);
    Size sizeForKey(std::string_view key) const;
    void setSize(Size value, std::string_view key);

    // A snapshot of the whole dictionary; replacing and merging it.
    PlistValue::Dictionary container() const;
    void setContainer(PlistValue::Dictionary container);
    // Merges the entries in, overriding equal keys.
    void addEntries(const PlistValue::Dictionary& entries);

    // --- Files
    // Records the path and, when it has an extension, that extension as the
    // file type (a path without one keeps the recorded type).
    void setFilePath(const std::string& path);
    const std::string& filePath() const { return filePath_; }
    std::string fileType() const;
    void setFileType(const std::string& type);
    // name, a dot and the file type.
    std::string fileName() const;

    // Writes to the recorded path, with ".type" appended when the path does not
    // already end in the type (the recorded path stays as it is). Clears
    // needsSave before writing, whatever the outcome.
    virtual bool saveToFile();
    // Records the path, then writes exactly there. Leaves needsSave alone.
    virtual bool saveToFile(const std::string& path);
    // Writes exactly there like saveToFile(path), but never over a file that is
    // already there. The recorded path is left as it is.
    WriteResult saveToNewFile(const std::string& path) const;
    // Replaces the dictionary by the file's (a dictionary root only) and clears
    // needsSave; on failure nothing changes.
    virtual bool loadFromFile();
    // loadFromFile for a file that this resource alone writes back (the
    // settings): one that exists but cannot be read is moved aside
    // (DamagedFile) first, so that the next save cannot destroy it.
    bool loadStoredFile();
    // Moves the file to folder/newName.type and records the new path, even when
    // the move fails; renaming to the current path is a successful no-op.
    bool renameFile(const std::string& newName);

    // --- Archives
    virtual Bytes archivedResource() const;
    // Replaces the dictionary when the bytes hold an archived dictionary; other
    // bytes leave it as it was. Returns whether it was replaced.
    virtual bool setResourceFromArchive(std::span<const std::uint8_t> archive);

    // --- Lists
    // The resources' dictionaries, in order, as one property-list file.
    template <typename List>
    static bool saveResourcesArray(const List& resources, const std::string& path) {
        PlistValue::Array items;
        for (const auto& r : resources) items.emplace_back(r->container());
        return PlistCodec::writeXmlFile(path, PlistValue(std::move(items)));
    }
    // New resources of class T, one per dictionary of the file's array; each is
    // initialised first, so entries the file lacks keep T's defaults. A missing
    // file gives an empty list.
    template <typename T>
    static std::vector<std::shared_ptr<T>> loadResourcesFromPlist(const std::string& path) {
        std::vector<std::shared_ptr<T>> out;
        auto items = PlistCodec::readArrayFile(path);
        if (!items) return out;
        for (const PlistValue& item : *items) {
            const PlistValue::Dictionary* entries = item.asDictionary();
            if (!entries) continue;  // not a resource; skip rather than invent one
            auto r = std::make_shared<T>();
            r->addEntries(*entries);
            out.push_back(std::move(r));
        }
        return out;
    }

    // --- Other
    // The dictionary in strings-file form, one "key" = "value"; line per entry.
    virtual std::string description() const;
    virtual std::optional<std::string> name() const;
    virtual void setName(std::optional<std::string> name);

    bool selected() const { return selected_; }
    void setSelected(bool on) { selected_ = on; }
    bool needsSave() const { return needsSave_; }
    void setNeedsSave(bool on) { needsSave_ = on; }

protected:
    // A fresh, initialised instance of the receiver's own class (for copy()).
    virtual std::shared_ptr<AbstractResource> newResource() const;
    // Writes the dictionary to `path` as an XML property list, atomically.
    bool writeContainer(const std::string& path) const;

private:
    mutable std::mutex mutex_;
    PlistValue::Dictionary container_;  // guarded by mutex_
    std::string filePath_;
    bool selected_ = false;
    bool needsSave_ = false;
};

}  // namespace quillon
