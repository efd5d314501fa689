#pragma once
// One schedule rule: record (or only relay) one bookmarked stream by itself at
// set times. A weekly rule ("_type" "DayRule") names its weekdays, each with a
// start time, a run time and listen/relay switches; a one-off rule
// ("DateRule") holds one start and one stop date. At every tick the schedule
// list hands each active rule "now", and the rule decides by itself whether to
// open its connection (through the injected Starter, which the application
// wires to the activity list) or to close it. A rule holds at most one
// connection; the connection holds the rule weakly as its ConnectionTimer and
// releases it whenever it closes or goes away.
//
// Every setting lives in the resource's dictionary (booleans as "YES"/"NO"),
// so a rule is saved as its archive.
//
// Thread contract: main thread only (the tick, the starter, the connection's
// release). Rules live in shared pointers (the connection refers to them
// weakly); they take no lock of their own.
#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "engine/ConnectionTimer.h"
#include "platform/ByteBuffer.h"
#include "store/AbstractResource.h"

namespace quillon {

class Bookmark;
class Ripper;

class AbstractRule : public AbstractResource,
                     public ConnectionTimer,
                     public std::enable_shared_from_this<AbstractRule> {
public:
    using Date = std::chrono::system_clock::time_point;
    // Opens a connection for the rule: (bookmark, rule, relayOnly, autoListen)
    // -> the connection, or null when none was opened.
    using Starter =
        std::function<Ripper*(const Bookmark&, const std::shared_ptr<ConnectionTimer>&, bool, bool)>;

    static constexpr const char* kWeekly = "DayRule";
    static constexpr const char* kOneOff = "DateRule";
    static constexpr const char* kInvalidBookmarkLog = "Cannot start schedule due to invalid bookmark for {}";

    // "SUN" ... "SAT", indexed by the day of the week (0 = Sunday).
    static const std::array<const char*, 7>& weekdays();

    // A new rule: active, at index -1.
    AbstractRule();
    ~AbstractRule() override;

    int index() const { return index_; }
    void setIndex(int index) { index_ = index; }

    std::string ruleType() const { return stringForKey("_type").value_or(""); }
    // Also the resource's file type.
    void setRuleType(const std::string& type);
    bool isOneOff() const { return ruleType() == kOneOff; }
    bool active() const { return boolForKey("_active"); }
    void setActive(bool on) { setBool(on, "_active"); }

    std::optional<std::string> name() const override { return stringForKey("name"); }
    void setName(std::optional<std::string> name) override { setString(std::move(name), "name"); }
    // The bookmark file's name without its extension.
    std::string description() const override;
    std::string bookmarkPath() const { return stringForKey("bookmarkPath").value_or(""); }
    void setBookmarkPath(const std::string& path) { setString(path, "bookmarkPath"); }
    std::optional<Bytes> bookmarkData() const;
    void setBookmarkData(const Bytes& archive);

    // ---- weekly rules; `day` 0 = Sunday
    bool dayEnabled(int day) const;
    // Sets the day's switch and, when enabled, its start ("21:30" or
    // "9:30 pm"), run ("1:30"), listen and relay keys.
    void setDay(int day, bool enabled, const std::string& start = {}, const std::string& run = {},
                bool listen = false, bool relay = false);
    std::string dayStart(int day) const;
    std::string dayRun(int day) const;
    bool dayListen(int day) const;
    bool dayRelay(int day) const;

    // ---- one-off rules
    std::optional<Date> startDate() const;
    std::optional<Date> endDate() const;
    // Stored as "2008-03-01 21:30:00 +0100".
    void setStartDate(Date date);
    void setEndDate(Date date);
    bool autoListen() const { return boolForKey("autoListen"); }
    void setAutoListen(bool on) { setBool(on, "autoListen"); }
    bool relayOnly() const { return boolForKey("relayOnly"); }
    void setRelayOnly(bool on) { setBool(on, "relayOnly"); }

    // ---- scheduling
    // The weekly start on the day of `date` (its switch on), else nothing.
    std::optional<Date> startDateForDate(Date date) const;
    // That start plus the day's run time.
    std::optional<Date> stopDateForDate(Date date) const;
    // One tick: starts when the start lies 1 to 14 seconds ahead (whole
    // seconds, truncated) and no connection is held; stops 1 to 14 seconds
    // past the stop.
    void shouldStartAtDate(Date now);
    // Opens the connection unless one is held (logs an unusable bookmark).
    void startWithRelay(bool relay, bool listen);
    // Closes the held connection, if any.
    void stop();

    void setStarter(Starter starter) { starter_ = std::move(starter); }
    Ripper* currentConnection() const { return currentConnection_; }
    // Replaces the held connection (none to let go).
    void setCurrentConnection(Ripper* connection) { currentConnection_ = connection; }
    // The stop computed at the last tick of an enabled day (weekly rules).
    std::optional<Date> currentStopDate() const { return currentStopDate_; }

    // ---- ConnectionTimer
    void connectionClosed(const Ripper& connection) override;
    // Deliberate: a one-off rule shows its stop date (the weekly rule's
    // current stop is all it ever showed), so its connection says when it ends.
    std::optional<Date> currentEndDate() const override;

    // Other compared with this one under `key` ("description" or a dictionary
    // key): sorting by it gives descending order. Negative, 0 or positive.
    int compareRules(const AbstractRule& other, const std::string& key) const;

protected:
    std::shared_ptr<AbstractResource> newResource() const override {
        return std::make_shared<AbstractRule>();
    }

private:
    void shouldStartWeekly(Date now);
    void shouldStartOneOff(Date now);
    std::string dayKey(int day, const char* form) const;

    int index_ = -1;
    Ripper* currentConnection_ = nullptr;
    std::optional<Date> currentStopDate_;
    Starter starter_;
};

}  // namespace quillon
