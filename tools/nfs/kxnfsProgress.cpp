#include "kxnfsProgress.h"

#include <time.h>

#include "kxnfsFormat.h"

namespace kxnfs {

namespace {

constexpr double kQuietSeconds = 1.0;
constexpr double kRedrawSeconds = 0.25;

double MonotonicSeconds() {
    struct timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

}  // namespace

Progress::Progress(FILE* out, uint64_t total, Clock clock)
    : m_out(out), m_total(total), m_clock(clock != nullptr ? clock : MonotonicSeconds),
      m_start(m_clock()) {}

std::string Progress::Line(uint64_t done, uint64_t total, double seconds) {
    std::string line = HumanBytes(done);
    if (total != 0) line += " of " + HumanBytes(total);
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    line += "  " + HumanBytes(static_cast<uint64_t>(rate)) + "/s";
    if (total != 0) {
        const uint64_t percent = done >= total ? 100 : done * 100 / total;
        line += "  " + std::to_string(percent) + "%";
    }
    return line;
}

void Progress::Draw(uint64_t done, double now) {
    // Carriage return, the line, then erase what a longer earlier line left behind.
    fprintf(m_out, "\r%s\033[K", Line(done, m_total, now - m_start).c_str());
    fflush(m_out);
    m_lastDrawn = now;
    m_shown = true;
}

void Progress::Update(uint64_t done) {
    if (m_out == nullptr) return;
    const double now = m_clock();
    if (now - m_start < kQuietSeconds) return;
    if (m_shown && now - m_lastDrawn < kRedrawSeconds) return;
    Draw(done, now);
}

void Progress::Finish(uint64_t done) {
    if (m_out == nullptr || !m_shown) return;
    Draw(done, m_clock());
    fputc('\n', m_out);
    fflush(m_out);
    m_shown = false;
}

}  // namespace kxnfs
