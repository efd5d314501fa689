#include "store/AbstractResource.h"

#include <fmt/format.h>

#include <charconv>
#include <filesystem>
#include <system_error>

#include "platform/Home.h"
#include "platform/TextUtil.h"

namespace quillon {

namespace {

// The numbers of a "{a, b}" text, in order; missing ones read as 0.
std::pair<double, double> parsePair(const std::string& text) {
    double values[2] = {0, 0};
    int found = 0;
    const char* p = text.data();
    const char* end = text.data() + text.size();
    while (p < end && found < 2) {
        char c = *p;
        bool starts = (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '+';
        if (!starts) {
            ++p;
            continue;
        }
        const char* from = (c == '+') ? p + 1 : p;
        double value = 0;
        auto [next, ec] = std::from_chars(from, end, value);
        if (ec == std::errc() && next > from) {
            values[found++] = value;
            p = next;
        } else {
            ++p;
        }
    }
    return {values[0], values[1]};
}

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else {
            out += c;
        }
    }
    return out + "\"";
}

}  // namespace

std::shared_ptr<AbstractResource> AbstractResource::newResource() const {
    return std::make_shared<AbstractResource>();
}

std::shared_ptr<AbstractResource> AbstractResource::copy() const {
    auto r = newResource();
    r->setResourceFromArchive(archivedResource());
    return r;
}

std::uint32_t AbstractResource::uniqueId() const { return unsignedIntForKey(kUniqueIdKey); }

void AbstractResource::setUniqueId(std::uint32_t id) { setUnsignedInt(id, kUniqueIdKey); }

std::optional<PlistValue> AbstractResource::objectForKey(Key key) const {
    if (!key) return std::nullopt;
    std::lock_guard lock(mutex_);
    auto it = container_.find(*key);
    if (it == container_.end()) return std::nullopt;
    return it->second;
}

void AbstractResource::setObject(std::optional<PlistValue> value, Key key) {
    if (!value || !key) return;
    std::lock_guard lock(mutex_);
    container_.insert_or_assign(std::string(*key), std::move(*value));
}

void AbstractResource::removeObjectForKey(Key key) {
    if (!key) return;
    std::lock_guard lock(mutex_);
    if (auto it = container_.find(*key); it != container_.end()) container_.erase(it);
}

std::optional<std::string> AbstractResource::stringForKey(Key key) const {
    auto value = objectForKey(key);
    if (!value || !value->isString()) return std::nullopt;
    return *value->asString();
}

void AbstractResource::setString(std::optional<std::string> value, Key key) {
    if (!value) return;
    setObject(PlistValue(std::move(*value)), key);
}

bool AbstractResource::boolForKey(std::string_view key) const {
    auto value = objectForKey(key);
    return value && value->isString() && *value->asString() == "YES";
}

void AbstractResource::setBool(bool value, std::string_view key) {
    setObject(PlistValue(value ? "YES" : "NO"), key);
}

int AbstractResource::intForKey(std::string_view key) const {
    auto value = objectForKey(key);
    if (!value) return 0;
    // A text saturates at the 32-bit limits; a wider number keeps its low bits.
    if (const std::string* s = value->asString()) return intValue(*s);
    return static_cast<int>(static_cast<std::uint32_t>(value->integerValue()));
}

void AbstractResource::setInt(int value, std::string_view key) { setObject(PlistValue::integer(value), key); }

std::uint32_t AbstractResource::unsignedIntForKey(std::string_view key) const {
    auto value = objectForKey(key);
    return value ? static_cast<std::uint32_t>(value->integerValue()) : 0;
}

void AbstractResource::setUnsignedInt(std::uint32_t value, std::string_view key) {
    setObject(PlistValue::integer(value), key);
}

std::uint16_t AbstractResource::unsignedShortForKey(std::string_view key) const {
    auto value = objectForKey(key);
    return value ? static_cast<std::uint16_t>(value->integerValue()) : 0;
}

void AbstractResource::setUnsignedShort(std::uint16_t value, std::string_view key) {
    setObject(PlistValue::integer(static_cast<std::int16_t>(value)), key);
}

float AbstractResource::floatForKey(std::string_view key) const {
    return static_cast<float>(doubleForKey(key));
}

void AbstractResource::setFloat(float value, std::string_view key) {
    setObject(PlistValue::real(value), key);
}

double AbstractResource::doubleForKey(std::string_view key) const {
    auto value = objectForKey(key);
    return value ? value->doubleValue() : 0;
}

