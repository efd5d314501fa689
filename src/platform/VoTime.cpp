#include "platform/VoTime.h"

#include "platform/TimeUtil.h"

namespace quillon {

std::string VoTime::checkTime(std::string_view text, int timeMode) {
    return TimeUtil::checkTime(text, timeMode);
}
std::string VoTime::formatTime(int hour, int minute, int timeMode) {
    return TimeUtil::formatTime(hour, minute, timeMode);
}
int VoTime::hourFromString(std::string_view text) { return TimeUtil::hourFromString(text); }
int VoTime::hourNumberFromString(std::string_view text) { return TimeUtil::hourNumberFromString(text); }
int VoTime::minutesFromString(std::string_view text) { return TimeUtil::minutesFromString(text); }
std::string VoTime::durationFromString(std::string_view text) { return TimeUtil::durationFromString(text); }
int VoTime::durationInMinutesFromString(std::string_view text) {
    return TimeUtil::durationInMinutesFromString(text);
}
void VoTime::threadSleep(double seconds) { TimeUtil::threadSleep(seconds); }

}  // namespace quillon
