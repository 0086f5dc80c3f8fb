// The command line of kxlogview, parsed without side effects: no output, no exit, no global
// state, so a test or a fuzzer can drive it in-process with any argument vector.
#pragma once

#include <regex.h>

#include <cstdint>
#include <string>

namespace kxlogview {

enum class Format { Short, Json, Cat };

struct Options {
    Options() = default;
    // Releases the compiled pattern.
    ~Options();
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;

    const char* path = nullptr;  // points into the argument vector
    long last = -1;              // -n; -1: every record
    bool follow = false;
    bool reverse = false;
    long minSev = -1;  // -p; -1: every severity
    bool hasSince = false, hasUntil = false;
    uint64_t since = 0, until = 0;  // FILETIME ticks
    bool hasPattern = false;
    regex_t pattern;  // compiled only while hasPattern
    bool hasPid = false;
    uint32_t pid = 0;
    Format format = Format::Short;
    bool header = false;
};

enum class ParseResult {
    Run,    // o is complete
    Help,   // -h or --help before any error: print the usage to standard output, exit 0
    Usage,  // error holds one line saying what is wrong
};

// Parses argv[1..argc-1] into o, which must be freshly constructed. argv[0] is ignored. The
// arguments are checked in order and the first error ends the scan, so "-h" after a bad
// argument is a usage error, as the program has always reported it.
ParseResult ParseArguments(int argc, const char* const* argv, Options& o, std::string& error);

}  // namespace kxlogview
