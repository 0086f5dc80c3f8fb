#include "kxnfsFormat.h"

#include <time.h>

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include "kxTextEscape.h"

using kxNFSUtils::DirEntry;

namespace kxnfs {

namespace {

constexpr uint64_t kUnixEpochTicks = 116444736000000000ull;
constexpr uint64_t kTicksPerSecond = 10000000ull;

// The _FILETIME value broken down in local time or UTC and formatted by `form` into text, and
// the 100-ns ticks within its second. False when the system cannot represent the instant.
bool BreakDown(uint64_t fileTime, bool utc, const char* form, char (&text)[64], uint32_t& ticks,
               struct tm& tm) {
    const int64_t rel = static_cast<int64_t>(fileTime - kUnixEpochTicks);
    int64_t seconds = rel / static_cast<int64_t>(kTicksPerSecond);
    int64_t rest = rel % static_cast<int64_t>(kTicksPerSecond);
    if (rest < 0) {  // before 1970: round the seconds down and keep the fraction positive
        rest += kTicksPerSecond;
        --seconds;
    }
    ticks = static_cast<uint32_t>(rest);
    const time_t t = static_cast<time_t>(seconds);
    if (static_cast<int64_t>(t) != seconds) return false;  // beyond a 32-bit time_t
    if ((utc ? gmtime_r(&t, &tm) : localtime_r(&t, &tm)) == nullptr) return false;
    return strftime(text, sizeof text, form, &tm) != 0;
}

std::string Format(const char* form, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* form, ...) {
    char buf[256];
    va_list ap;
    va_start(ap, form);
    vsnprintf(buf, sizeof buf, form, ap);
    va_end(ap);
    return buf;
}

}  // namespace

std::string HumanBytes(uint64_t bytes) {
    static const char* const kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    double v = static_cast<double>(bytes);
    int u = 0;
    while (v >= 1024 && u < 6) {
        v /= 1024;
        ++u;
    }
    return u == 0 ? Format("%.0f %s", v, kUnits[u]) : Format("%.1f %s", v, kUnits[u]);
}

const char* TypeName(uint32_t type) {
    switch (type) {
    case 1: return "regular file";
    case 2: return "directory";
    case 3: return "block device";
    case 4: return "character device";
    case 5: return "symbolic link";
    case 6: return "socket";
    case 7: return "fifo";
    default: return "unknown type";
    }
}

const char* TypeWord(uint32_t type) {
    static const char* const kWords[] = {"unknown", "file",   "directory", "block",
                                         "char",    "symlink", "socket",   "fifo"};
    return type < 8 ? kWords[type] : "unknown";
}

std::string ModeString(uint32_t type, uint32_t mode) {
    static const char kTypeChars[] = "?-dbclsp";
    std::string s(10, '-');
    s[0] = type < 8 ? kTypeChars[type] : '?';
    const char* const rwx = "rwxrwxrwx";
    for (int i = 0; i < 9; ++i)
        if (mode & (0400u >> i)) s[static_cast<size_t>(1 + i)] = rwx[i];
    if (mode & 04000) s[3] = (mode & 0100) ? 's' : 'S';
    if (mode & 02000) s[6] = (mode & 0010) ? 's' : 'S';
    if (mode & 01000) s[9] = (mode & 0001) ? 't' : 'T';
    return s;
}

std::string LocalTime(uint64_t fileTime, bool full) {
    if (fileTime == 0) return "-";
    uint32_t ticks;
    struct tm tm {};
    char text[64];
    if (!BreakDown(fileTime, false, full ? "%Y-%m-%d %H:%M:%S" : "%Y-%m-%d %H:%M", text, ticks,
                   tm))
        return "(time out of range)";
    if (!full) return text;
    char zone[16];
    if (strftime(zone, sizeof zone, "%z", &tm) == 0) zone[0] = '\0';
    return Format("%s.%07u %s", text, ticks, zone);
}

std::string UtcTime(uint64_t fileTime) {
    if (fileTime == 0) return "";
    uint32_t ticks;
    struct tm tm {};
    char text[64];
    if (!BreakDown(fileTime, true, "%Y-%m-%dT%H:%M:%S", text, ticks, tm)) return "";
    return Format("%s.%07uZ", text, ticks);
}

std::string LongLine(const DirEntry& e, const std::string& name, const std::string& target) {
    std::string line = Format("%s %3u %5u %5u %12" PRIu64 " %s ",
                              ModeString(e.type, e.mode).c_str(), e.nlink, e.uid, e.gid, e.size,
                              LocalTime(e.writeTime, false).c_str());
    line += kxtools::TerminalText(name, false);
    if (!target.empty()) line += " -> " + kxtools::TerminalText(target, false);
    return line;
}

std::string JsonString(const std::string& text) {
    return "\"" + kxtools::JsonEscape(text) + "\"";
}

std::string JsonEntry(const DirEntry& e, const std::string& name, const std::string& target) {
    std::string out = "{\"name\":" + JsonString(name) + ",\"type\":\"" + TypeWord(e.type) + "\"";
    out += Format(",\"mode\":\"%04o\",\"links\":%u,\"uid\":%u,\"gid\":%u,\"size\":%" PRIu64
                  ",\"used\":%" PRIu64 ",\"fileId\":%" PRIu64,
                  e.mode & 07777u, e.nlink, e.uid, e.gid, e.size, e.used, e.fileId);
    const struct {
        const char* key;
        uint64_t value;
    } times[] = {{"atime", e.accessTime}, {"mtime", e.writeTime}, {"ctime", e.changeTime}};
    for (const auto& t : times) {
        const std::string utc = UtcTime(t.value);
        out += Format(",\"%s\":", t.key) + (utc.empty() ? "null" : "\"" + utc + "\"");
    }
    if (!target.empty()) out += ",\"target\":" + JsonString(target);
    return out + "}";
}

std::string StatText(const DirEntry& e, const std::string& where, const std::string& target) {
    std::string out = "  File: " + where;
    if (!target.empty()) out += " -> " + kxtools::TerminalText(target, false);
    out += "\n";
    out += Format("  Type: %s\n", TypeName(e.type));
    out += Format("  Size: %-14" PRIu64 " Used: %" PRIu64 "\n", e.size, e.used);
    out += Format("  Mode: %04o (%s)  Links: %u\n", e.mode & 07777u,
                  ModeString(e.type, e.mode).c_str(), e.nlink);
    out += Format("   Uid: %-14u  Gid: %u\n", e.uid, e.gid);
    out += Format("FileId: %-14" PRIu64 " FsId: %" PRIu64 "\n", e.fileId, e.fsId);
    out += "Access: " + LocalTime(e.accessTime, true) + "\n";
    out += "Modify: " + LocalTime(e.writeTime, true) + "\n";
    out += "Change: " + LocalTime(e.changeTime, true) + "\n";
    return out;
}

}  // namespace kxnfs
