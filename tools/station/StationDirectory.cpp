#include "station/StationDirectory.h"

#include "tuner/Tuner.h"

namespace quillon {

namespace {

struct Entry {
    const char* genre;
    const char* name;
    const char* description;
    int kbps;
    const char* id;
};

// Bit rates on both sides of the class bounds (32 and 95 kbit/s).
constexpr Entry kEntries[] = {
    {"Jazz", "Blue Note Radio", "smooth jazz all day", 128, "1001"},
    {"Jazz", "Late Night Jazz", "quiet jazz for the night", 32, "1002"},
    {"Rock", "Classic Rock Hits", "the great rock songs", 192, "2001"},
    {"Rock", "Garage Rock", "rock jazz fusion, loud", 24, "2002"},
    {"Talk Radio", "City News", "news and weather", 95, "3001"},
    {"Talk Radio", "Rock and Jazz Talk", "interviews with musicians", 96, "3002"},
};

std::string text(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

}  // namespace

TunerItem::List StationDirectory::genres() {
    Tuner directory("/dev/null");  // a tree only: never loaded or saved
    for (const Entry& e : kEntries) {
        auto stream = TunerItem::tunerItem();
        stream->setName(std::string(e.name));
        stream->setDescription(std::string(e.description));
        stream->setBitRate(e.kbps);
        stream->setItemType(static_cast<int>(TunerItem::Type::stream));
        stream->setGenre(std::string(e.genre));
        stream->setHasMeta(true);
        stream->setResourceNum(std::string(e.id));
        directory.addItemWithGenre(stream);
    }
    return directory.tunerGenres();
}

std::map<std::string, StationFile> StationDirectory::files(const std::string& stationUrl,
                                                           const StationDirectoryOptions& options) {
    constexpr const char* kPlain = "text/plain";
    std::map<std::string, StationFile> files;
    files[Tuner::kVersionFile] = {kPlain, std::to_string(options.version) + "\n"};
    files[Tuner::kLocationFile] = {kPlain, stationUrl + "tuner/\n"};
    std::size_t genreFiles = 0;
    for (const auto& [name, bytes] : Tuner::serverFiles(genres())) {
        StationFile file{"application/octet-stream", text(bytes)};
        if (name != Tuner::kGenresFile) {
            file.hangUp = options.failAfter && genreFiles >= *options.failAfter;
            ++genreFiles;
        }
        files["/tuner/" + Tuner::percentEncoded(name)] = std::move(file);
    }
    for (const Entry& e : kEntries) {
        const std::string playlist = "[playlist]\nNumberOfEntries=1\nFile1=" + stationUrl + "stream/" + e.id +
                                     "\nTitle1=" + e.name + "\nLength1=-1\nVersion=2\n";
        // The address without its scheme and host: the station serves its own.
        std::string target = TunerItem::plsURLWithNum("", e.id);
        files[target] = {"audio/x-scpls", playlist};
    }
    return files;
}

}  // namespace quillon
