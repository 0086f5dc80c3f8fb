// kxlogview's command line from arbitrary argument vectors: the parser must end with a file to
// read and options that can be combined, or explain the refusal; a pattern it accepts must be
// usable. Times go through the C library's parsing and the local time zone.
//
// Patterns are compiled by the C library, whose compiler takes memory exponential in the number
// of stacked repetitions ("a++++..."): forty of them take gigabytes. A pattern is the user's own
// argument, not outside bytes, so the harness keeps patterns short enough (at most 16
// characters) for that never to matter and the parser's own code to be what is fuzzed.
//
// Input: the arguments after the program's name, separated by zero bytes (at most 64).
#include <string>
#include <vector>

#include "kxFuzzCheck.h"
#include "kxlogviewArgs.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<std::string> words;
    if (!kxFuzzWords(data, size, 64, words)) return 0;
    for (size_t i = 0; i + 1 < words.size(); ++i)
        if (words[i] == "-g" && words[i + 1].size() > 16) return 0;
    std::vector<const char*> argv{"kxlogview"};
    for (const std::string& w : words) argv.push_back(w.c_str());

    kxlogview::Options o;
    std::string error;
    const kxlogview::ParseResult result =
        kxlogview::ParseArguments(static_cast<int>(argv.size()), argv.data(), o, error);
    if (result == kxlogview::ParseResult::Usage) KX_FUZZ_CHECK(!error.empty());
    if (result != kxlogview::ParseResult::Run) return 0;
    KX_FUZZ_CHECK(error.empty());
    KX_FUZZ_CHECK(o.path != nullptr);
    KX_FUZZ_CHECK(!(o.follow && o.reverse));
    KX_FUZZ_CHECK(o.last >= -1 && o.minSev >= -1);
    if (o.hasPattern) regexec(&o.pattern, "a log message 0x0001", 0, nullptr, 0);
    return 0;
}
