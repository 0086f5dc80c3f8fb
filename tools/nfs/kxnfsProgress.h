// The progress line of get and put: on a terminal, once a transfer has run for a second, one
// line rewritten in place with the bytes moved, the rate and the share done.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace kxnfs {

class Progress {
public:
    // Seconds on a monotonic clock; replaceable for tests.
    using Clock = double (*)();

    // out: where the line goes, or null for no line at all (kxnfs passes stderr only when it
    // is a terminal). total: the expected bytes, or 0 when unknown (no share shown).
    Progress(FILE* out, uint64_t total, Clock clock = nullptr);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // done bytes so far. Draws from one second after construction on, at most four times a
    // second.
    void Update(uint64_t done);
    // Ends the line: the final figures and a line end when a line was shown, else nothing.
    // Call before printing anything else to the same stream.
    void Finish(uint64_t done);

    // The text of the line: "12.0 MiB of 256.0 MiB  45.1 MiB/s  4%".
    static std::string Line(uint64_t done, uint64_t total, double seconds);

private:
    void Draw(uint64_t done, double now);

    FILE* m_out;
    uint64_t m_total;
    Clock m_clock;
    double m_start;
    double m_lastDrawn = -1;
    bool m_shown = false;
};

}  // namespace kxnfs
