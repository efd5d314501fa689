#include "schedule/AbstractRule.h"

#include <cmath>
#include <filesystem>

#include "engine/Ripper.h"
#include "platform/Log.h"
#include "platform/TimeUtil.h"
#include "schedule/LocalDate.h"
#include "store/Bookmark.h"

namespace quillon {

namespace {

// Whole seconds from `from` to `to`, truncated toward zero.
long long secondsBetween(AbstractRule::Date from, AbstractRule::Date to) {
    return std::chrono::duration_cast<std::chrono::seconds>(to - from).count();
}

std::chrono::minutes runTime(const std::string& text) {
    return std::chrono::hours(TimeUtil::hourNumberFromString(text)) +
           std::chrono::minutes(TimeUtil::minutesFromString(text));
}

}  // namespace

const std::array<const char*, 7>& AbstractRule::weekdays() {
    static const std::array<const char*, 7> days = {"SUN", "MON", "TUE", "WED", "THU", "FRI", "SAT"};
    return days;
}

AbstractRule::AbstractRule() { setActive(true); }

AbstractRule::~AbstractRule() = default;

void AbstractRule::setRuleType(const std::string& type) {
    setString(type, "_type");
    setFileType(type);
}

std::string AbstractRule::description() const {
    return std::filesystem::path(bookmarkPath()).stem().string();
}

std::optional<Bytes> AbstractRule::bookmarkData() const {
    auto value = objectForKey("bookmarkData");
    if (!value || !value->asData()) return std::nullopt;
    return Bytes(value->asData()->begin(), value->asData()->end());
}

void AbstractRule::setBookmarkData(const Bytes& archive) {
    setObject(PlistValue(PlistValue::Data(archive.begin(), archive.end())), "bookmarkData");
}

std::string AbstractRule::dayKey(int day, const char* form) const {
    return std::string(weekdays().at(static_cast<std::size_t>(day))) + form;
}

bool AbstractRule::dayEnabled(int day) const {
    // Only the stored string "YES" turns a day on.
    return stringForKey(weekdays().at(static_cast<std::size_t>(day))) == "YES";
}

void AbstractRule::setDay(int day, bool enabled, const std::string& start, const std::string& run,
                          bool listen, bool relay) {
    setBool(enabled, weekdays().at(static_cast<std::size_t>(day)));
    if (!enabled) return;
    setString(start, dayKey(day, " start"));
    setString(run, dayKey(day, " run"));
    setBool(listen, dayKey(day, " Listen"));
    setBool(relay, dayKey(day, " Relay"));
}

std::string AbstractRule::dayStart(int day) const { return stringForKey(dayKey(day, " start")).value_or(""); }
std::string AbstractRule::dayRun(int day) const { return stringForKey(dayKey(day, " run")).value_or(""); }
bool AbstractRule::dayListen(int day) const { return boolForKey(dayKey(day, " Listen")); }
bool AbstractRule::dayRelay(int day) const { return boolForKey(dayKey(day, " Relay")); }

std::optional<AbstractRule::Date> AbstractRule::startDate() const {
    auto text = stringForKey("startDate");
    return text ? LocalDate::fromStoredText(*text) : std::nullopt;
}

std::optional<AbstractRule::Date> AbstractRule::endDate() const {
    auto text = stringForKey("stopDate");
    return text ? LocalDate::fromStoredText(*text) : std::nullopt;
}

void AbstractRule::setStartDate(Date date) { setString(LocalDate::storedText(date), "startDate"); }
void AbstractRule::setEndDate(Date date) { setString(LocalDate::storedText(date), "stopDate"); }

// ---- scheduling --------------------------------------------------------------

std::optional<AbstractRule::Date> AbstractRule::startDateForDate(Date date) const {
    std::tm day = TimeUtil::localParts(date);
    if (!dayEnabled(day.tm_wday)) return std::nullopt;
    const std::string start = dayStart(day.tm_wday);
    // Deliberate: a start the clock skips that day (02:30 when daylight saving
    // begins at 02:00) starts when the skip ends, and a start the clock shows
    // twice (when it ends) starts at its first showing; either way once.
    return LocalDate::at(day.tm_year + 1900, day.tm_mon + 1, day.tm_mday, TimeUtil::hourFromString(start),
                         TimeUtil::minutesFromString(start));
}

std::optional<AbstractRule::Date> AbstractRule::stopDateForDate(Date date) const {
    auto start = startDateForDate(date);
    if (!start) return std::nullopt;
    // Deliberate: the run time is a duration, so a run across a clock change
    // records as long as asked, not an hour more or less.
    return *start + runTime(dayRun(TimeUtil::localParts(date).tm_wday));
}

void AbstractRule::shouldStartAtDate(Date now) {
    if (isOneOff())
        shouldStartOneOff(now);
    else
        shouldStartWeekly(now);
}

void AbstractRule::shouldStartWeekly(Date now) {
    const int day = TimeUtil::localParts(now).tm_wday;
    if (dayEnabled(day)) {
        Date start = *startDateForDate(now);
        // Replaced at every tick of an enabled day: a connection that runs past
        // midnight into another enabled day stops at that day's stop.
        currentStopDate_ = start + runTime(dayRun(day));
        long long d = secondsBetween(start, now);
        if (d < 0 && d > -15) startWithRelay(dayRelay(day), dayListen(day));
    }
    if (currentStopDate_) {
        long long e = secondsBetween(*currentStopDate_, now);
        if (e >= 1 && e <= 14) stop();
    }
}

void AbstractRule::shouldStartOneOff(Date now) {
    auto start = startDate();
    auto end = endDate();
    if (start) {
        long long d = secondsBetween(*start, now);
        if (d > -15 && d < 0) startWithRelay(relayOnly(), autoListen());
    }
    if (end) {
        long long e = secondsBetween(*end, now);
        if (e >= 1 && e <= 14) stop();
    }
}

void AbstractRule::startWithRelay(bool relay, bool listen) {
    auto bookmark = Bookmark::resourceFromPath<Bookmark>(bookmarkPath());
    if (!bookmark) {
        if (auto data = bookmarkData()) {
            bookmark = Bookmark::resourceFromData<Bookmark>(*data);
            // The activity list wants a file path; the one the rule names is
            // where the bookmark was.
            bookmark->setFilePath(bookmarkPath());
        }
    }
    // Deliberate: a connection that ended by itself (the server ended the
    // stream, reconnecting is off) never closed, so it still held the rule,
    // which then could never start again; once stopped for good it lets go.
    if (currentConnection_ && currentConnection_->stoppedForGood()) currentConnection_ = nullptr;
    if (currentConnection_) return;
    // An archive that held no bookmark gives an empty one: it has no stream.
    if (!bookmark || !bookmark->host()) {
        Log::info(kInvalidBookmarkLog, name().value_or(""));
        return;
    }
    bookmark->setName(name());
    if (!starter_) return;
    std::shared_ptr<AbstractRule> self = weak_from_this().lock();
    Ripper* connection = starter_(*bookmark, self, relay, listen);
    if (!connection) return;
    currentConnection_ = connection;
    if (self) connection->setTimer(self);
}

void AbstractRule::stop() {
    Ripper* connection = currentConnection_;
    if (!connection) return;
    // Closing releases the rule (connectionClosed), whoever closes it; the
    // closed connection stays listed until the user clears it.
    connection->userClose();
    currentConnection_ = nullptr;
}

void AbstractRule::connectionClosed(const Ripper& connection) {
    if (currentConnection_ == &connection) currentConnection_ = nullptr;
}

std::optional<AbstractRule::Date> AbstractRule::currentEndDate() const {
    if (isOneOff()) return endDate();
    return currentStopDate_;
}

int AbstractRule::compareRules(const AbstractRule& other, const std::string& key) const {
    std::string theirs, mine;
    if (key == "description") {
        theirs = other.description();
        mine = description();
    } else {
        theirs = other.stringForKey(key).value_or("");
        mine = stringForKey(key).value_or("");
    }
    return theirs.compare(mine) < 0 ? -1 : (theirs == mine ? 0 : 1);
}

}  // namespace quillon
