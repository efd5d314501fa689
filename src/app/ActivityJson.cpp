#include "app/ActivityJson.h"

namespace quillon {

nlohmann::json activityRowJson(const ActivityViewModel::Row& r) {
    return {{"id", r.id},
            {"title", r.title},
            {"status", r.status},
            {"state", r.state},
            {"streaming", r.streaming},
            {"selected", r.selected},
            {"bitrate", r.bitrate},
            {"bitrateClass", r.bitrateClass},
            {"bytes", r.bytes},
            {"connName", r.connName},
            {"relayPort", r.relayPort},
            {"listeners", r.listeners},
            {"relayOnly", r.relayOnly},
            {"closeAfterThisTrack", r.closeAfterThisTrack},
            {"downloadPath", r.downloadPath},
            {"scheduleInformation", r.scheduleInformation},
            {"track", r.track}};
}

nlohmann::json activityJson(const ActivityViewModel& view) {
    nlohmann::json rows = nlohmann::json::array();
    for (const auto& r : view.rows) rows.push_back(activityRowJson(r));
    nlohmann::json toolbar = nlohmann::json::array();
    for (const auto& t : view.toolbar)
        toolbar.push_back(
            {{"identifier", t.identifier}, {"label", t.label}, {"action", t.action}, {"enabled", t.enabled}});
    nlohmann::json menu = nlohmann::json::array();
    for (const auto& m : view.contextMenu)
        menu.push_back({{"tag", m.tag},
                        {"title", m.title},
                        {"action", m.action},
                        {"enabled", m.enabled},
                        {"checked", m.checked}});
    return {{"rows", rows},
            {"sortKey", view.sortKey},
            {"sortAscending", view.sortAscending},
            {"toolbar", toolbar},
            {"contextMenu", menu}};
}

}  // namespace quillon
