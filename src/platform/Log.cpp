#include "platform/Log.h"

#include <syslog.h>

#include <algorithm>
#include <atomic>

#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>

namespace quillon {

namespace {
std::atomic<bool> verboseOn{false};
std::atomic<bool> syslogOn{true};
std::mutex capturesMutex;
std::vector<Log::Capture*> captures;

spdlog::logger makeLogger(spdlog::sink_ptr sink, const char* pattern) {
    spdlog::logger logger("quillon", std::move(sink));
    logger.set_pattern(pattern);
    return logger;
}

spdlog::logger& syslogLogger() {
    static spdlog::logger logger =
        makeLogger(std::make_shared<spdlog::sinks::syslog_sink_mt>("quillon", LOG_PID, LOG_USER, false), "%v");
    return logger;
}

spdlog::logger& stderrLogger() {
    static spdlog::logger logger = makeLogger(std::make_shared<spdlog::sinks::stderr_sink_mt>(), "%H:%M:%S %v");
    return logger;
}
}  // namespace

void Log::setVerbose(bool on) { verboseOn = on; }
bool Log::verbose() { return verboseOn; }
void Log::setSyslog(bool on) { syslogOn = on; }

void Log::line(std::string_view text) {
    if (syslogOn) syslogLogger().info(text);
    if (verboseOn) stderrLogger().info(text);
    std::lock_guard lock(capturesMutex);
    for (Capture* c : captures) c->add(text);
}

void Log::warning(std::string_view text) {
    line(text);
    if (!verboseOn) stderrLogger().info(text);
}

Log::Capture::Capture() {
    std::lock_guard lock(capturesMutex);
    captures.push_back(this);
}

Log::Capture::~Capture() {
    std::lock_guard lock(capturesMutex);
    captures.erase(std::remove(captures.begin(), captures.end(), this), captures.end());
}

void Log::Capture::add(std::string_view text) {
    std::lock_guard lock(mutex_);
    lines_.emplace_back(text);
}

std::vector<std::string> Log::Capture::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

bool Log::Capture::contains(std::string_view text) const {
    std::lock_guard lock(mutex_);
    return std::any_of(lines_.begin(), lines_.end(),
                       [&](const std::string& l) { return l.find(text) != std::string::npos; });
}

}  // namespace quillon
