// kxlogview: prints the records of a binary log file, oldest first, optionally following it as
// writers append. Reads through a read-only stream: the file is never changed, and each step
// takes the file's lock, so files in use can be read. See usage() for the options and the exit
// codes.
#include <regex.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "kxTextEscape.h"
#include "kxlogviewArgs.h"
#include "log/KLogStream.h"
#include "log/kxLogRead.h"
#include "log/kxLogging.h"

namespace {

using kxlogview::Format;
using kxlogview::Options;
using kxtools::JsonEscape;

constexpr int kExitOk = 0;
constexpr int kExitDamaged = 1;
constexpr int kExitUnreadable = 2;
constexpr int kExitUsage = 100;

void usage(FILE* out) {
    fputs(
        "usage: kxlogview [options] FILE\n"
        "Prints the records of a binary log file, oldest first.\n"
        "  -n N            only the last N records (after filtering)\n"
        "  -f              follow: print new records as they are written, until interrupted\n"
        "  -r              newest first\n"
        "  -p SEV          only text records of severity SEV or higher (0-5, or info, progress,\n"
        "                  warning, error, startfail, daemonfail)\n"
        "  --since TIME    only records written at or after TIME\n"
        "  --until TIME    only records written at or before TIME\n"
        "                  TIME: 'YYYY-MM-DD[ HH:MM[:SS]]' or 'YYYY-MM-DDTHH:MM[:SS]' local time,\n"
        "                  or @SECONDS since the Unix epoch\n"
        "  -g PATTERN      only text records whose text matches PATTERN (extended regex)\n"
        "  --pid PID       only records written by process PID\n"
        "  -o FORMAT       short (default), json (one object per line) or cat (text only)\n"
        "  --header        print the file header (size, count, wraps, byte order, validity)\n"
        "  -h, --help      this text\n"
        "Exit status: 0 success; 1 the file is damaged (what could be read was printed, and\n"
        "where the walk stopped is on standard error); 2 the file cannot be read as a log file;\n"
        "100 usage error.\n",
        out);
}

volatile sig_atomic_t g_stop = 0;
void OnSignal(int) { g_stop = 1; }

std::string LocalTime(const _FILETIME& ft) {
    const uint64_t ticks = kxFileTimeToTicks(ft);
    if (ticks < kxFileTimeUnixEpoch) return "(before 1970)";
    const uint64_t us = (ticks - kxFileTimeUnixEpoch) / 10;
    const time_t seconds = static_cast<time_t>(us / 1000000);
    struct tm tm;
    char text[64];
    if (localtime_r(&seconds, &tm) == nullptr || strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &tm) == 0)
        return "(bad time)";
    char out[80];
    snprintf(out, sizeof out, "%s.%03u", text, static_cast<unsigned>((us / 1000) % 1000));
    return out;
}

const char* SeverityName(uint32_t sev) {
    static const char* const kNames[] = {"INFO", "PROG", "WARN", "ERROR", "START", "DAEMON"};
    return sev < 6 ? kNames[sev] : "SEV?";
}

// What a system record says, in words.
std::string SystemText(const KLogEntry& e) {
    switch (e.info.GetType()) {
    case kxLogRecTypeStart: return "-- log started --";
    case kxLogRecTypeClear: return "-- log cleared --";
    case kxLogRecTypeResize:
        return "-- log resized from " + std::to_string(e.oldKB) + " KB to " +
               std::to_string(e.newKB) + " KB --";
    default: return "-- record of type " + kxLogRecTypeName(e.info.GetType()) + " --";
    }
}

bool Matches(const Options& o, const KLogEntry& e) {
    if (o.hasPid && e.info.GetProcessId() != o.pid) return false;
    const uint64_t t = kxFileTimeToTicks(e.info.GetTimeStamp());
    if (o.hasSince && t < o.since) return false;
    if (o.hasUntil && t > o.until) return false;
    if (o.minSev >= 0) {
        const uint32_t sev = e.isText ? e.severity : 1;
        if (sev < static_cast<uint32_t>(o.minSev)) return false;
    }
    if (o.hasPattern && (!e.isText || regexec(&o.pattern, e.text.c_str(), 0, nullptr, 0) != 0))
        return false;
    return true;
}

// A text as one terminal line: the trailing line ends that many messages carry are dropped, and
// other control characters are shown escaped, so a record never spans lines nor drives the
// terminal. The JSON output keeps the exact text.
std::string DisplayText(const std::string& text) {
    size_t end = text.size();
    while (end > 0 && (text[end - 1] == '\n' || text[end - 1] == '\r')) --end;
    return kxtools::TerminalText(text.substr(0, end), true);
}

