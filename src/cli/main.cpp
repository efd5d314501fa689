// The quillon command: parses the command line and runs one subcommand.
#include <csignal>
#include <cstdio>

#include "cli/CommandLine.h"
#include "platform/DescriptorLimit.h"

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    // A file-size limit then fails the write (EFBIG), which the recorder
    // reports, instead of killing the process with every recording in it.
    std::signal(SIGXFSZ, SIG_IGN);
    // Before any thread or file: a long session with many connections and
    // players needs more descriptors than the usual soft limit allows.
    if (!quillon::raiseDescriptorLimit()) std::perror("quillon: cannot raise the open-file limit");
    // Results go to stdout and progress to stderr: line by line, so that a log
    // of both shows them in the order they happened.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    return quillon::runCommandLine(argc, argv);
}
