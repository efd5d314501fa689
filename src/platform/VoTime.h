#pragma once
// The clock-time operations of TimeUtil under the second name that the rules and
// their editors use. One implementation: every function forwards to TimeUtil.
// Pure static functions, safe on any thread (threadSleep: worker threads only).
#include <string>
#include <string_view>

namespace quillon {

class VoTime {
public:
    static std::string checkTime(std::string_view text, int timeMode);
    static std::string formatTime(int hour, int minute, int timeMode);
    static int hourFromString(std::string_view text);
    static int hourNumberFromString(std::string_view text);
    static int minutesFromString(std::string_view text);
    static std::string durationFromString(std::string_view text);
    static int durationInMinutesFromString(std::string_view text);
    static void threadSleep(double seconds);
};

}  // namespace quillon