void AbstractResource::setDouble(double value, std::string_view key) {
    setObject(PlistValue::real(value), key);
}

Point AbstractResource::pointForKey(std::string_view key) const {
    auto text = stringForKey(key);
    if (!text) return {};
    auto [x, y] = parsePair(*text);
    return {x, y};
}

void AbstractResource::setPoint(Point value, std::string_view key) {
    setObject(PlistValue(fmt::format("{{{}, {}}}", value.x, value.y)), key);
}

Size AbstractResource::sizeForKey(std::string_view key) const {
    auto text = stringForKey(key);
    if (!text) return {};
    auto [w, h] = parsePair(*text);
    return {w, h};
}

void AbstractResource::setSize(Size value, std::string_view key) {
    setObject(PlistValue(fmt::format("{{{}, {}}}", value.width, value.height)), key);
}

PlistValue::Dictionary AbstractResource::container() const {
    std::lock_guard lock(mutex_);
    return container_;
}

void AbstractResource::setContainer(PlistValue::Dictionary container) {
    std::lock_guard lock(mutex_);
    container_ = std::move(container);
}

void AbstractResource::addEntries(const PlistValue::Dictionary& entries) {
    std::lock_guard lock(mutex_);
    for (const auto& [key, value] : entries) container_.insert_or_assign(key, value);
}

void AbstractResource::setFilePath(const std::string& path) {
    filePath_ = path;
    std::string extension = std::filesystem::path(path).extension().string();
    if (extension.size() > 1) setFileType(extension.substr(1));
}

std::string AbstractResource::fileType() const { return stringForKey(kFileTypeKey).value_or(""); }

void AbstractResource::setFileType(const std::string& type) { setString(type, kFileTypeKey); }

std::string AbstractResource::fileName() const { return name().value_or("") + "." + fileType(); }

bool AbstractResource::writeContainer(const std::string& path) const {
    return PlistCodec::writeXmlFile(path, PlistValue(container()));
}

bool AbstractResource::saveToFile() {
    std::string path = filePath_;
    std::string type = fileType();
    if (!type.empty() && !endsWith(path, type)) path += "." + type;
    needsSave_ = false;
    return writeContainer(path);
}

bool AbstractResource::saveToFile(const std::string& path) {
    setFilePath(path);
    return writeContainer(path);
}

WriteResult AbstractResource::saveToNewFile(const std::string& path) const {
    Bytes bytes = PlistCodec::encodeXml(PlistValue(container()));
    if (bytes.empty()) return WriteResult::Failed;
    return writeNewFileAtomically(path, bytes);
}

bool AbstractResource::loadFromFile() {
    auto dict = PlistCodec::readDictionaryFile(filePath_);
    if (!dict) return false;
    setContainer(std::move(*dict));
    needsSave_ = false;
    return true;
}

bool AbstractResource::loadStoredFile() {
    auto dict = PlistCodec::readStoredDictionary(filePath_);
    if (!dict) return false;
    setContainer(std::move(*dict));
    needsSave_ = false;
    return true;
}

bool AbstractResource::renameFile(const std::string& newName) {
    std::string folder = std::filesystem::path(filePath_).parent_path().string();
    std::string newPath = folder + "/" + newName + "." + fileType();
    if (newPath == filePath_) return true;
    std::error_code ec;
    // Like the file manager's move, never replace a file that is already there.
    bool moved = !std::filesystem::exists(newPath, ec) && !ec;
    if (moved) {
        std::filesystem::rename(filePath_, newPath, ec);
        moved = !ec;
    }
    filePath_ = newPath;
    return moved;
}

Bytes AbstractResource::archivedResource() const { return PlistCodec::encodeBinary(PlistValue(container())); }

bool AbstractResource::setResourceFromArchive(std::span<const std::uint8_t> archive) {
    // Archives are binary property lists. The typed-stream archives of the
    // Mac versions are not read: such bytes simply do not decode.
    auto value = PlistCodec::decode(archive);
    if (!value || !value->isDictionary()) return false;
    setContainer(std::move(*value->asDictionary()));
    return true;
}

std::string AbstractResource::description() const {
    std::string out;
    for (const auto& [key, value] : container()) {
        out += quoted(key) + " = " + quoted(value.text()) + ";\n";
    }
    return out;
}

std::optional<std::string> AbstractResource::name() const { return stringForKey(kNameKey); }

void AbstractResource::setName(std::optional<std::string> name) { setString(std::move(name), kNameKey); }

}  // namespace quillon
