#pragma once
// What a recording connection asks of the object that owns it (the activity
// list in the application, a single-connection session on the command line).
// Called on the main thread only.
#include <cstdint>
#include <string>

namespace quillon {

class Ripper;

class RipperOwner {
public:
    virtual ~RipperOwner() = default;
    // A free local port for the connection's relay.
    virtual std::uint16_t firstFreeRelay() = 0;
    // The root folder of recordings.
    virtual std::string downloadPath() = 0;
    // A connection's state or status changed.
    virtual void refreshDetails(Ripper& changed) = 0;
};

}  // namespace quillon
