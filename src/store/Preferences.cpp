#include "store/Preferences.h"

#include <filesystem>
#include <mutex>

#include "platform/Home.h"
#include "platform/TextUtil.h"

namespace quillon {

namespace {

std::mutex& sharedMutex() {
    static std::mutex m;
    return m;
}

std::shared_ptr<Preferences>& sharedInstance() {
    static std::shared_ptr<Preferences> instance;
    return instance;
}

std::optional<std::string> createdFolder(const std::string& relative) {
    std::string path = homePath(relative);
    if (!makeFolders(path)) return std::nullopt;
    return path;
}

}  // namespace

std::shared_ptr<Preferences> Preferences::preferences() {
    std::lock_guard lock(sharedMutex());
    auto& instance = sharedInstance();
    if (instance) return instance;
    auto prefs = std::make_shared<Preferences>();
    std::string path = homePath(kRelativePath);
    prefs->setFilePath(path);
    // Deliberate: a damaged settings file is moved aside, not read as empty
    // and then overwritten at the next save.
    if (!prefs->loadStoredFile()) prefs->importOldPreferences();
    prefs->defaultValues();
    prefs->setFileType(std::filesystem::path(path).extension().string().substr(1));
    instance = prefs;
    return instance;
}

void Preferences::resetShared() {
    std::lock_guard lock(sharedMutex());
    sharedInstance().reset();
}

std::string Preferences::getParam(std::string_view key) const {
    auto value = objectForKey(key);
    if (!value) return {};
    switch (value->kind()) {
        case PlistValue::Kind::String:
        case PlistValue::Kind::Integer:
        case PlistValue::Kind::Real:
            return value->text();
        default:
            return {};
    }
}

void Preferences::setParam(std::optional<std::string> value, std::string_view key) {
    if (!value) return;
    setObject(PlistValue(std::move(*value)), key);
}

bool Preferences::getState(std::string_view key) const { return boolForKey(key); }

void Preferences::setState(bool on, std::string_view key) { setBool(on, key); }

void Preferences::importOldPreferences() {
    // The older file is a typed-stream archive of the Mac versions, which we do
    // not read; only an old file that is a property list is merged.
    auto old = PlistCodec::readDictionaryFile(homePath(kOldRelativePath));
    if (old) addEntries(*old);
}

const std::vector<std::string>& Preferences::defaultGenres() {
    static const std::vector<std::string> genres = {
        "Acid Jazz", "Alternative",      "Blues/R&B",      "Classical",  "Country",
        "Dance",     "Easy Listening",   "Folk",           "HipHop/Rap", "Holiday",
        "House",     "Industrial",       "Jazz",           "New Age",    "Oldies",
        "Pop",       "Progressive Rock", "Rock",           "Spanish",    "Spoken Word",
        "Techno",    "Trance",           "Unclassifiable", "World Music"};
    return genres;
}

void Preferences::defaultValues() {
    // Deliberate: the daemon's settings are stored from the first start, so that
    // the settings list shows them and a client finds the daemon's port.
    const std::pair<const char*, const char*> daemonDefaults[] = {
        {"webPort", "8642"}, {"webAllInterfaces", "NO"}, {"versionHost", ""}};
    for (const auto& [key, value] : daemonDefaults) {
        if (!objectForKey(key)) setObject(PlistValue(value), key);
    }
    if (objectForKey(kGenresKey)) return;
    PlistValue::Array list;
    for (const std::string& g : defaultGenres()) list.emplace_back(g);
    setObject(PlistValue(std::move(list)), kGenresKey);
}

std::vector<std::string> Preferences::genres() const {
    std::vector<std::string> out;
    auto value = objectForKey(kGenresKey);
    if (!value || !value->isArray()) return out;
    for (const PlistValue& item : *value->asArray()) {
        if (const std::string* s = item.asString()) out.push_back(*s);
    }
    return out;
}

void Preferences::writeStartupKeys() {
    std::string folder = homePath("Library/Preferences/");
    setParam(folder + "kv.config.qln", "configPath");
    setParam(folder + "kv.history.qln", "historyPath");
    setParam(folder + "kv.schedules.qln", "schedulesPath");
    setParam(std::string(kVersion), "version");
    if (intValue(getParam("relayPort")) == 0) setParam(std::string("9000"), "relayPort");
}

std::optional<std::string> Preferences::recentFolderPath() {
    return createdFolder("Library/Application Support/Quillon/Recents/");
}

std::optional<std::string> Preferences::tunerFolderPath() {
    return createdFolder("Library/Application Support/Quillon/");
}

bool Preferences::saveToFile() {
    makeFolders(std::filesystem::path(filePath()).parent_path().string());
    return AbstractResource::saveToFile();
}

}  // namespace quillon