void Print(const Options& o, const KLogEntry& e) {
    const KLogRecInfo& i = e.info;
    if (o.format == Format::Cat) {
        printf("%s\n", e.isText ? DisplayText(e.text).c_str() : SystemText(e).c_str());
    } else if (o.format == Format::Json) {
        printf("{\"time\":\"%s\",\"filetime\":%llu,\"pid\":%u,\"tid\":%u,\"num\":%u,"
               "\"type\":\"%s\",\"flags\":%u",
               LocalTime(i.GetTimeStamp()).c_str(),
               static_cast<unsigned long long>(kxFileTimeToTicks(i.GetTimeStamp())),
               i.GetProcessId(), i.GetThreadId(), i.GetRecNum(),
               JsonEscape(kxLogRecTypeName(i.GetType())).c_str(), i.GetFlags());
        if (e.isText)
            printf(",\"sev\":%u,\"status\":\"0x%08X\",\"text\":\"%s\"", e.severity,
                   kxStatusBits(e.status), JsonEscape(e.text).c_str());
        else if (i.GetType() == kxLogRecTypeResize)
            printf(",\"old_kb\":%u,\"new_kb\":%u", e.oldKB, e.newKB);
        printf("}\n");
    } else if (e.isText) {
        printf("%s %6u %10u #%-6u %-6s 0x%08X %s\n", LocalTime(i.GetTimeStamp()).c_str(),
               i.GetProcessId(), i.GetThreadId(), i.GetRecNum(), SeverityName(e.severity),
               kxStatusBits(e.status), DisplayText(e.text).c_str());
    } else {
        printf("%s %6u %10u #%-6u %s\n", LocalTime(i.GetTimeStamp()).c_str(), i.GetProcessId(),
               i.GetThreadId(), i.GetRecNum(), SystemText(e).c_str());
    }
}


const char* StatusText(long status) {
    switch (kxStatusBits(status)) {
    case 0xE0FF0108: return "no such file";
    case 0xE0020101: return "cannot open the file";
    case 0xE0010101: return "not a log file, or its header does not match its size";
    case 0xE0020104: return "file too short for a log header";
    case 0xA0FFFF02: return "the file stayed locked by a writer";
    default: return "cannot read the file";
    }
}

int PrintHeader(const KLogStream& s) {
    KLogFile h(0);
    if (s.ReadHeader(&h) != KX_OK) return kExitUnreadable;
    const uint32_t size = h.SizeInBytes();
    const bool valid = h.IsValid(size / 1024) && size % 1024 == 0;
    printf("file:        %s\n", s.GetLogFileName());
    printf("size:        %u bytes (%u KB)\n", size, size / 1024);
    printf("version:     0x%08X\n", h.Version());
    printf("records:     %u\n", h.RecordCount());
    printf("wraps:       %u\n", h.WrapCount());
    printf("last record: %u\n", h.LastRecOffset());
    printf("next record: %u\n", h.NextRecOffset());
    printf("byte order:  %s\n", h.IsOppositeEndian() ? "opposite (foreign)" : "native");
    printf("valid:       %s\n", valid ? "yes" : "no");
    return valid ? kExitOk : kExitDamaged;
}

