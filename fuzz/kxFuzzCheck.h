// What every fuzz target shares: the entry point libFuzzer (or the replay driver) calls, and a
// check that stops the run with a message when a property of the code under test does not hold.
// A property that fails is a finding like a crash: the input is kept and reported.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

#define KX_FUZZ_CHECK(cond)                                                             \
    do {                                                                                \
        if (!(cond)) {                                                                  \
            fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #cond); \
            abort();                                                                    \
        }                                                                               \
    } while (0)
