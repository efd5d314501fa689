// The enabling rules of the activity module's toolbar and menus, and what the
// view model shows for a list without and with connections.
#include <gtest/gtest.h>

#include "AppTestSupport.h"
#include "app/ActivityViewModel.h"

namespace quillon {
namespace {

using test::FakeInterface;
using test::runUntil;

TEST(ActivityViewModelRules, WithoutASelectionOnlyRevealAndGetInfoStayEnabled) {
    struct Case {
        const char* action;
        bool withoutSelection;
    };
    const Case cases[] = {
        {"revealInFinder", true}, {"getInfo", true},
        {"stopButton", false},    {"stopAfterThisTrack", false},
        {"listen", false},        {"clearConnection", false},
        {"deleteItems", false},   {"disconnectAndRemove", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.action);
        EXPECT_EQ(ActivityViewModel::menuItemEnabled(c.action, std::nullopt), c.withoutSelection);
        for (int state = static_cast<int>(Ripper::State::Finished);
             state <= static_cast<int>(Ripper::State::Relaying); ++state)
            EXPECT_TRUE(ActivityViewModel::menuItemEnabled(c.action, state));
    }
    for (const auto& item : ActivityViewModel::toolbarItems(std::nullopt))
        EXPECT_EQ(item.enabled, item.action.empty()) << item.identifier;  // only the spaces
}

TEST(ActivityViewModelRules, ListenNeedsAStreamingSelection) {
    for (int state = static_cast<int>(Ripper::State::Finished);
         state <= static_cast<int>(Ripper::State::Relaying); ++state) {
        SCOPED_TRACE(state);
        bool streaming = state >= static_cast<int>(Ripper::State::Recording);
        EXPECT_EQ(ActivityViewModel::toolbarItemEnabled("Listen", state), streaming);
        for (const char* other : {"Disconnect", "Reveal", "Delete"})
            EXPECT_TRUE(ActivityViewModel::toolbarItemEnabled(other, state)) << other;
    }
}

TEST(ActivityViewModelRules, TheToolbarKeepsItsOrderAndTheDisconnectItemTurnsToConnectWhenStopped) {
    auto ids = [](const std::vector<ActivityViewModel::ToolbarItem>& items) {
        std::vector<std::string> out;
        for (const auto& i : items) out.push_back(i.identifier);
        return out;
    };
    const std::vector<std::string> order{"Disconnect", "Space",         "Listen",
                                         "Reveal",     "FlexibleSpace", "Delete"};
    struct Case {
        std::optional<int> state;
        const char* image;
        const char* label;
    };
    const Case cases[] = {{std::nullopt, "disconnect", "Disconnect"},
                          {static_cast<int>(Ripper::State::Stopped), "connect", "Connect"},
                          {static_cast<int>(Ripper::State::Connecting), "disconnect", "Disconnect"},
                          {static_cast<int>(Ripper::State::Recording), "disconnect", "Disconnect"},
                          {static_cast<int>(Ripper::State::Finished), "disconnect", "Disconnect"}};
    for (const auto& c : cases) {
        auto items = ActivityViewModel::toolbarItems(c.state);
        EXPECT_EQ(ids(items), order);
        EXPECT_EQ(items[0].image, c.image);
        EXPECT_EQ(items[0].label, c.label);
        EXPECT_EQ(items[0].action, "stopButton");
    }
}

TEST(ActivityViewModelRules, TheContextMenuIsOrderedByTagAndChecksStopAfterThisTrack) {
    auto items = ActivityViewModel::contextMenuItems(static_cast<int>(Ripper::State::Recording), true);
    ASSERT_EQ(items.size(), 5u);
    const char* keys[] = {"disconnectMenu", "disconnectAfterMenu", "revealMenu", "getInfoMenu", "listenMenu"};
    for (int tag = 0; tag < 5; ++tag) {
        EXPECT_EQ(items[tag].tag, tag);
        EXPECT_EQ(items[tag].key, keys[tag]);
        EXPECT_EQ(items[tag].checked, tag == 1);
    }
    for (const auto& item : ActivityViewModel::contextMenuItems(std::nullopt, true))
        EXPECT_FALSE(item.checked);
}

class ActivityViewModelTest : public test::AppFixture {};

TEST_F(ActivityViewModelTest, AnEmptyListHasNoRowsAndNoSelection) {
    FakeInterface ui;
    ActivityController controller(ui);
    auto view = ActivityViewModel::make(controller);
    EXPECT_TRUE(view.rows.empty());
    EXPECT_FALSE(view.selectedRow.has_value());
    EXPECT_FALSE(view.toolbar[2].enabled);     // Listen
    EXPECT_TRUE(view.contextMenu[2].enabled);  // Reveal
    EXPECT_EQ(view.sortKey, "title");
}

TEST_F(ActivityViewModelTest, ALiveConnectionShowsItsRowAndEnablesListen) {
    auto station = startStation();
    FakeInterface ui;
    ActivityController controller(ui);
    Ripper* c = controller.addRecord(*bookmarkFor(station->port(), "Live One"), nullptr, false, false);
    ASSERT_NE(c, nullptr);
    ASSERT_TRUE(runUntil([&] { return c->isStreaming() && c->bitrate() > 0; }));

    auto view = ActivityViewModel::make(controller);
    ASSERT_EQ(view.rows.size(), 1u);
    const auto& row = view.rows[0];
    EXPECT_EQ(row.connName, "Live One");
    EXPECT_TRUE(row.selected);
    EXPECT_TRUE(row.streaming);
    EXPECT_EQ(row.bitrate, 128u);
    EXPECT_EQ(row.picture, "high.psd");
    EXPECT_EQ(row.bitrateClass, "high");
    EXPECT_EQ(row.relayPort, 0);  // this controller makes no relays
    EXPECT_EQ(view.selectedRow, std::optional<std::size_t>(0));
    EXPECT_TRUE(view.toolbar[2].enabled);
    EXPECT_TRUE(view.details.empty());

    controller.getInfo();
    view = ActivityViewModel::make(controller);
    EXPECT_TRUE(view.detailsShown);
    EXPECT_NE(view.details.find("Bitrate : 128"), std::string::npos) << view.details;

    controller.selectRow(std::nullopt);
    view = ActivityViewModel::make(controller);
    EXPECT_FALSE(view.rows[0].selected);
    EXPECT_FALSE(view.toolbar[2].enabled);
    EXPECT_TRUE(view.details.empty());
}

}  // namespace
}  // namespace quillon
