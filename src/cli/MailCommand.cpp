#include "cli/MailCommand.h"

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "notify/MailNotifier.h"
#include "platform/TextUtil.h"
#include "store/Preferences.h"

namespace quillon {

namespace {

struct MailTestArgs {
    std::optional<std::string> server, from, to, user, passwordFile;
};

int runMailTest(const MailTestArgs& args) {
    MailSettings settings = MailSettings::fromPreferences(*Preferences::preferences());
    if (args.server) settings.server = *args.server;
    if (args.from) settings.from = *args.from;
    if (args.to) settings.to = *args.to;
    if (args.user) settings.user = *args.user;
    if (args.passwordFile) settings.passwordFile = *args.passwordFile;
    const MailNotifier::Notice notice{
        "Quillon test notice", MailNotifier::bodyLines({{"Notice", "this is a test of the mail settings"},
                                                        {"Sent to", settings.to}})};
    const std::string failure = MailNotifier::send(settings, notice);
    if (!failure.empty()) {
        std::fprintf(stderr, "quillon: mail not sent: %s\n", printable(failure).c_str());
        return 1;
    }
    std::printf("Sent a test notice to %s through %s.\n", printable(settings.to).c_str(),
                printable(settings.server).c_str());
    return 0;
}

}  // namespace

void addMailCommand(CLI::App& app, CommandRunner& runner) {
    CLI::App* cmd = app.add_subcommand("mail", "Mail notices: test the mail settings");
    cmd->require_subcommand(1);
    auto args = std::make_shared<MailTestArgs>();
    CLI::App* test =
        cmd->add_subcommand("test", "Send one test notice and report whether the server took it");
    test->add_option("--server", args->server, "The SMTP server, HOST or HOST:PORT (port 25 when left out)");
    test->add_option("--from", args->from, "The sender's address");
    test->add_option("--to", args->to, "The recipient's address");
    test->add_option("--user", args->user, "Log in with AUTH LOGIN as this user");
    test->add_option("--password-file", args->passwordFile,
                     "The file whose first line is the user's password");
    test->footer(
        "Options left out come from the settings mailServer, mailFrom, mailTo, mailUser and\n"
        "mailPasswordFile (quillon prefs). Exits 1, with the server's refusal, when the mail is not sent.");
    test->callback([args, &runner] { runner = [args] { return runMailTest(*args); }; });
}

}  // namespace quillon
