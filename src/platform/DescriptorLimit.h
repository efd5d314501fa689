#pragma once
// The process's limit on open descriptors.
//
// Thread contract: call once at start-up, before other threads open files.
namespace quillon {

// Raises the soft limit to the hard one: each connection, relay player and
// track file holds descriptors, and the usual soft limit of 1024 is reached
// long before the hard one. False when the limit could not be read or raised.
bool raiseDescriptorLimit();

}  // namespace quillon
