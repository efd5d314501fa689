#pragma once
// The I/O failure type inside worker threads: a category name plus a reason text.
// Raised by socket, byte-buffer and stream code; caught at the top of the thread
// that does the I/O and never let across a module border.
#include <stdexcept>
#include <string>

namespace quillon {

class NamedException : public std::runtime_error {
public:
    NamedException(std::string name, std::string reason)
        : std::runtime_error(reason), name_(std::move(name)), reason_(std::move(reason)) {}

    const std::string& name() const { return name_; }
    const std::string& reason() const { return reason_; }

    // The system's text for the current errno, for "%s" placeholders of reasons.
    static std::string errnoText();

private:
    std::string name_;
    std::string reason_;
};

}  // namespace quillon
