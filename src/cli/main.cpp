// The quillon command: parses the command line and runs one subcommand.
#include <csignal>

#include "cli/CommandLine.h"

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    return quillon::runCommandLine(argc, argv);
}
