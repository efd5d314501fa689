#include "history/HistoryItem.h"

#include <sys/stat.h>

#include <cmath>
#include <ctime>
#include <filesystem>

#include <fmt/format.h>

#include "platform/TextUtil.h"
#include "platform/TimeUtil.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

char32_t lowerCase(char32_t c) {
    if (c >= U'A' && c <= U'Z') return c + 0x20;
    if (c < 0x80) return c;
    if ((c >= 0xC0 && c <= 0xDE && c != 0xD7) || (c >= 0x391 && c <= 0x3AB && c != 0x3A2) ||
        (c >= 0x410 && c <= 0x42F))
        return c + 0x20;
    if (c >= 0x400 && c <= 0x40F) return c + 0x50;
    // Latin Extended-A pairs capitals and small letters as even/odd code points,
    // except the stretch 0x139-0x148 and 0x179-0x17E, where capitals are odd.
    if ((c >= 0x100 && c <= 0x137) || (c >= 0x14A && c <= 0x177)) return c | 1;
    if ((c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E)) return (c & 1) ? c + 1 : c;
    if (c == 0x178) return 0xFF;
    return c;
}

}  // namespace

std::string lowerCaseText(std::string_view text) {
    std::u32string chars = toUtf32(text);
    for (char32_t& c : chars) c = lowerCase(c);
    return toUtf8(chars);
}

std::shared_ptr<HistoryItem> HistoryItem::newItem(const std::string& trackName, const std::string& radioName,
                                                  int trackNumber) {
    auto item = std::make_shared<HistoryItem>();
    item->setTrackName(trackName);
    item->setRadioName(radioName);
    item->setTracknum(trackNumber);
    item->setRecDate(std::chrono::system_clock::now());
    item->setComplete(false);
    return item;
}

std::shared_ptr<HistoryItem> HistoryItem::itemForFile(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return nullptr;
    std::filesystem::path file(path);
    auto item = std::make_shared<HistoryItem>();
    item->setTrackName(file.stem().string());
    item->setRadioName(kLocalRadioName);
    item->setTracknum(0);
    Date modified = std::chrono::system_clock::from_time_t(info.st_mtim.tv_sec) +
                    std::chrono::duration_cast<std::chrono::system_clock::duration>(
                        std::chrono::nanoseconds(info.st_mtim.tv_nsec));
    item->setRecDate(modified);
    item->setComplete(true);
    item->setPath(std::filesystem::absolute(file).lexically_normal().string());
    return item;
}

std::string HistoryItem::trackName() const { return stringForKey(kTrackNameKey).value_or(""); }
void HistoryItem::setTrackName(const std::string& name) { setString(name, kTrackNameKey); }
std::string HistoryItem::radioName() const { return stringForKey(kRadioNameKey).value_or(""); }
void HistoryItem::setRadioName(const std::string& name) { setString(name, kRadioNameKey); }
int HistoryItem::tracknum() const { return intForKey(kTrackNumKey); }
void HistoryItem::setTracknum(int number) { setInt(number, kTrackNumKey); }

std::optional<HistoryItem::Date> HistoryItem::calDate() const {
    auto value = objectForKey(kRecordDateKey);
    if (!value || !value->asDate()) return std::nullopt;
    double seconds = value->asDate()->unixTime();
    // Dates the clock cannot hold (years before 1678 or after 2261) are none.
    if (!(std::abs(seconds) < 9.2e9)) return std::nullopt;
    auto micros = static_cast<std::int64_t>(seconds * 1e6);
    return Date(std::chrono::duration_cast<Date::duration>(std::chrono::microseconds(micros)));
}

void HistoryItem::setRecDate(Date date) {
    double unix = std::chrono::duration<double>(date.time_since_epoch()).count();
    setObject(PlistValue(PlistDate::fromUnixTime(unix)), kRecordDateKey);
}

std::string HistoryItem::path() const { return stringForKey(kPathKey).value_or(""); }
void HistoryItem::setPath(const std::string& path) { setString(path, kPathKey); }
void HistoryItem::setComplete(bool complete) { setBool(complete, kCompleteKey); }
bool HistoryItem::complete() const { return boolForKey(kCompleteKey); }
void HistoryItem::setSkipped(bool skipped) { setBool(skipped, kSkippedKey); }
bool HistoryItem::skipped() const { return boolForKey(kSkippedKey); }

std::optional<std::string> HistoryItem::completeTrackName() const {
    if (!complete()) return std::nullopt;
    return trackName();
}

std::string HistoryItem::fullDescription() const {
    std::call_once(descriptionOnce_, [this] {
        fullDescription_ = lowerCaseText(fmt::format("{} {}", trackName(), radioName()));
    });
    return fullDescription_;
}

bool HistoryItem::containsKeyword(std::string_view keyword) const {
    return fullDescription().find(keyword) != std::string::npos;
}

std::string HistoryItem::time() const {
    auto when = calDate();
    if (!when) return {};
    std::tm parts = TimeUtil::localParts(*when);
    int mode = intValue(Preferences::preferences()->getParam("timeMode"));
    return TimeUtil::formatTime(parts.tm_hour, parts.tm_min, mode);
}

std::string HistoryItem::date() const {
    auto when = calDate();
    if (!when) return {};
    std::tm parts = TimeUtil::localParts(*when);
    char text[64];
    std::size_t n = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z", &parts);
    return std::string(text, n);
}

int HistoryItem::compare(const HistoryItem& other) const { return date().compare(other.date()); }

std::string HistoryItem::description() const { return fmt::format("{} on {}", time(), radioName()); }

}  // namespace quillon
