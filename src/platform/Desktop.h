#pragma once
// Hands files to desktop programs: opening a file with a configured command
// (the player for the relay playlist) and showing a file or folder in the file
// browser. Both start the program in the background and do not wait for it.
//
// Thread contract: stateless; any thread.
#include <string>

namespace quillon {

class Desktop {
public:
    static constexpr const char* kOpenCommand = "xdg-open";

    // Runs `command` (a shell command line; empty: xdg-open) with the path as
    // its last argument. False, with a log line, when the command's program
    // cannot be found or started; what the program does later is not examined.
    static bool openWith(const std::string& command, const std::string& path);
    // Opens the folder holding a file, or the folder itself, with xdg-open.
    static bool reveal(const std::string& path);

    // Whether the first word of a command line names a program that can be run
    // (an executable path, or a name found on $PATH).
    static bool commandExists(const std::string& command);
};

}  // namespace quillon
