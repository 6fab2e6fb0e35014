#pragma once

#include <cstdio>
#include <cstdlib>

// Stops the run when the code under test breaks one of its promises; libFuzzer keeps the
// input that did it.
inline void require(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "invariant broken: %s\n", what);
    std::abort();
}
