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

#include <string>
#include <vector>

// Splits a command-line input: the words are separated by zero bytes, and an empty input is no
// words at all. False (and the input not worth running) when it holds more than maxWords words.
inline bool kxFuzzWords(const uint8_t* data, size_t size, size_t maxWords,
                        std::vector<std::string>& words) {
    words.assign(size == 0 ? 0 : 1, std::string());
    for (size_t i = 0; i < size; ++i) {
        if (data[i] != 0) {
            words.back() += static_cast<char>(data[i]);
        } else if (words.size() == maxWords) {
            return false;
        } else {
            words.emplace_back();
        }
    }
    return true;
}
