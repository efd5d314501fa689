#pragma once
// What every subcommand file shares: each `add...Command` registers one CLI11
// subcommand and, when that subcommand is parsed, stores its work in `runner`,
// which runCommandLine then runs. Bad input is reported by throwing UsageError
// (exit status 2, its text as a one-line reason on stderr); failures at run time
// return 1 after printing their own message.
#include <functional>
#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

#include "app/BadInput.h"

namespace quillon {

using CommandRunner = std::function<int()>;

// Bad input, as the command line names it.
using UsageError = BadInput;

}  // namespace quillon
