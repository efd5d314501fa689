#pragma once
// Input that cannot be used as given (a malformed URL, a bookmark that does
// not exist, a value out of range): the command line exits 2 with its text,
// the daemon's API answers 400 with it.
#include <stdexcept>

namespace quillon {

class BadInput : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace quillon
