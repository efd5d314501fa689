#pragma once
// The activity list as the daemon's API shows it: JSON built from the view
// model, so that the web page and the command line see what any renderer sees.
//
// Thread contract: pure functions over plain values.
#include <nlohmann/json.hpp>

#include "app/ActivityViewModel.h"

namespace quillon {

nlohmann::json activityRowJson(const ActivityViewModel::Row& row);
nlohmann::json activityJson(const ActivityViewModel& view);

}  // namespace quillon
