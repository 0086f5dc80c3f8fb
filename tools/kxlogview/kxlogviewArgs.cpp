#include "kxlogviewArgs.h"

#include <time.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/kxWin32Types.h"

namespace kxlogview {

namespace {

bool ParseNumber(const char* s, long& out) {
    char* end = nullptr;
    errno = 0;
    long v = strtol(s, &end, 10);
    if (errno != 0 || end == s || *end != '\0') return false;
    out = v;
    return true;
}

bool ParseSeverity(const char* s, long& out) {
    static const char* const kNames[] = {"info",  "progress",  "warning",
                                         "error", "startfail", "daemonfail"};
    for (long i = 0; i < 6; ++i)
        if (strcmp(s, kNames[i]) == 0) return out = i, true;
    return ParseNumber(s, out) && out >= 0;
}

bool ParseTime(const char* s, uint64_t& ticks) {
    time_t seconds;
    if (s[0] == '@') {
        long v;
        if (!ParseNumber(s + 1, v)) return false;
        seconds = static_cast<time_t>(v);
    } else {
        static const char* const kForms[] = {"%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S",
                                             "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M", "%Y-%m-%d"};
        bool ok = false;
        struct tm tm;
        for (const char* form : kForms) {
            memset(&tm, 0, sizeof tm);
            const char* end = strptime(s, form, &tm);
            if (end != nullptr && *end == '\0') {
                ok = true;
                break;
            }
        }
        if (!ok) return false;
        tm.tm_isdst = -1;
        seconds = mktime(&tm);
        if (seconds == static_cast<time_t>(-1)) return false;
    }
    ticks = (static_cast<uint64_t>(seconds) + kxFileTimeEpochSeconds) * kxFileTimeTicksPerSecond;
    return true;
}

ParseResult Bad(std::string& error, const char* what, const std::string& value) {
    error = std::string("bad ") + what + ": " + value;
    return ParseResult::Usage;
}

}  // namespace

Options::~Options() {
    if (hasPattern) regfree(&pattern);
}

ParseResult ParseArguments(int argc, const char* const* argv, Options& o, std::string& error) {
    error.clear();
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i] != nullptr ? argv[i] : "";
        const char* v = nullptr;
        // Options that take a value take the next argument, whatever it looks like.
        if (a == "-n" || a == "-p" || a == "--since" || a == "--until" || a == "-g" ||
            a == "--pid" || a == "-o") {
            if (i + 1 >= argc) {
                error = a + " needs a value";
                return ParseResult::Usage;
            }
            v = argv[++i] != nullptr ? argv[i] : "";
        }
        if (a == "-h" || a == "--help") {
            return ParseResult::Help;
        } else if (a == "-n") {
            if (!ParseNumber(v, o.last) || o.last < 0) return Bad(error, "count", v);
        } else if (a == "-f") {
            o.follow = true;
        } else if (a == "-r") {
            o.reverse = true;
        } else if (a == "-p") {
            if (!ParseSeverity(v, o.minSev)) return Bad(error, "severity", v);
        } else if (a == "--since") {
            if (!ParseTime(v, o.since)) return Bad(error, "time", v);
            o.hasSince = true;
        } else if (a == "--until") {
            if (!ParseTime(v, o.until)) return Bad(error, "time", v);
            o.hasUntil = true;
        } else if (a == "-g") {
            // The last pattern given is the one used.
            if (o.hasPattern) regfree(&o.pattern);
            o.hasPattern = false;
            if (regcomp(&o.pattern, v, REG_EXTENDED | REG_NOSUB) != 0)
                return Bad(error, "pattern", v);
            o.hasPattern = true;
        } else if (a == "--pid") {
            long pid;
            if (!ParseNumber(v, pid) || pid < 0) return Bad(error, "pid", v);
            o.pid = static_cast<uint32_t>(pid);
            o.hasPid = true;
        } else if (a == "-o") {
            const std::string f = v;
            if (f == "short")
                o.format = Format::Short;
            else if (f == "json")
                o.format = Format::Json;
            else if (f == "cat")
                o.format = Format::Cat;
            else
                return Bad(error, "output format", f);
        } else if (a == "--header") {
            o.header = true;
        } else if (a.size() > 1 && a[0] == '-') {
            return Bad(error, "option", a);
        } else if (o.path == nullptr) {
            o.path = argv[i] != nullptr ? argv[i] : "";
        } else {
            return Bad(error, "extra argument", a);
        }
    }
    if (o.path == nullptr) {
        error = "no file given";
        return ParseResult::Usage;
    }
    if (o.follow && o.reverse) {
        error = "-f and -r cannot be combined";
        return ParseResult::Usage;
    }
    return ParseResult::Run;
}

}  // namespace kxlogview
