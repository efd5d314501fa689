#pragma once

namespace quillon {

// Runs the quillon command; returns the process exit status (0 success,
// 2 bad input with a one-line reason on stderr, 1 a failure at run time).
int runCommandLine(int argc, char** argv);

}  // namespace quillon
