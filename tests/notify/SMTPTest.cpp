#include "notify/SMTP.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "notify/MailNotifier.h"
#include "notify/MailTestSupport.h"
#include "platform/Log.h"
#include "platform/NamedException.h"
#include "platform/Timing.h"

namespace quillon {
namespace {

using test::ScriptedSmtpServer;
using test::settingsFor;

TEST(SMTPTest, RepliesAreJudgedByTheirCode) {
    struct Case {
        int code;
        bool accepted;
        const char* logged;  // the line a refusal logs; "" for none
    };
    const Case cases[] = {
        {220, true, ""},
        {221, true, ""},
        {235, true, ""},
        {250, true, ""},
        {251, true, ""},
        {334, true, ""},
        {354, true, ""},
        {421, false, "Service unavailable"},
        {550, false, ""},
        {502, false, "Error while connecting"},
        {0, false, "Error while connecting"},
    };
    for (const Case& c : cases) {
        Log::Capture log;
        EXPECT_EQ(SMTP::parseCommand(c.code), c.accepted) << c.code;
        std::vector<std::string> want;
        if (*c.logged) want.push_back(c.logged);
        EXPECT_EQ(log.lines(), want) << c.code;
    }
}

TEST(SMTPTest, OnlyTheFirstLoneDotLineIsDefused) {
    struct Case {
        std::string body, stored;
    };
    const Case cases[] = {
        {"a\r\n.\r\nb", "a\r\n\r\r\nb"},
        {"a\r\n.\r\nb\r\n.\r\nc", "a\r\n\r\r\nb\r\n.\r\nc"},
        {".\r\nb", ".\r\nb"},
        {"a\r\n..\r\nb", "a\r\n..\r\nb"},
        {"plain text", "plain text"},
    };
    for (const Case& c : cases) {
        SMTP mail;
        mail.setMailData(c.body);
        EXPECT_EQ(mail.stringForKey(SMTP::kMailDataKey), c.stored);
    }
}

TEST(SMTPTest, MessageHasItsHeadersBeforeTheBody) {
    SMTP mail;
    mail.setSenderMail("from@example.test");
    mail.setSenderName("The Recorder");
    mail.setDestMail("to@example.test");
    mail.setSubject("Subject\r\nBcc: injected");
    mail.setMailData("body");
    const std::string text = mail.mailData();
    const std::string date =
        text.substr(text.find("Date: ") + 6, text.find("\r\nSubject") - text.find("Date: ") - 6);
    EXPECT_EQ(text,
              "User-Agent: " + SMTP::userAgent() + "\r\nDate: " + date +
                  "\r\nSubject: Subject  Bcc: injected\r\nFrom: \"The Recorder\" <from@example.test>\r\n"
                  "To: <to@example.test>\r\nReply-To: \"from@example.test\" <from@example.test>\r\n"
                  "MIME-Version: 1.0\r\nContent-type: text/plain;\r\n\r\nbody");
    EXPECT_TRUE(
        std::regex_match(date, std::regex("[A-Za-z]*, [0-9]{2} [a-z]{3} [0-9]{4} [0-9:]{8} \\+[0-9]{2}00")))
        << date;
}

TEST(SMTPTest, BadAddressesAreRefusedAndNotStored) {
    SMTP mail;
    for (const char* bad : {"", "a@b\r\nRCPT TO: <x@y>"}) {
        EXPECT_THROW(mail.setSenderMail(bad), NamedException);
        EXPECT_THROW(mail.setDestMail(bad), NamedException);
    }
    EXPECT_FALSE(mail.stringForKey(SMTP::kSenderMailKey));
    EXPECT_FALSE(mail.stringForKey(SMTP::kDestMailKey));
}

// Each refusal of the dialogue, staged by a scripted server, fails with its
// own text; a refusal that logs nothing (550) adds no line of its own.
TEST(SMTPTest, EveryRefusalFailsWithItsText) {
    struct Case {
        const char* name;
        ScriptedSmtpServer::Script script;
        bool withUser;
        std::string failure;     // "" when the mail goes through
        const char* absentLog;   // a line that must not be logged, or ""
        const char* presentLog;  // a line that must be logged, or ""
    };
    const Case cases[] = {
        {"greeting 421",
         {{"greeting", "421 busy\r\n"}},
         false,
         "Server not responding",
         "",
         "Service unavailable"},
        {"EHLO and HELO 502",
         {{"EHLO", "502 no\r\n"}, {"HELO", "502 no\r\n"}},
         false,
         "Error starting HELO transaction",
         "",
         ""},
        {"AUTH 504", {{"AUTH", "504 no\r\n"}}, true, "Error starting AUTH transaction", "", ""},
        {"user 535", {{"USER", "535 no\r\n"}}, true, "User unknown", "", ""},
        {"password 535", {{"PASS", "535 no\r\n"}}, true, "Authentication failed", "", ""},
        {"MAIL 550",
         {{"MAIL", "550 no\r\n"}},
         false,
         "Error starting MAIL transaction",
         "Error while connecting",
         ""},
        {"RCPT 550",
         {{"RCPT", "550 no\r\n"}},
         false,
         "Error sending RCPT, Recipient refuser by the server",
         "Error while connecting",
         ""},
        {"DATA 554",
         {{"DATA", "554 no\r\n"}},
         false,
         "Error sending DATA, smtp server returned an error",
         "",
         ""},
        {"end of data 552",
         {{".", "552 too big\r\n"}},
         false,
         "Error sending DATA, smtp server returned an error",
         "",
         ""},
        {"QUIT 500",
         {{"QUIT", "500 what\r\n"}},
         false,
         "Error closing connection ... we will do a dirty close",
         "",
         ""},
        {"closed after greeting",
         {{"EHLO", ScriptedSmtpServer::kClose}},
         false,
         "SMTP read error (the server closed the connection)",
         "",
         ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Log::Capture log;
        ScriptedSmtpServer server(c.script);
        MailSettings settings = settingsFor(server.server());
        const std::string passwordFile = test::testFolder("mail") + "/password";
        if (c.withUser) {
            test::writeText(passwordFile, "secret\n");
            settings.user = "me";
            settings.passwordFile = passwordFile;
        }
        const std::string failure = MailNotifier::send(settings, {"Subject", "Body\r\n"});
        if (c.failure.empty())
            EXPECT_EQ(failure, "");
        else
            EXPECT_EQ(failure, "Error sending mail: " + c.failure);
        if (*c.absentLog) {
            EXPECT_FALSE(log.contains(c.absentLog));
        }
        if (*c.presentLog) {
            EXPECT_TRUE(log.contains(c.presentLog));
        }
        // The credentials never reach the log, even as base64.
        EXPECT_FALSE(log.contains("c2VjcmV0")) << "password in the log";
    }
}

TEST(SMTPTest, DialogueSendsItsCommandsInOrder) {
    struct Case {
        const char* name;
        ScriptedSmtpServer::Script script;
        bool withUser;
        std::vector<std::string>
            verbs;  // the first word of every line the server got, the message as "<message>"
    };
    const Case cases[] = {
        {"plain", {}, false, {"EHLO", "MAIL", "RCPT", "DATA", "<message>", ".", "QUIT"}},
        {"HELO after a refused EHLO",
         {{"EHLO", "502 no\r\n"}},
         false,
         {"EHLO", "HELO", "MAIL", "RCPT", "DATA", "<message>", ".", "QUIT"}},
        {"AUTH LOGIN",
         {},
         true,
         {"EHLO", "AUTH", "bWU=", "c2VjcmV0", "MAIL", "RCPT", "DATA", "<message>", ".", "QUIT"}},
        {"multi-line EHLO read whole before MAIL",
         {{"EHLO", "250-scripted\r\n250-PIPELINING\r\n250 HELP\r\n"}},
         false,
         {"EHLO", "MAIL", "RCPT", "DATA", "<message>", ".", "QUIT"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedSmtpServer server(c.script);
        MailSettings settings = settingsFor(server.server());
        if (c.withUser) {
            const std::string passwordFile = test::testFolder("mail") + "/password";
            test::writeText(passwordFile, "secret\nsecond line\n");
            settings.user = "me";
            settings.passwordFile = passwordFile;
        }
        ASSERT_EQ(MailNotifier::send(settings, {"Subject", "Body\r\n"}), "");
        std::vector<std::string> verbs;
        for (const std::string& line : server.received())
            verbs.push_back(line.find("\r\n") != std::string::npos ? "<message>"
                                                                   : line.substr(0, line.find(' ')));
        EXPECT_EQ(verbs, c.verbs);
    }
}

TEST(SMTPTest, RepliesFromTheNetworkAreBounded) {
    struct Case {
        const char* name;
        std::string greeting;
        std::string failure;
    };
    std::string manyLines;
    for (int i = 0; i < SMTP::kMaxReplyLines + 5; ++i) manyLines += "220-line\r\n";
    const Case cases[] = {
        {"over-long line", "220 " + std::string(SMTP::kMaxReplyLine + 100, 'x') + "\r\n", "TCP read limit"},
        {"endless continuation", manyLines + "220 done\r\n", "SMTP read limit"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedSmtpServer server({{"greeting", c.greeting}});
        const std::string failure = MailNotifier::send(settingsFor(server.server()), {"Subject", "Body"});
        EXPECT_EQ(failure.rfind("Error sending mail: " + c.failure, 0), 0u) << failure;
    }
}

TEST(SMTPTest, NoServerIsAFailureWithTheAddress) {
    const std::uint16_t port = test::unusedPort();
    const std::string failure =
        MailNotifier::send(settingsFor("127.0.0.1:" + std::to_string(port)), {"S", "B"});
    EXPECT_EQ(failure, "Error sending mail: 105 Cannot connect to 127.0.0.1:" + std::to_string(port));
}

}  // namespace
}  // namespace quillon
