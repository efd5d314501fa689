// The notifier against aiosmtpd, a real SMTP server, with and without
// AUTH LOGIN: what the server takes is read back from its files.
#include <gtest/gtest.h>

#include "notify/MailNotifier.h"
#include "notify/MailTestSupport.h"
#include "notify/SMTP.h"

namespace quillon {
namespace {

using test::settingsFor;
using test::SmtpPeer;

// The value of a header of the message text, "" when absent.
std::string header(const std::string& message, const std::string& name) {
    const std::size_t at = message.find("\r\n" + name + ": ");
    if (at == std::string::npos) return {};
    const std::size_t start = at + name.size() + 4;
    return message.substr(start, message.find("\r\n", start) - start);
}

TEST(SmtpPeerTest, MessageArrivesWithItsHeadersAndBody) {
    SmtpPeer peer;
    const std::string body = "Station: Test FM\r\n.\r\nReason: a lone dot above\r\n";
    ASSERT_EQ(MailNotifier::send(settingsFor(peer.server()), {"Recording finished", body}), "");
    ASSERT_EQ(peer.messageCount(), 1u);
    const std::string file = peer.message(1);
    // Envelope: sender line, recipients line.
    EXPECT_EQ(file.rfind("recorder@example.test\nlistener@example.test\n", 0), 0u) << file;
    const std::string message = "\r\n" + file.substr(file.find('\n', file.find('\n') + 1) + 1);
    EXPECT_EQ(header(message, "Subject"), "Recording finished");
    EXPECT_EQ(header(message, "From"), "\"Quillon\" <recorder@example.test>");
    EXPECT_EQ(header(message, "To"), "<listener@example.test>");
    EXPECT_EQ(header(message, "Reply-To"), "\"recorder@example.test\" <recorder@example.test>");
    EXPECT_EQ(header(message, "User-Agent"), SMTP::userAgent());
    EXPECT_FALSE(header(message, "Date").empty());
    // The lone dot did not end the message: its line arrives as a carriage return.
    const std::string received = message.substr(message.find("\r\n\r\n") + 4);
    EXPECT_EQ(received, "Station: Test FM\r\n\r\r\nReason: a lone dot above\r\n\r\n");
}

TEST(SmtpPeerTest, AuthLoginWithTheRightAndTheWrongPassword) {
    struct Case {
        const char* password;  // in the password file
        std::string failure;
    };
    const Case cases[] = {
        {"s3cret pass\n", ""},
        {"wrong\n", "Error sending mail: Authentication failed"},
    };
    SmtpPeer peer("listener:s3cret pass");
    std::size_t sent = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.password);
        MailSettings settings = settingsFor(peer.server());
        settings.user = "listener";
        settings.passwordFile = test::testFolder("mail") + "/password";
        test::writeText(settings.passwordFile, c.password);
        EXPECT_EQ(MailNotifier::send(settings, {"Subject", "Body\r\n"}), c.failure);
        if (c.failure.empty()) ++sent;
        EXPECT_EQ(peer.messageCount(), sent);
    }
}

TEST(SmtpPeerTest, ServerThatWantsAuthRefusesMailWithout) {
    SmtpPeer peer("listener:pw");
    EXPECT_EQ(MailNotifier::send(settingsFor(peer.server()), {"Subject", "Body"}),
              "Error sending mail: Error starting MAIL transaction");
    EXPECT_EQ(peer.messageCount(), 0u);
}

}  // namespace
}  // namespace quillon
