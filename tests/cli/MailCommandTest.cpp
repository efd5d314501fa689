// `quillon mail test` against aiosmtpd on loopback.
#include <gtest/gtest.h>

#include "cli/CliTest.h"
#include "notify/MailTestSupport.h"
#include "support/Loopback.h"

namespace quillon {
namespace {

using namespace quillon::test;

class MailCommandTest : public CliTest {};

TEST_F(MailCommandTest, SendsWithOptionsOrSettingsAndReportsRefusals) {
    SmtpPeer peer;
    SmtpPeer authPeer("me:pw");
    const std::string passwordFile = home_ + "/mail-password";
    writeText(passwordFile, "pw\n");
    const std::string closed = "127.0.0.1:" + std::to_string(unusedPort());
    struct Case {
        const char* name;
        std::vector<std::string> args;
        int status;
        std::string output;  // a part of stdout (status 0) or stderr
    };
    const Case cases[] = {
        {"options",
         {"mail", "test", "--server", peer.server(), "--from", "a@example.test", "--to", "b@example.test"},
         0,
         "Sent a test notice to b@example.test through " + peer.server()},
        {"with AUTH LOGIN",
         {"mail", "test", "--server", authPeer.server(), "--from", "a@example.test", "--to", "b@example.test",
          "--user", "me", "--password-file", passwordFile},
         0,
         "Sent a test notice"},
        {"no server there",
         {"mail", "test", "--server", closed, "--from", "a@example.test", "--to", "b@example.test"},
         1,
         "quillon: mail not sent: Error sending mail: 105 Cannot connect to " + closed},
        {"refused without login",
         {"mail", "test", "--server", authPeer.server(), "--from", "a@example.test", "--to",
          "b@example.test"},
         1,
         "Error starting MAIL transaction"},
        {"settings missing", {"mail", "test"}, 1, "no mail server is set (mailServer)"},
        {"server set", {"prefs", "set", "mailServer", peer.server()}, 0, ""},
        {"sender set", {"prefs", "set", "mailFrom", "c@example.test"}, 0, ""},
        {"recipient set", {"prefs", "set", "mailTo", "d@example.test"}, 0, ""},
        {"from the settings", {"mail", "test"}, 0, "Sent a test notice to d@example.test"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ProcessResult r = quillon(c.args);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_NE((c.status == 0 ? r.out : r.err).find(c.output), std::string::npos) << r.out << r.err;
    }
    EXPECT_EQ(peer.messageCount(), 2u);
    EXPECT_EQ(authPeer.messageCount(), 1u);
    EXPECT_EQ(peer.message(2).rfind("c@example.test\nd@example.test\n", 0), 0u);
}

}  // namespace
}  // namespace quillon
