#include "schedule/PendingAction.h"

#include "history/HistoryDatabase.h"
#include "platform/Localization.h"
#include "platform/TextUtil.h"
#include "platform/TimeUtil.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

template <typename T>
int ordered(const T& a, const T& b) {
    return a < b ? -1 : (b < a ? 1 : 0);
}

}  // namespace

std::string PendingAction::displayText(Date date) {
    const int mode = intValue(Preferences::preferences()->getParam("timeMode"));
    const std::string day = HistoryDatabase::formatDate(date, localized("dateFormat", "%A, %B %d %Y"));
    const std::tm parts = TimeUtil::localParts(date);
    return day + ", " + TimeUtil::formatTime(parts.tm_hour, parts.tm_min, mode);
}

void PendingAction::setStartDate(Date date) {
    startDate_ = date;
    start_ = displayText(date);
}

void PendingAction::setStopDate(Date date) {
    stopDate_ = date;
    hasStopDate_ = true;
    stop_ = displayText(date);
}

int PendingAction::compare(const PendingAction& other) const { return ordered(startDate_, other.startDate_); }

int PendingAction::compareActions(const PendingAction& other, const std::string& key, bool descending) const {
    const PendingAction& a = descending ? other : *this;
    const PendingAction& b = descending ? *this : other;
    if (key == "pendingStart") return ordered(a.startDate_, b.startDate_);
    if (key == "pendingStop") return ordered(a.stopDate_, b.stopDate_);
    if (key == "pendingAction") return ordered(a.name_, b.name_);
    return 0;
}

}  // namespace quillon
