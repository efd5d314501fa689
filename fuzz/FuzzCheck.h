#pragma once
// The invariant check of the fuzz targets: a broken invariant aborts, which
// libFuzzer reports as a crash and saves the input for.
#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                                      \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "%s:%d: invariant broken: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)
