#include "station/TitlePlan.h"

#include <limits>

namespace quillon {

TitlePlan::TitlePlan(const StationOptions& options)
    : metaint_(options.metaint),
      titleEvery_(options.titleEvery),
      titles_(options.titles),
      titlesWithheld_(options.emptyTitles != EmptyTitles::none) {
    // Checked by validate(): every title has its bytes in the encoding.
    for (const auto& t : titles_) wireTitles_.push_back(titleOnWire(t, options.titleEncoding).value_or(t));
}

std::string TitlePlan::wireTitle(std::uint32_t index) const {
    // The generated titles are ASCII, the same in every encoding.
    if (!wireTitles_.empty()) return wireTitles_[index % wireTitles_.size()];
    return title(index);
}

std::string TitlePlan::title(std::uint32_t index) const {
    if (!titles_.empty()) return titles_[index % titles_.size()];
    const auto n = std::to_string(std::uint64_t{index} + 1);
    return "Artist " + n + " - Title " + n;
}

std::uint32_t TitlePlan::dueIndex(std::uint64_t byteOffset) const {
    if (titleEvery_ == 0) return 0;
    const std::uint64_t index = byteOffset / titleEvery_;
    return index > std::numeric_limits<std::uint32_t>::max() ? std::numeric_limits<std::uint32_t>::max()
                                                             : static_cast<std::uint32_t>(index);
}

std::optional<std::uint32_t> TitlePlan::announcementAt(std::uint64_t boundary,
                                                       std::optional<std::uint32_t> lastAnnounced) const {
    const std::uint32_t due = dueIndex(boundary == 0 ? 0 : boundary - 1);
    if (lastAnnounced && *lastAnnounced == due) return std::nullopt;
    return due;
}

std::vector<TitleAnnouncement> TitlePlan::schedule(std::uint64_t audioBytes) const {
    std::vector<TitleAnnouncement> announcements;
    if (metaint_ == 0 || titlesWithheld_) return announcements;
    std::optional<std::uint32_t> last;
    for (std::uint64_t boundary = metaint_; boundary <= audioBytes; boundary += metaint_) {
        if (const auto index = announcementAt(boundary, last)) {
            announcements.push_back({boundary, *index, title(*index)});
            last = index;
        }
    }
    return announcements;
}

std::string TitlePlan::metadataText(std::string_view title) {
    std::string text = "StreamTitle='";
    text += title;
    text += "';StreamUrl='';";
    return text;
}

Bytes TitlePlan::metadataBlock(std::string_view text, std::uint8_t lengthFlag) {
    const std::size_t units = (text.size() + 15) / 16 + lengthFlag;
    Bytes block(1 + units * 16, 0);
    block[0] = static_cast<std::uint8_t>(units);
    std::copy(text.begin(), text.end(), block.begin() + 1);
    return block;
}

}  // namespace quillon
