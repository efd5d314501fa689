#include "platform/DefaultsStore.h"

#include <sys/stat.h>

#include <filesystem>

#include "platform/Home.h"
#include "platform/PlistCodec.h"
#include "platform/TextUtil.h"

namespace quillon {

DefaultsStore& DefaultsStore::standard() {
    static DefaultsStore store(true);
    return store;
}

DefaultsStore::DefaultsStore(std::string path) : path_(std::move(path)) {}

DefaultsStore::DefaultsStore(bool followsHome) : followsHome_(followsHome) {}

std::string DefaultsStore::path() const {
    std::lock_guard lock(mutex_);
    return followsHome_ ? homePath(kRelativePath) : path_;
}

DefaultsStore::FileStamp DefaultsStore::stampOf(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return {};
    return {true, st.st_ino, static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec,
            static_cast<std::int64_t>(st.st_size)};
}

void DefaultsStore::refresh() {
    if (followsHome_) {
        std::string current = homePath(kRelativePath);
        if (current != path_) {
            path_ = current;
            loaded_ = false;
        }
    }
    FileStamp stamp = stampOf(path_);
    if (loaded_ && stamp == stamp_) return;
    loaded_ = true;
    stamp_ = stamp;
    if (!stamp.exists) {
        values_.clear();
        return;
    }
    if (auto dict = PlistCodec::readStoredDictionary(path_)) {
        values_ = std::move(*dict);
        return;
    }
    // A damaged file went aside (the next save writes a fresh one); what we
    // had stays: better stale values than none.
    stamp_ = stampOf(path_);
}

bool DefaultsStore::save() {
    makeFolders(std::filesystem::path(path_).parent_path().string());
    bool ok = PlistCodec::writeXmlFile(path_, PlistValue(values_));
    stamp_ = stampOf(path_);
    return ok;
}

const PlistValue* DefaultsStore::find(std::string_view key) const {
    if (auto it = values_.find(key); it != values_.end()) return &it->second;
    if (auto it = registered_.find(key); it != registered_.end()) return &it->second;
    return nullptr;
}

std::optional<PlistValue> DefaultsStore::objectForKey(std::string_view key) {
    std::lock_guard lock(mutex_);
    refresh();
    const PlistValue* v = find(key);
    if (!v) return std::nullopt;
    return *v;
}

std::optional<std::string> DefaultsStore::stringForKey(std::string_view key) {
    std::lock_guard lock(mutex_);
    refresh();
    const PlistValue* v = find(key);
    if (!v || !v->isString()) return std::nullopt;
    return *v->asString();
}

bool DefaultsStore::boolForKey(std::string_view key) {
    std::lock_guard lock(mutex_);
    refresh();
    const PlistValue* v = find(key);
    if (!v) return false;
    if (const std::string* s = v->asString()) {
        std::string lower = toLowerAscii(*s);
        if (lower == "yes" || lower == "true") return true;
        return intValue(*s) != 0;
    }
    return v->doubleValue() != 0;
}

int DefaultsStore::intForKey(std::string_view key) {
    std::lock_guard lock(mutex_);
    refresh();
    const PlistValue* v = find(key);
    return v ? static_cast<int>(v->integerValue()) : 0;
}

float DefaultsStore::floatForKey(std::string_view key) { return static_cast<float>(doubleForKey(key)); }

double DefaultsStore::doubleForKey(std::string_view key) {
    std::lock_guard lock(mutex_);
    refresh();
    const PlistValue* v = find(key);
    return v ? v->doubleValue() : 0;
}

bool DefaultsStore::setObject(const PlistValue& value, std::string_view key) {
    std::lock_guard lock(mutex_);
    refresh();
    values_.insert_or_assign(std::string(key), value);
    return save();
}

bool DefaultsStore::setBool(bool value, std::string_view key) {
    return setObject(PlistValue::boolean(value), key);
}

bool DefaultsStore::setInt(int value, std::string_view key) {
    return setObject(PlistValue::integer(value), key);
}

bool DefaultsStore::setFloat(float value, std::string_view key) {
    return setObject(PlistValue::real(value), key);
}

bool DefaultsStore::removeObject(std::string_view key) {
    std::lock_guard lock(mutex_);
    refresh();
    auto it = values_.find(key);
    if (it == values_.end()) return true;
    values_.erase(it);
    return save();
}

void DefaultsStore::registerDefaults(const PlistValue::Dictionary& defaults) {
    std::lock_guard lock(mutex_);
    for (const auto& [key, value] : defaults) registered_.insert_or_assign(key, value);
}

bool DefaultsStore::synchronize() {
    std::lock_guard lock(mutex_);
    refresh();
    return save();
}

}  // namespace quillon
