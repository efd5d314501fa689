#include "tuner/Tuner.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>

#include "net/URLDataLoader.h"
#include "platform/AtomicFile.h"
#include "platform/Home.h"
#include "platform/Localization.h"
#include "platform/Log.h"
#include "platform/PlistCodec.h"
#include "platform/TextUtil.h"
#include "platform/Timing.h"
#include "store/Preferences.h"
#include "tuner/RadioBrowser.h"
#include "tuner/TunerDownload.h"

namespace quillon {

namespace {

constexpr const char* kCompletionMethod = "didCheckTunerVersion";
constexpr const char* kOtherGenre = "Other";

std::mutex sharedMutex;
std::shared_ptr<Tuner> sharedTuner;

std::string defaultPath() {
    auto folder = Preferences::tunerFolderPath();
    return joinPath(folder.value_or(homePath("Library/Application Support/Quillon/")), Tuner::kFileName);
}

std::string withoutTrailingSlashes(std::string text) {
    while (!text.empty() && text.back() == '/') text.pop_back();
    return text;
}

// A name that can be a file of its own in one folder.
bool isPlainFileName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

}  // namespace

struct Tuner::Download {
    std::shared_ptr<TunerDownload> net;
    std::string server;
    std::string location;
    std::string path;
    bool allCodecs = false;
};

const char* Tuner::sourceName(Source source) {
    return source == Source::radioBrowser ? RadioBrowser::kSourceName : "server";
}

std::optional<Tuner::Source> Tuner::sourceNamed(std::string_view name) {
    if (name == "server") return Source::server;
    if (name == RadioBrowser::kSourceName) return Source::radioBrowser;
    return std::nullopt;
}

Tuner::Filter Tuner::Filter::fromDictionary(const PlistValue::Dictionary& entries) {
    Filter f;
    auto it = entries.find("FilterKeywords");
    if (it != entries.end() && it->second.asString()) f.keywords = *it->second.asString();
    if (auto m = entries.find("FilterMin"); m != entries.end())
        f.min = static_cast<std::uint16_t>(m->second.integerValue());
    if (auto m = entries.find("FilterMax"); m != entries.end())
        f.max = static_cast<std::uint16_t>(m->second.integerValue());
    return f;
}

std::shared_ptr<Tuner> Tuner::tuner() {
    std::lock_guard lock(sharedMutex);
    if (!sharedTuner) sharedTuner = std::make_shared<Tuner>();
    return sharedTuner;
}

void Tuner::resetShared() {
    std::shared_ptr<Tuner> old;
    {
        std::lock_guard lock(sharedMutex);
        old = std::move(sharedTuner);
    }
}

Tuner::Tuner(std::string path) : tunerPath_(path.empty() ? defaultPath() : std::move(path)) {}

Tuner::~Tuner() {
    // Releases a worker waiting for the main thread before waiting for it.
    guard_.cancel();
    if (download_) download_->cancel();
    if (worker_.joinable()) worker_.join();
}

std::string Tuner::server() const {
    std::string base = server_.empty() ? Preferences::preferences()->getParam(kServerKey) : server_;
    return withoutTrailingSlashes(base);
}

Tuner::Source Tuner::source() const {
    if (source_) return *source_;
    return sourceNamed(Preferences::preferences()->getParam(kSourceKey)).value_or(Source::server);
}

std::string Tuner::radioBrowserServer() const {
    return RadioBrowser::baseOf(
        server_.empty() ? Preferences::preferences()->getParam(RadioBrowser::kServerKey) : server_);
}

bool Tuner::loadTunerData() {
    if (loaded_ || !tunerGenres_.empty()) return !tunerGenres_.empty();
    loaded_ = true;
    auto items = PlistCodec::readStoredArray(tunerPath_);
    if (!items || items->empty()) return false;
    TunerItem::List genres;
    for (const PlistValue& element : *items) {
        const PlistValue::Data* data = element.asData();
        if (!data) continue;
        if (auto genre = TunerItem::fromArchive(*data)) genres.push_back(std::move(genre));
    }
    if (genres.empty()) return false;
    setGenres(std::move(genres));
    return true;
}

void Tuner::beginUpdate(bool message) {
    message_ = message;
    // Deliberate: Radio Browser has no directory version; its tree changes
    // all day, so every update asked for downloads.
    if (source() == Source::radioBrowser) {
        if (loader_) {
            if (events_.beep) events_.beep();
            return;
        }
        update();
        return;
    }
    checkTunerVersion();
}

void Tuner::checkTunerVersion() {
    if (loader_ || updating_) {
        if (events_.beep) events_.beep();
        return;
    }
    const std::string base = server();
    if (base.empty()) {
        report(Outcome::checkFailed,
               "no directory server is set (the preference tunerServer, or --server URL)");
        return;
    }
    loader_ =
        URLDataLoader::dataLoaderWithURL(base + kVersionFile, timing().directoryTimeout, kCompletionMethod,
                                         [this](const std::string& method, URLDataLoader& loader) {
                                             if (method == kCompletionMethod) didCheckTunerVersion(loader);
                                         });
    loader_->setMaxBytes(kMaxTextBytes);
}

void Tuner::didCheckTunerVersion(URLDataLoader& loader) {
    if (&loader != loader_.get()) return;
    const auto status = loader.status();
    std::optional<Bytes> data;
    if (status == URLDataLoader::Status::finished) data = loader.data();
    loader_.reset();  // `loader` is gone from here on

    if (!data) {
        Log::info("Tuner : didCheckTunerVersion : error : URLDataLoader status is {}",
                  static_cast<int>(status));
        const std::string text =
            localized("ERROR_CANNOT_CHECK_TUNER_VERSION", "The directory's version could not be checked.");
        if (message_ && events_.alert) events_.alert("ERROR_CANNOT_CHECK_TUNER_VERSION", text);
        report(Outcome::checkFailed, text);
        return;
    }
    const int serverVersion = intValue(trimmedBlanks(asText(*data)));
    const int localVersion = intValue(Preferences::preferences()->getParam(kVersionKey));
    if (localVersion < serverVersion) {
        cv_ = std::to_string(serverVersion);
        update();
        return;
    }
    const std::string text = localized("MSG_TUNER_UPTODATE", "The directory is up to date.");
    if (message_ && events_.alert) events_.alert("MSG_TUNER_UPTODATE", text);
    report(Outcome::upToDate, text);
}

void Tuner::update() {
    if (updating_) {
        if (events_.beep) events_.beep();
        return;
    }
    updating_ = true;
    if (worker_.joinable()) worker_.join();  // the previous update, which has ended
    auto download = std::make_shared<Download>();
    download->net = download_ = std::make_shared<TunerDownload>();
    download->path = tunerPath_;
    updateSource_ = source();
    if (updateSource_ == Source::radioBrowser) {
        download->server = radioBrowserServer();
        download->allCodecs = allCodecs_;
        worker_ = std::thread([this, download] { updateRadioBrowser(download); });
        return;
    }
    download->server = server();
    worker_ = std::thread([this, download] { updateTuner(download); });
}

void Tuner::updateRadioBrowser(std::shared_ptr<Download> download) {
    // The same rule as the server's update: the tree is built aside and
    // replaces the directory only when every genre has arrived.
    auto fail = [&](const std::string& reason) {
        MainLoop::main().invoke([this, reason] { errorMessage(reason); }, guard_);
    };
    std::vector<std::string> bases;
    std::string failure;
    if (!download->server.empty()) {
        bases.push_back(download->server);  // the user's choice: no other is tried
    } else {
        if (!MainLoop::main().invoke(
                [this] {
                    progress(localized("Finding a Radio Browser server", "Finding a Radio Browser server"),
                             0);
                },
                guard_))
            return;
        auto names = RadioBrowser::discoverMirrors(*download->net, failure);
        if (!names) return fail(failure);
        const auto seed =
            static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
        bases = RadioBrowser::mirrorOrder(*names, seed);
        if (bases.empty()) return fail("no usable Radio Browser server name");
        if (bases.size() > RadioBrowser::kMaxMirrorsTried) bases.resize(RadioBrowser::kMaxMirrorsTried);
    }
    std::string reasons;
    for (const std::string& base : bases) {
        bool live = true;
        auto genres = downloadRadioBrowser(*download, base, live, failure);
        if (!live) return;
        if (genres) {
            if (!writeDirectoryFile(download->path, *genres))
                return fail("the directory file " + download->path + " could not be written");
            auto result = std::make_shared<TunerItem::List>(std::move(*genres));
            MainLoop::main().invoke(
                [this, result, base] {
                    cv_ = base;  // the message names the mirror
                    finishUpdate(Outcome::updated, {}, std::move(*result));
                },
                guard_);
            return;
        }
        Log::warning("Radio Browser server " + base + " failed: " + failure);
        reasons += (reasons.empty() ? "" : "; ") + failure;
    }
    fail(reasons);
}

std::optional<TunerItem::List> Tuner::downloadRadioBrowser(Download& download, const std::string& base,
                                                           bool& live, std::string& failure) {
    auto step = [&](const std::string& text, int percent) {
        live = MainLoop::main().invoke([this, text, percent] { progress(text, percent); }, guard_);
        return live;
    };
    if (!step(localized("Downloading genres list", "Downloading genres list"), 0)) return std::nullopt;
    const std::string tagsURL = base + RadioBrowser::tagsPath();
    auto body = download.net->fetch(tagsURL, timing().directoryTimeout, RadioBrowser::kMaxTagsBytes, failure,
                                    RadioBrowser::userAgent());
    if (!body) {
        failure = tagsURL + ": " + failure;
        return std::nullopt;
    }
    auto tags = RadioBrowser::parseTags(*body, failure);
    if (!tags || tags->empty()) {
        failure = tagsURL + ": " + (tags ? "no tag has enough stations" : failure);
        return std::nullopt;
    }
    const std::size_t n = tags->size();
    TunerItem::List genres;
    for (std::size_t i = 0; i < n; ++i) {
        const std::string& name = (*tags)[i].name;
        if (!step(fmt::format("{} {} ({}/{})", localized("Downloading", "Downloading"), name, i + 1, n),
                  static_cast<int>((100 * i + 100) / n)))
            return std::nullopt;
        const std::string url = base + RadioBrowser::stationsPath(name);
        auto stations = download.net->fetch(url, timing().directoryTimeout, RadioBrowser::kMaxStationsBytes,
                                            failure, RadioBrowser::userAgent());
        if (!stations) {
            Log::line("Error downloading a genre");
            failure = url + ": " + failure;
            return std::nullopt;
        }
        auto streams = RadioBrowser::parseStations(*stations, name, download.allCodecs, failure);
        if (!streams) {
            failure = url + ": " + failure;
            return std::nullopt;
        }
        if (streams->empty()) continue;  // a tag without a (MP3) stream is no genre
        auto genre = TunerItem::tunerItem();
        genre->setName(name);
        genre->setItemType(static_cast<int>(TunerItem::Type::genre));
        genre->setSource(std::string(RadioBrowser::kSourceName));
        // By name, as the local file keeps them, so the tree reads the same now and after a restart.
        TunerItem::sortList(*streams, {{TunerItem::SortKey::name, true}});
        for (auto& stream : *streams) genre->addItemToList(std::move(stream));
        genre->cacheTunerData();
        genres.push_back(std::move(genre));
    }
    if (genres.empty()) {
        failure = base + (download.allCodecs ? " lists no station" : " lists no MP3 station");
        return std::nullopt;
    }
    return genres;
}

void Tuner::updateTuner(std::shared_ptr<Download> download) {
    // Deliberate: the update is built aside and replaces the directory only
    // when every genre has arrived; the old directory stays in view meanwhile,
    // and a server that fails half-way changes nothing, neither the local file
    // nor "tunerVersion" (one missing genre would otherwise be lost from the
    // directory until the next version).
    auto fail = [&](const std::string& reason) {
        MainLoop::main().invoke([this, reason] { errorMessage(reason); }, guard_);
    };
    if (!MainLoop::main().invoke(
            [this] { progress(localized("Downloading genres list", "Downloading genres list"), 0); }, guard_))
        return;
    std::string failure;
    auto names = downloadGenreList(*download, failure);
    if (!names) return fail(failure);
    const std::size_t n = names->size();
    TunerItem::List genres;
    for (std::size_t i = 0; i < n; ++i) {
        const std::string& name = (*names)[i];
        const int percent = static_cast<int>((100 * i + 100) / n);
        const std::string text =
            fmt::format("{} {} ({}/{})", localized("Downloading", "Downloading"), name, i + 1, n);
        if (!MainLoop::main().invoke([this, text, percent] { progress(text, percent); }, guard_)) return;
        auto genre = downloadGenre(*download, name, failure);
        if (!genre) {
            Log::line("Error downloading a genre");
            return fail(failure);
        }
        genres.push_back(std::move(genre));
    }
    if (!writeDirectoryFile(download->path, genres))
        return fail("the directory file " + download->path + " could not be written");
    auto result = std::make_shared<TunerItem::List>(std::move(genres));
    MainLoop::main().invoke([this, result] { finishUpdate(Outcome::updated, {}, std::move(*result)); },
                            guard_);
}

std::optional<std::vector<std::string>> Tuner::downloadGenreList(Download& download, std::string& failure) {
    const std::string locationURL = download.server + kLocationFile;
    auto location = download.net->fetch(locationURL, timing().directoryTimeout, kMaxTextBytes, failure);
    if (!location) {
        failure = locationURL + ": " + failure;
        return std::nullopt;
    }
    std::string text(asText(*location));
    text = std::string(trimmedBlanks(text.substr(0, text.find_first_of("\r\n"))));
    if (!startsWith(text, "http://") && !startsWith(text, "https://")) {
        failure = locationURL + " names no http address";
        return std::nullopt;
    }
    if (text.back() != '/') text += '/';
    download.location = text;
    const std::string listURL = text + kGenresFile;
    auto list = download.net->fetch(listURL, timing().directoryTimeout, kMaxGenresBytes, failure);
    if (!list) {
        failure = listURL + ": " + failure;
        return std::nullopt;
    }
    auto value = PlistCodec::decode(*list);
    if (!value || !value->isArray()) {
        failure = listURL + " is not a property-list array";
        return std::nullopt;
    }
    std::vector<std::string> names;
    for (const PlistValue& item : *value->asArray()) {
        if (const std::string* name = item.asString(); name && !name->empty()) names.push_back(*name);
    }
    if (names.empty() || names.size() > kMaxGenres) {
        failure = listURL + (names.empty() ? " lists no genre" : " lists too many genres");
        return std::nullopt;
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

std::shared_ptr<TunerItem> Tuner::downloadGenre(Download& download, const std::string& name,
                                                std::string& failure) {
    if (download.location.empty()) {
        failure = "no directory location is known";
        return nullptr;
    }
    const std::string url = genreURL(download.location, name);
    auto data = download.net->fetch(url, timing().directoryTimeout, kMaxGenreBytes, failure);
    if (!data) {
        failure = url + ": " + failure;
        return nullptr;
    }
    auto genre = TunerItem::fromArchive(*data);
    if (!genre) {
        failure = url + " holds no directory entry";
        return nullptr;
    }
    if (!genre->name() || genre->name()->empty()) genre->setName(name);
    return genre;
}

void Tuner::errorMessage(const std::string& reason) {
    Log::line("Cannot update");
    Log::warning("Directory update failed: " + reason);
    finishUpdate(Outcome::updateFailed, reason, std::nullopt);
}

void Tuner::progress(const std::string& text, int percent) {
    if (events_.progress) events_.progress(text, percent);
}

void Tuner::finishUpdate(Outcome outcome, const std::string& message, std::optional<TunerItem::List> genres) {
    std::string text = message;
    if (genres) {
        const std::size_t count = genres->size();
        setGenres(std::move(*genres));
        auto prefs = Preferences::preferences();
        prefs->setParam(std::string(sourceName(updateSource_)), kSourceKey);
        if (updateSource_ == Source::radioBrowser) {
            // Deliberate: the local file no longer holds any version of the
            // directory server's, so its next check downloads again.
            prefs->setParam(std::string("0"), kVersionKey);
            text = fmt::format("{} genres from Radio Browser ({})", count, cv_);
        } else {
            prefs->setParam(cv_, kVersionKey);
            // Deliberate: the server a directory came from is kept with its
            // version, so that its entries' playlists are fetched from it and
            // the next check asks it, without naming it again.
            if (!server_.empty()) prefs->setParam(server_, kServerKey);
            text = fmt::format("{} genres, version {}", count, cv_);
        }
        if (!prefs->saveToFile()) {
            // The directory file is new, but the next check will fetch it again.
            Log::warning(
                "The preferences could not be saved: the directory's version, source and server "
                "are not recorded");
            text += " (the preferences could not be saved)";
        }
    }
    updating_ = false;
    if (events_.refresh) events_.refresh();
    report(outcome, text);
}

void Tuner::report(Outcome outcome, const std::string& message) {
    if (events_.finished) events_.finished(outcome, message);
}

void Tuner::setGenres(TunerItem::List genres) {
    std::lock_guard lock(tunerLock_);
    tunerGenres_ = std::move(genres);
    tunerData_.clear();
    for (const auto& genre : tunerGenres_) tunerData_[genre->name().value_or("")] = genre;
    // A filter of the old tree shows entries that are gone; the filter bar
    // applies its request again after the refresh.
    filteredTunerGenres_.clear();
    filtered_ = false;
    filterCount_ = 0;
}

std::size_t Tuner::count() const { return filtered_ ? filteredTunerGenres_.size() : tunerGenres_.size(); }

std::shared_ptr<TunerItem> Tuner::itemAtIndex(std::size_t index) const {
    const TunerItem::List& rows = filtered_ ? filteredTunerGenres_ : tunerGenres_;
    return index < rows.size() ? rows[index] : nullptr;
}

void Tuner::filter(const Filter& request) {
    if (request.neutral()) {
        filtered_ = false;
        return;
    }
    filteredTunerGenres_.clear();
    filterCount_ = 0;
    auto group = TunerItem::tunerItem();
    for (const auto& genre : tunerGenres_) {
        for (const auto& child : genre->streams()) {
            const std::uint16_t rate = child->cachedBitrate();
            if (rate < request.min || rate > request.max) continue;
            if (!request.keywords.empty() && !child->containsKeyword(request.keywords)) continue;
            group->addItemToList(child);
        }
        if (group->count() == 0) continue;  // reused for the next genre
        filterCount_ += static_cast<int>(group->count());
        group->setName(genre->name());
        filteredTunerGenres_.push_back(std::move(group));
        group = TunerItem::tunerItem();
    }
    filtered_ = true;
}

void Tuner::expand(bool on, const std::string& name) {
    auto it = std::find(expandedItems_.begin(), expandedItems_.end(), name);
    if (on && it == expandedItems_.end()) expandedItems_.push_back(name);
    if (!on && it != expandedItems_.end()) expandedItems_.erase(it);
}

bool Tuner::isExpanded(const std::string& name) const {
    return std::find(expandedItems_.begin(), expandedItems_.end(), name) != expandedItems_.end();
}

std::shared_ptr<TunerItem> Tuner::groupForGenre(const std::optional<std::string>& name) {
    const std::string key = name.value_or(kOtherGenre);
    if (auto it = tunerData_.find(key); it != tunerData_.end()) return it->second;
    auto group = TunerItem::tunerItem();
    group->setName(key);
    group->setItemType(static_cast<int>(TunerItem::Type::genre));
    group->cacheTunerData();
    tunerData_[key] = group;
    tunerGenres_.push_back(group);
    return group;
}

void Tuner::addItemWithGenre(std::shared_ptr<TunerItem> stream) {
    stream->cacheTunerData();
    auto group = groupForGenre(stream->genre());
    group->addItemToList(std::move(stream));
}

void Tuner::addItem(std::shared_ptr<TunerItem> item, const std::shared_ptr<TunerItem>& selected) {
    item->cacheTunerData();
    if (selected) {
        selected->addItemToList(std::move(item));
        return;
    }
    if (auto name = item->name()) tunerData_[*name] = item;
    tunerGenres_.push_back(std::move(item));
}

void Tuner::sortWithDescriptors(const std::vector<TunerItem::SortDescriptor>& descriptors) {
    for (const auto& genre : filteredTunerGenres_) genre->sortWithDescriptors(descriptors);
    for (const auto& genre : tunerGenres_) genre->sortWithDescriptors(descriptors);
}

bool Tuner::save() const {
    PlistValue::Array items;
    for (const auto& genre : tunerGenres_) items.emplace_back(genre->archivedResource());
    const std::string path = homePath("tuner.tun");
    if (!writeFileAtomically(path, PlistCodec::encodeBinary(PlistValue(std::move(items))))) {
        Log::warning("The directory could not be saved to " + path);
        return false;
    }
    return true;
}

bool Tuner::load() {
    const std::string path = homePath("tuner.tun");
    auto genres = readDirectoryFile(path);
    if (!genres) {
        Log::warning("No directory could be read from " + path);
        return false;
    }
    setGenres(std::move(*genres));
    return true;
}

std::map<std::string, Bytes> Tuner::serverFiles(const TunerItem::List& genres) {
    std::map<std::string, Bytes> files;
    PlistValue::Array names;
    for (const auto& genre : genres) {
        const std::string name = genre->name().value_or("");
        if (!isPlainFileName(name)) {
            Log::warning("A genre named '" + printable(name) + "' cannot be a file: left out");
            continue;
        }
        names.emplace_back(name);
        files[genreFileName(name)] = genre->archivedResource();
    }
    files[kGenresFile] = PlistCodec::encodeXml(PlistValue(std::move(names)));
    return files;
}

bool Tuner::generateFiles(const std::string& folder) const {
    const std::string target = folder.empty() ? homePath("Tuner") : folder;
    if (!makeFolders(target)) {
        Log::warning("The folder " + target + " could not be created");
        return false;
    }
    bool ok = true;
    for (const auto& [name, bytes] : serverFiles(tunerGenres_)) {
        const std::string path = joinPath(target, name);
        if (!writeFileAtomically(path, bytes)) {
            Log::warning("The directory file " + path + " could not be written");
            ok = false;
        }
    }
    return ok;
}

std::string Tuner::genreURL(const std::string& location, const std::string& name) {
    return location + percentEncoded(genreFileName(name));
}

std::string Tuner::percentEncoded(std::string_view text) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : text) {
        if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~') {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    return out;
}

std::optional<TunerItem::List> Tuner::readDirectoryFile(const std::string& path) {
    auto items = PlistCodec::readArrayFile(path);
    if (!items) return std::nullopt;
    TunerItem::List genres;
    for (const PlistValue& element : *items) {
        if (const PlistValue::Data* data = element.asData())
            if (auto genre = TunerItem::fromArchive(*data)) genres.push_back(std::move(genre));
    }
    return genres;
}

bool Tuner::writeDirectoryFile(const std::string& path, const TunerItem::List& genres) {
    PlistValue::Array items;
    items.reserve(genres.size());
    for (const auto& genre : genres) items.emplace_back(genre->archivedResource());
    makeFolders(std::filesystem::path(path).parent_path().string());
    return PlistCodec::writeXmlFile(path, PlistValue(std::move(items)));
}

}  // namespace quillon
