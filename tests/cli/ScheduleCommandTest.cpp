// `quillon schedule` on the home folder's schedules file: rules added by
// bookmark name or file, listed with their ids, switched off and on, removed,
// the upcoming starts; bad input exits 2 with one line and changes nothing.
#include <algorithm>
#include <ctime>

#include <nlohmann/json.hpp>

#include "cli/CliTest.h"

namespace quillon::test {
namespace {

class ScheduleCommandTest : public CliTest {
protected:
    void SetUp() override {
        CliTest::SetUp();
        writeText(file("jazz.pls"), "[playlist]\nFile1=http://127.0.0.1:8000/\nTitle1=Jazz\n");
        ASSERT_EQ(quillon({"bookmark", "add", file("jazz.pls")}).status, 0);
    }
    nlohmann::json json(std::vector<std::string> args) const {
        args.push_back("--json");
        auto result = quillon(args);
        EXPECT_EQ(result.status, 0) << result.err;
        return nlohmann::json::parse(result.out);
    }
    std::string schedulesFile() const { return file("Library/Preferences/kv.schedules.qln"); }
};

TEST_F(ScheduleCommandTest, AddListSwitchAndRemoveRules) {
    // Tomorrow and the day after: four weeks ahead then hold four starts of
    // each, whatever the time of day the test runs at.
    static const char* const shortNames[] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};
    static const char* const fullNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                            "Thursday", "Friday", "Saturday"};
    std::time_t t = std::time(nullptr);
    std::tm today{};
    ::localtime_r(&t, &today);
    const int first = (today.tm_wday + 1) % 7, second = (today.tm_wday + 2) % 7;
    auto weekly =
        json({"schedule", "add", "Jazz", "--days", std::string(shortNames[first]) + "," + fullNames[second],
              "--at", "21:00", "--for", "1:30"});
    EXPECT_EQ(weekly["type"], "weekly");
    EXPECT_EQ(weekly["name"], "Jazz");
    EXPECT_EQ(weekly["days"],
              nlohmann::json({shortNames[std::min(first, second)], shortNames[std::max(first, second)]}));
    EXPECT_EQ(weekly["at"], "21:00");
    EXPECT_EQ(weekly["runFor"], "1:30");
    EXPECT_EQ(weekly["bookmarkPath"], bookmarkFile("Jazz"));
    EXPECT_EQ(weekly["active"], true);
    auto once = json({"schedule", "add", bookmarkFile("Jazz"), "--name", "Christmas", "--from",
                      "2099-12-24 21:00", "--to", "2099-12-24 23:00:30", "--relay-only", "--listen"});
    EXPECT_EQ(once["type"], "oneOff");
    EXPECT_EQ(once["from"], "2099-12-24 21:00:00");
    EXPECT_EQ(once["to"], "2099-12-24 23:00:30");
    EXPECT_EQ(once["relayOnly"], true);
    EXPECT_EQ(once["listen"], true);
    EXPECT_NE(weekly["id"], once["id"]);

    auto list = json({"schedule", "list"});
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0], weekly);
    EXPECT_EQ(list[1], once);
    EXPECT_EQ(lines(quillon({"schedule", "list"}).out).size(), 2u);

    // Four weeks of weekly starts (eight), then the one-off, earliest first.
    auto upcoming = json({"schedule", "upcoming"});
    ASSERT_EQ(upcoming.size(), 9u);
    EXPECT_EQ(upcoming[8]["name"], "Christmas");
    EXPECT_EQ(upcoming[8]["stop"], "2099-12-24 23:00:30");
    for (std::size_t i = 1; i < upcoming.size(); ++i)
        EXPECT_LT(upcoming[i - 1]["start"], upcoming[i]["start"]);
    EXPECT_EQ(upcoming[0]["id"], weekly["id"]);
    EXPECT_EQ(upcoming[0]["start"].get<std::string>().substr(10), " 21:00:00");
    EXPECT_EQ(upcoming[0]["stop"].get<std::string>().substr(10), " 22:30:00");

    const std::string id = std::to_string(weekly["id"].get<std::uint32_t>());
    EXPECT_EQ(json({"schedule", "disable", id})["active"], false);
    EXPECT_EQ(json({"schedule", "upcoming"}).size(), 1u);
    EXPECT_EQ(json({"schedule", "enable", id})["active"], true);
    auto removed = quillon({"schedule", "rm", id});
    EXPECT_EQ(removed.status, 0) << removed.err;
    EXPECT_EQ(removed.out.rfind("Removed " + id + "\t", 0), 0u) << removed.out;
    list = json({"schedule", "list"});
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0]["name"], "Christmas");
}

TEST_F(ScheduleCommandTest, BadInputExitsWithOneLineAndChangesNothing) {
    ASSERT_EQ(quillon({"schedule", "add", "Jazz", "--days", "fri", "--at", "08:00", "--for", "0:30"}).status,
              0);
    const std::string before = readText(schedulesFile());
    const std::vector<std::vector<std::string>> cases = {
        {"schedule"},
        {"schedule", "add"},
        {"schedule", "add", "Nothing", "--days", "mon", "--at", "21:00", "--for", "1:00"},
        {"schedule", "add", "../Jazz", "--days", "mon", "--at", "21:00", "--for", "1:00"},
        {"schedule", "add", "Jazz", "--days", "mon,funday", "--at", "21:00", "--for", "1:00"},
        {"schedule", "add", "Jazz", "--days", "mon", "--at", "25:00", "--for", "1:00"},
        {"schedule", "add", "Jazz", "--days", "mon", "--at", "21:00", "--for", "0:00"},
        {"schedule", "add", "Jazz", "--days", "mon", "--at", "21:00"},
        {"schedule", "add", "Jazz"},
        {"schedule", "add", "Jazz", "--days", "mon", "--at", "21:00", "--for", "1:00", "--from",
         "2099-01-01 10:00"},
        {"schedule", "add", "Jazz", "--from", "2001-01-01 10:00", "--to", "2001-01-01 11:00"},
        {"schedule", "add", "Jazz", "--from", "2099-01-01 10:00", "--to", "2099-01-01 09:00"},
        {"schedule", "add", "Jazz", "--from", "tomorrow", "--to", "2099-01-01 09:00"},
        {"schedule", "add", "Jazz", "--name", "Радио", "--days", "mon", "--at", "21:00", "--for", "1:00"},
        {"schedule", "rm", "abc"},
        {"schedule", "rm", "0"},
        {"schedule", "rm", "99999"},
        {"schedule", "enable", "99999"},
        {"schedule", "disable"},
    };
    for (const auto& args : cases) {
        std::string shown;
        for (const auto& a : args) shown += " " + a;
        auto result = quillon(args);
        EXPECT_EQ(result.status, 2) << shown << ": " << result.err;
        EXPECT_EQ(result.out, "") << shown;
        EXPECT_EQ(count(result.err, "\n"), 1u) << shown << ": " << result.err;
        EXPECT_EQ(result.err.rfind("quillon: ", 0), 0u) << shown << ": " << result.err;
    }
    EXPECT_EQ(readText(schedulesFile()), before);
}

}  // namespace
}  // namespace quillon::test
