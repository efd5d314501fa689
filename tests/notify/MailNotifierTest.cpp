#include "notify/MailNotifier.h"

#include <gtest/gtest.h>

#include <future>

#include "notify/MailTestSupport.h"
#include "store/Preferences.h"

namespace quillon {
namespace {

using test::ScriptedSmtpServer;
using test::settingsFor;
using test::SmtpPeer;

TEST(MailSettingsTest, ServerAddressAndWhatIsMissing) {
    struct Case {
        std::string server, from, to, user, passwordFile;
        std::string host;
        int port;
        std::string problem;  // a part of it; "" when complete
    };
    const Case cases[] = {
        {"smtp.example.org:587", "a@x", "b@x", "", "", "smtp.example.org", 587, ""},
        {"smtp.example.org", "a@x", "b@x", "", "", "smtp.example.org", 0, ""},
        {"smtp.example.org:0", "a@x", "b@x", "", "", "smtp.example.org", -1, "port"},
        {"smtp.example.org:x", "a@x", "b@x", "", "", "smtp.example.org", -1, "port"},
        {"", "a@x", "b@x", "", "", "", 0, "no mail server"},
        {"h:25", "", "b@x", "", "", "h", 25, "no sender"},
        {"h:25", "a@x", "", "", "", "h", 25, "no recipient"},
        {"h:25", "a@x", "b@x", "me", "", "h", 25, "password file"},
        {"h:25", "a@x", "b@x", "me", "/p", "h", 25, ""},
    };
    for (const Case& c : cases) {
        MailSettings s;
        s.server = c.server;
        s.from = c.from;
        s.to = c.to;
        s.user = c.user;
        s.passwordFile = c.passwordFile;
        EXPECT_EQ(s.host(), c.host) << c.server;
        EXPECT_EQ(s.port(), c.port) << c.server;
        if (c.problem.empty()) {
            EXPECT_EQ(s.problem(), "");
        } else {
            EXPECT_NE(s.problem().find(c.problem), std::string::npos) << s.problem();
        }
    }
}

TEST(MailSettingsTest, PasswordIsTheFileFirstLine) {
    const std::string folder = test::testFolder("mail");
    struct Case {
        const char* name;
        std::optional<std::string> content;  // none: no file
        std::string password;                // "" when refused
        std::string why;
    };
    const Case cases[] = {
        {"first line", std::string("pass word\r\nrest\n"), "pass word", ""},
        {"no line end", std::string("pw"), "pw", ""},
        {"missing", std::nullopt, "", "cannot read the password file"},
        {"empty", std::string("\n"), "", "is empty"},
        {"too long", std::string(MailSettings::kMaxPasswordFile + 1, 'x'), "", "too long"},
    };
    for (const Case& c : cases) {
        MailSettings s = settingsFor("h:25");
        s.user = "me";
        s.passwordFile = folder + "/" + c.name;
        if (c.content) test::writeText(s.passwordFile, *c.content);
        std::string why;
        EXPECT_EQ(s.loadPassword(why), c.why.empty()) << c.name;
        EXPECT_EQ(s.password(), c.password) << c.name;
        EXPECT_EQ(s.useAuthentication(), c.why.empty()) << c.name;
        if (!c.why.empty()) {
            EXPECT_NE(why.find(c.why), std::string::npos) << why;
        }
    }
}

TEST(MailNotifierTest, BodyLinesCannotEndTheMessage) {
    EXPECT_EQ(MailNotifier::bodyLines({{"Station", "Jazz\r\n.\r\nFM"}, {"Reason", "refused"}}),
              "Station: Jazz  .  FM\r\nReason: refused\r\n");
}

class MailNotifierPrefsTest : public ::testing::Test {
protected:
    void SetUp() override { Preferences::resetShared(); }
    void TearDown() override { Preferences::resetShared(); }
};

// A notice goes out only when its switch is on and the settings are complete.
TEST_F(MailNotifierPrefsTest, NoticeFollowsItsSwitch) {
    SmtpPeer peer;
    std::promise<std::string> done;
    MailNotifier notifier(
        [&](const MailNotifier::Notice&, const std::string& failure) { done.set_value(failure); });
    auto prefs = Preferences::preferences();

    EXPECT_FALSE(notifier.notice(MailNotifier::Event::gaveUp, "Gave up", "Station: x\r\n"));
    prefs->setState(true, MailSettings::kOnGiveUpKey);
    EXPECT_FALSE(notifier.notice(MailNotifier::Event::gaveUp, "Gave up", "Station: x\r\n"));  // no server yet
    prefs->setParam(peer.server(), MailSettings::kServerKey);
    prefs->setParam("recorder@example.test", MailSettings::kFromKey);
    prefs->setParam("listener@example.test", MailSettings::kToKey);
    EXPECT_FALSE(
        notifier.notice(MailNotifier::Event::diskAlmostFull, "Disk", "Station: x\r\n"));  // its switch is off

    ASSERT_TRUE(notifier.notice(MailNotifier::Event::gaveUp, "Gave up", "Station: x\r\n"));
    EXPECT_EQ(done.get_future().get(), "");
    ASSERT_EQ(peer.messageCount(), 1u);
    EXPECT_NE(peer.message(1).find("Subject: Gave up\r\n"), std::string::npos);
}

// A server that never answers neither holds up the queue's bound nor the
// notifier's end: destruction interrupts the dialogue and joins.
TEST(MailNotifierTest, QueueIsBoundedAndDestructionEndsAWaitingDialogue) {
    ScriptedSmtpServer silent(ScriptedSmtpServer::Script{{"greeting", ""}});
    std::vector<std::string> failures;
    std::mutex mutex;
    {
        MailNotifier notifier([&](const MailNotifier::Notice&, const std::string& failure) {
            std::lock_guard lock(mutex);
            failures.push_back(failure);
        });
        ASSERT_TRUE(notifier.post(settingsFor(silent.server()), {"first", "b"}));
        silent.connected().wait();
        for (std::size_t i = 0; i < MailNotifier::kMaxQueued; ++i)
            EXPECT_TRUE(notifier.post(settingsFor(silent.server()), {"queued", "b"}));
        EXPECT_FALSE(notifier.post(settingsFor(silent.server()), {"one too many", "b"}));
    }
    // Only the dialogue in flight ended (as a failure); the queued ones were dropped.
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].rfind("Error sending mail: ", 0), 0u) << failures[0];
}

}  // namespace
}  // namespace quillon
