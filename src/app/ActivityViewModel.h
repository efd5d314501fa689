#pragma once
// What the activity module shows, as plain data for a renderer (the web UI, the
// command line): the rows of the connection list with their bit-rate class, the
// selection, the toolbar in its default order with each item's look and
// whether it is enabled, the contextual menu, the stop-after-this-track check
// mark and the detail panel. The enabling rules are static so that every
// renderer applies the same ones.
//
// Thread contract: make() on the main thread (it reads the controller); the
// result is a plain value.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quillon {

class ActivityController;

class ActivityViewModel {
public:
    struct Row {
        std::uint64_t id = 0;     // the connection's, for its whole life
        std::uint64_t bytes = 0;  // read from the stream so far
        std::string title;
        std::string status;
        std::string picture;       // "none.psd", "low.psd", "med.psd" or "high.psd"
        std::string bitrateClass;  // the picture's class: "none", "low", "med", "high"
        unsigned bitrate = 0;      // kbit/s
        int state = 0;
        bool streaming = false;
        bool selected = false;
        std::string connName;
        std::uint16_t relayPort = 0;  // 0 when not serving
        int listeners = 0;
        bool relayOnly = false;
        bool closeAfterThisTrack = false;
        std::string downloadPath;  // the file being written, if any
        // "Will stop on Monday, November 23 2026, 10:30 pm" for a connection
        // a schedule rule started; else the text of "ConnectionNotScheduled".
        std::string scheduleInformation;
        // The title of the track being received; empty before the first one.
        std::string track;
    };

    struct ToolbarItem {
        std::string identifier;  // "Disconnect", "Listen", "Reveal", "Delete", "Space", "FlexibleSpace"
        std::string label;
        std::string toolTip;
        std::string image;
        std::string action;
        bool enabled = false;
    };

    struct MenuItem {
        int tag = 0;
        std::string key;  // "disconnectMenu", ...
        std::string title;
        std::string action;
        bool enabled = false;
        bool checked = false;
    };

    std::vector<Row> rows;
    std::optional<std::size_t> selectedRow;
    std::vector<ToolbarItem> toolbar;
    std::vector<MenuItem> contextMenu;
    std::string sortKey;
    bool sortAscending = true;
    bool detailsShown = false;
    std::string details;  // the selected connection's description, when shown

    static ActivityViewModel make(const ActivityController& controller);

    // The class of a bit-rate picture: its name without ".psd".
    static std::string bitrateClass(const std::string& picture);
    // Menu actions: "revealInFinder" and "getInfo" always; every other action
    // only with a selected connection. `selectedState`: the selected
    // connection's state, nothing without a selection.
    static bool menuItemEnabled(const std::string& action, std::optional<int> selectedState);
    // Toolbar items: "Listen" needs a selected connection that streams
    // (state 5 or more); the others need a selected connection.
    static bool toolbarItemEnabled(const std::string& identifier, std::optional<int> selectedState);
    // The toolbar in its default order, "Disconnect" showing "connect" for a
    // stopped selection.
    static std::vector<ToolbarItem> toolbarItems(std::optional<int> selectedState);
    // The contextual menu by tag; stop-after-this-track is checked when set on
    // the selected connection.
    static std::vector<MenuItem> contextMenuItems(std::optional<int> selectedState, bool closeAfterThisTrack);
};

}  // namespace quillon