// Prints what the options select from a stream. Returns the exit status; *newestSeen gets the
// newest record number read and *pos the position to follow from.
int PrintAll(const Options& o, const KLogStream& s, uint32_t* newestSeen,
             KLogStream::iterator* pos) {
    std::vector<uint8_t> buf(4096);
    KLogFile before(0);
    s.ReadHeader(&before);
    const uint32_t newest = before.RecordCount();
    std::deque<KLogEntry> kept;
    long shown = 0;
    KLogStream::iterator it = o.reverse ? s.begin() : s.rbegin();
    KLogStream::iterator lastGood;
    uint32_t lastNum = 0;
    bool any = false;
    for (; !it.IsEnd(); o.reverse ? it.PrevRec() : it.NextRec()) {
        KLogEntry e;
        if (!kxLogReadEntry(s, it, buf, e)) break;
        lastGood = it;
        lastNum = e.info.GetRecNum();
        any = true;
        if (!Matches(o, e)) continue;
        if (o.reverse) {
            if (o.last >= 0 && shown >= o.last) break;
            Print(o, e);
            ++shown;
        } else if (o.last >= 0) {
            kept.push_back(std::move(e));
            if (static_cast<long>(kept.size()) > o.last) kept.pop_front();
        } else {
            Print(o, e);
        }
    }
    for (const KLogEntry& e : kept) Print(o, e);
    fflush(stdout);

    if (!o.reverse) {
        *newestSeen = lastNum;
        *pos = lastGood;
    }
    // Judge damage: the walk must have reached the newest (with -r, the oldest) record, unless
    // writers moved the file on while it was read.
    KLogFile after(0);
    if (s.ReadHeader(&after) != KX_OK || after.RecordCount() != newest || newest == 0 ||
        (o.reverse && o.last >= 0 && shown >= o.last))
        return kExitOk;
    if (!any) {
        fprintf(stderr, "kxlogview: no readable record: the %s record is damaged\n",
                o.reverse ? "newest" : "oldest");
        return kExitDamaged;
    }
    if (!o.reverse && lastNum != newest) {
        fprintf(stderr,
                "kxlogview: walk stopped after record %u at offset %u: the next record is "
                "damaged (the newest is %u)\n",
                lastNum, lastGood.RecOffset(), newest);
        return kExitDamaged;
    }
    if (o.reverse) {
        const KLogStream::iterator oldest = s.rbegin();
        if (oldest.IsEnd() || oldest.RecNum() != lastNum) {
            fprintf(stderr,
                    "kxlogview: walk stopped before record %u at offset %u: the previous record "
                    "is damaged\n",
                    lastNum, lastGood.RecOffset());
            return kExitDamaged;
        }
    }
    return kExitOk;
}

int Follow(const Options& o, std::unique_ptr<KLogStream>& s, uint32_t newestSeen,
           KLogStream::iterator pos) {
    std::vector<uint8_t> buf(4096);
    while (!g_stop) {
        struct timespec pause{0, 100 * 1000 * 1000};
        nanosleep(&pause, nullptr);
        KLogFile h(0);
        const long read = s->ReadHeader(&h);
        if (read == KX_S_WAIT_TIMEOUT) continue;
        if (read != KX_OK) {
            // The file was re-created or resized: open it again.
            std::unique_ptr<KLogStream> again(new KLogStream(o.path));
            if (!again->IsLive()) continue;
            s = std::move(again);
            pos = KLogStream::iterator();
            newestSeen = 0;
            continue;
        }
        const uint32_t count = h.RecordCount();
        if (count == newestSeen) continue;
        KLogStream::iterator it = pos;
        if (count < newestSeen || pos.IsEnd()) {
            // Cleared (or nothing seen yet): start again from the oldest record.
            it = s->rbegin();
            newestSeen = 0;
        } else {
            it.NextRec();
            if (it.IsEnd()) {
                // Our place was overwritten: pick up the oldest record not yet shown.
                it = s->rbegin();
                while (!it.IsEnd() && it.RecNum() <= newestSeen) it.NextRec();
                if (!it.IsEnd() && it.RecNum() > newestSeen + 1)
                    fprintf(stderr, "kxlogview: %u records were overwritten before they could be shown\n",
                            it.RecNum() - newestSeen - 1);
            }
        }
        for (; !it.IsEnd() && !g_stop; it.NextRec()) {
            KLogEntry e;
            if (!kxLogReadEntry(*s, it, buf, e)) break;
            pos = it;
            newestSeen = e.info.GetRecNum();
            if (Matches(o, e)) Print(o, e);
        }
        fflush(stdout);
    }
    return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    std::string error;
    switch (kxlogview::ParseArguments(argc, argv, o, error)) {
    case kxlogview::ParseResult::Help:
        usage(stdout);
        return kExitOk;
    case kxlogview::ParseResult::Usage:
        fprintf(stderr, "kxlogview: %s\n", error.c_str());
        usage(stderr);
        return kExitUsage;
    case kxlogview::ParseResult::Run:
        break;
    }

    std::unique_ptr<KLogStream> s(new KLogStream(o.path));
    if (!s->IsLive()) {
        fprintf(stderr, "kxlogview: %s: %s (status 0x%08X)\n", o.path, StatusText(s->GetOpenStatus()),
                kxStatusBits(s->GetOpenStatus()));
        return kExitUnreadable;
    }
    if (o.header) return PrintHeader(*s);

    struct sigaction sa;
    memset(&sa, 0, sizeof sa);
    sa.sa_handler = OnSignal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    signal(SIGPIPE, SIG_DFL);

    uint32_t newestSeen = 0;
    KLogStream::iterator pos;
    const int status = PrintAll(o, *s, &newestSeen, &pos);
    if (!o.follow) return status;
    return Follow(o, s, newestSeen, pos);
}
