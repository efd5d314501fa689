#pragma once
// The system log: free text, one line per event, to syslog and (with --verbose)
// to stderr. Warnings, which the user must not miss, go to stderr in any case.
// Any thread may log. Tests capture lines with Log::Capture.
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

namespace quillon {

class Log {
public:
    static void line(std::string_view text);

    template <typename... Args>
    static void info(fmt::format_string<Args...> format, Args&&... args) {
        line(fmt::format(format, std::forward<Args>(args)...));
    }

    // A line that is also written on stderr when the log is not echoed there.
    static void warning(std::string_view text);

    template <typename... Args>
    static void warn(fmt::format_string<Args...> format, Args&&... args) {
        warning(fmt::format(format, std::forward<Args>(args)...));
    }

    // Echo log lines on stderr (the command line's --verbose).
    static void setVerbose(bool on);
    static bool verbose();
    // Whether lines go to syslog (on by default; tests keep it off).
    static void setSyslog(bool on);

    // Collects every line logged while it lives (tests).
    class Capture {
    public:
        Capture();
        ~Capture();
        Capture(const Capture&) = delete;
        Capture& operator=(const Capture&) = delete;
        std::vector<std::string> lines() const;
        bool contains(std::string_view text) const;

    private:
        friend class Log;
        void add(std::string_view text);
        mutable std::mutex mutex_;
        std::vector<std::string> lines_;
    };
};

}  // namespace quillon
