#include "app/ActivityViewModel.h"

#include "app/ActivityController.h"
#include "engine/Ripper.h"
#include "platform/Localization.h"
#include "schedule/PendingAction.h"

namespace quillon {

namespace {

ActivityViewModel::ToolbarItem spacer(const char* identifier) {
    ActivityViewModel::ToolbarItem item;
    item.identifier = identifier;
    item.enabled = true;
    return item;
}

ActivityViewModel::ToolbarItem button(const char* identifier, const char* labelKey, const char* labelDefault,
                                      const char* tipKey, const char* tipDefault, const char* image,
                                      const char* action, std::optional<int> selectedState) {
    ActivityViewModel::ToolbarItem item;
    item.identifier = identifier;
    item.label = localized(labelKey, labelDefault);
    item.toolTip = localized(tipKey, tipDefault);
    item.image = image;
    item.action = action;
    item.enabled = ActivityViewModel::toolbarItemEnabled(identifier, selectedState);
    return item;
}

}  // namespace

std::string ActivityViewModel::bitrateClass(const std::string& picture) {
    static constexpr std::string_view kSuffix = ".psd";
    if (picture.size() >= kSuffix.size() &&
        picture.compare(picture.size() - kSuffix.size(), kSuffix.size(), kSuffix) == 0)
        return picture.substr(0, picture.size() - kSuffix.size());
    return picture;
}

bool ActivityViewModel::menuItemEnabled(const std::string& action, std::optional<int> selectedState) {
    if (action == "revealInFinder" || action == "getInfo") return true;
    return selectedState.has_value();
}

bool ActivityViewModel::toolbarItemEnabled(const std::string& identifier, std::optional<int> selectedState) {
    if (!selectedState) return false;
    if (identifier == "Listen") return *selectedState >= static_cast<int>(Ripper::State::Recording);
    return true;
}

std::vector<ActivityViewModel::ToolbarItem> ActivityViewModel::toolbarItems(
    std::optional<int> selectedState) {
    std::vector<ToolbarItem> items;
    if (selectedState == static_cast<int>(Ripper::State::Stopped))
        items.push_back(button("Disconnect", "TB_Connect", "Connect", "TBH_ConnectTuner",
                               "Connect to this stream", "connect", "stopButton", selectedState));
    else
        items.push_back(button("Disconnect", "TB_Disconnect", "Disconnect", "TBH_Disconnect",
                               "Disconnect from this stream", "disconnect", "stopButton", selectedState));
    items.push_back(spacer("Space"));
    items.push_back(button("Listen", "TB_Listen", "Listen", "TBH_Listen", "Listen to this stream", "listen",
                           "listen", selectedState));
    items.push_back(button("Reveal", "TB_Reveal", "Reveal", "TBH_Reveal", "Show the recorded file", "reveal",
                           "revealInFinder", selectedState));
    items.push_back(spacer("FlexibleSpace"));
    items.push_back(button("Delete", "TB_Remove", "Remove", "TBH_Remove", "Disconnect and remove this stream",
                           "delete", "clearConnection", selectedState));
    return items;
}

std::vector<ActivityViewModel::MenuItem> ActivityViewModel::contextMenuItems(std::optional<int> selectedState,
                                                                             bool closeAfterThisTrack) {
    struct Entry {
        const char* key;
        const char* title;
        const char* action;
    };
    static constexpr Entry kEntries[] = {
        {"disconnectMenu", "Disconnect", "stopButton"},
        {"disconnectAfterMenu", "Stop after this track", "stopAfterThisTrack"},
        {"revealMenu", "Reveal", "revealInFinder"},
        {"getInfoMenu", "Get Info", "getInfo"},
        {"listenMenu", "Listen", "listen"},
    };
    std::vector<MenuItem> items;
    int tag = 0;
    for (const auto& entry : kEntries) {
        MenuItem item;
        item.tag = tag++;
        item.key = entry.key;
        item.title = localized(entry.key, entry.title);
        item.action = entry.action;
        item.enabled = menuItemEnabled(item.action, selectedState);
        item.checked = item.action == "stopAfterThisTrack" && selectedState && closeAfterThisTrack;
        items.push_back(std::move(item));
    }
    return items;
}

ActivityViewModel ActivityViewModel::make(const ActivityController& controller) {
    ActivityViewModel view;
    const Ripper* selected = controller.activeConnection();
    for (std::size_t row = 0; row < controller.numberOfRows(); ++row) {
        const Ripper& c = controller.connectionAt(row);
        Row r;
        r.id = c.id();
        r.bytes = c.bytesRead();
        r.title = c.title();
        r.status = c.status();
        r.picture = c.bitrateImage();
        r.bitrateClass = bitrateClass(r.picture);
        r.bitrate = c.bitrate();
        r.state = static_cast<int>(c.ripperState());
        r.streaming = c.isStreaming();
        r.selected = &c == selected;
        r.connName = c.connName();
        r.relayPort = c.relayPort();
        r.listeners = c.clientsCount();
        r.relayOnly = c.relayOnly();
        r.closeAfterThisTrack = c.closeAfterThisTrack();
        r.downloadPath = c.downloadPath();
        r.track = c.currentTrack();
        if (auto end = c.currentEndDate())
            r.scheduleInformation =
                localized("ConnectionWillStop", "Will stop on") + " " + PendingAction::displayText(*end);
        else
            r.scheduleInformation = localized("ConnectionNotScheduled", "");
        view.rows.push_back(std::move(r));
    }
    view.selectedRow = controller.selectedRow();
    std::optional<int> state;
    if (selected) state = static_cast<int>(selected->ripperState());
    view.toolbar = toolbarItems(state);
    view.contextMenu = contextMenuItems(state, selected && selected->closeAfterThisTrack());
    view.sortKey = controller.sortKey();
    view.sortAscending = controller.sortAscending();
    view.detailsShown = controller.detailsShown();
    if (view.detailsShown && selected) view.details = selected->description();
    return view;
}

}  // namespace quillon
