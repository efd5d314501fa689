#include "engine/TrackSplitPolicy.h"

#include <filesystem>

#include <fmt/format.h>

#include "engine/TrackName.h"
#include "platform/TimeUtil.h"
#include "platform/VoObject.h"

namespace quillon {

namespace {
std::string standardFiltered(const std::string& text) {
    return VoObject::filterString(text, VoObject::standartFilter());
}
}  // namespace

TrackSplitPolicy::Step TrackSplitPolicy::onTitle(const std::string& title, const std::string& lastTitle,
                                                 int tracksOpened, bool sizeSplit) {
    if (!title.empty()) return title == lastTitle ? Step::Ignore : Step::NewTrack;
    if (tracksOpened > 0) return Step::Ignore;
    return sizeSplit ? Step::Chunk : Step::Generic;
}

std::optional<std::string> TrackSplitPolicy::titleFromMetadata(std::span<const std::uint8_t> metadata,
                                                               bool clean, TitleEncoding::Charset charset) {
    auto behind = VoObject::returnDataInDataAfter(metadata, "StreamTitle='");
    if (!behind) return std::nullopt;
    auto raw = VoObject::returnDataInDataBefore(*behind, "';");
    if (!raw) return std::nullopt;
    // The one place a title's bytes become text: everything after it (file
    // names, tags, history, relay) carries this UTF-8.
    std::string title = TitleEncoding::toUtf8(asText(*raw), charset);
    return clean ? VoObject::alphabeticString(title) : title;
}

std::string TrackSplitPolicy::genericTitle(const std::string& stationTitle, const std::tm& local,
                                           int timeMode) {
    const int day = local.tm_mday, month = local.tm_mon + 1, year = local.tm_year + 1900;
    const std::string date = timeMode == 24 ? fmt::format("{}-{}-{}@", day, month, year)
                                            : fmt::format("{}-{}-{}@", month, day, year);
    return fmt::format("{}-({}{})", stationTitle, date,
                       TimeUtil::formatTime(local.tm_hour, local.tm_min, timeMode));
}

std::string TrackSplitPolicy::trackStem(const std::string& title, int trackNumber, bool numbered) {
    std::string name = standardFiltered(title);
    if (!numbered) return name;
    // "000N " cut to its last four characters: three digits and the blank.
    const std::string number = fmt::format("000{} ", trackNumber);
    return number.substr(number.size() - 4) + name;
}

std::string TrackSplitPolicy::chunkStem(const std::string& genericTitle, int chunkNumber) {
    return fmt::format("{:03} ", chunkNumber) + standardFiltered(genericTitle);
}

TrackSplitPolicy::Finished TrackSplitPolicy::finishedPath(const std::string& path, int tracksOpened,
                                                          const std::string& incompleteName,
                                                          const std::string& trackName,
                                                          const std::string& separator, bool artistFolders) {
    if (tracksOpened < 2) return {path, std::nullopt};
    std::filesystem::path file(path);
    std::filesystem::path folder = file.parent_path();
    if (folder.filename() == incompleteName) folder = folder.parent_path();
    Finished out;
    if (artistFolders && !separator.empty()) {
        auto at = trackName.find(separator);
        if (at != std::string::npos && at > 0) {
            folder /= safeFolderName(trackName.substr(0, at), "Unknown Artist");
            out.artistFolder = folder.string();
        }
    }
    out.path = (folder / file.filename()).string();
    return out;
}

}  // namespace quillon
