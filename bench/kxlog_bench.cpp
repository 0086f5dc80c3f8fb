// Append throughput of the log stream against peer loggers writing the same 60-byte formatted
// message, in one process and in four processes that open the file independently; and what the
// locks of an append cost.
//
//   KxLog/procs:N/flush:F/filelock:L
//                      kxLogPrintfA into a shared 64 MB ring file, new at the start of each
//                      run, the mapping flushed every F appends (16384 as the standard streams
//                      do; 0 never, to show what the periodic synchronous flush costs).
//                      L 0: the lock file's mutex, as normally; L 1: the file-lock fallback
//                      (the lock file is made by a process playing the other target, so every
//                      writer takes the file lock)
//   Spdlog/procs:N     spdlog's synchronous basic file sink, the same message (default pattern)
//   Syslog/procs:N     syslog(3) to a datagram listener on /dev/log (private mount namespace;
//                      skipped when that cannot be set up)
//   Lock...            lock + unlock pairs: the named mutex, the file lock (fcntl), and the
//                      stream's lock as appends take it (the lock file's robust mutex)
//
// Throughput is items_per_second (records per second over all processes, wall time of the whole
// run) and appends_per_second (the same records over the span of the append loops alone).
#include <benchmark/benchmark.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "log/KLogLock.h"
#include "log/KLogStream.h"
#include "base/kxLog.h"
#include "platform/KFileUnix.h"
#include "platform/KMutex.h"

#if KX_HAVE_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

constexpr long kPerProcess = 100000;
// 60 characters once formatted.
constexpr const char* kFormat = "request %06ld from host-%02ld completed in %4ld us status ok!!";

const std::string& BenchDir() {
    static const std::string dir = [] {
        static char tmpl[] = "/tmp/kxlog_bench.XXXXXX";
        const char* made = mkdtemp(tmpl);
        // The rings are large: gone when the benchmark ends (children leave with _exit).
        if (made != nullptr) atexit([] {
            std::error_code ec;
            std::filesystem::remove_all(tmpl, ec);
        });
        return std::string(made != nullptr ? made : "/tmp");
    }();
    return dir;
}

// When each process's append loop began and ended (CLOCK_MONOTONIC ns), in memory shared with
// the parent, which times the appends alone from them: from the first loop's start to the last
// one's end, without process start-up, opening the log or closing it (closing a mapped log
// writes its pages to disk, and spdlog's shutdown flushes its buffer).
struct LoopTimes {
    uint64_t start[16];
    uint64_t end[16];
};
LoopTimes* g_pLoopTimes = [] {
    void* p = mmap(nullptr, sizeof(LoopTimes), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                   -1, 0);
    return static_cast<LoopTimes*>(p == MAP_FAILED ? nullptr : p);
}();
int g_nChild = 0;

uint64_t MonotonicNs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}
void LoopStart() { g_pLoopTimes->start[g_nChild] = MonotonicNs(); }
void LoopEnd() { g_pLoopTimes->end[g_nChild] = MonotonicNs(); }

// Runs body(count) in n fresh processes at once and waits for all of them. Returns the span of
// their append loops in ns (bodies mark theirs with LoopStart and LoopEnd).
uint64_t RunProcesses(int n, const std::function<void(long)>& body) {
    pid_t pids[16];
    for (int i = 0; i < n; ++i) {
        g_pLoopTimes->start[i] = g_pLoopTimes->end[i] = 0;
        pids[i] = fork();
        if (pids[i] == 0) {
            g_nChild = i;
            body(kPerProcess);
            _exit(0);
        }
    }
    for (int i = 0; i < n; ++i) waitpid(pids[i], nullptr, 0);
    uint64_t first = UINT64_MAX, last = 0;
    for (int i = 0; i < n; ++i) {
        first = std::min(first, g_pLoopTimes->start[i]);
        last = std::max(last, g_pLoopTimes->end[i]);
    }
    return last > first ? last - first : 0;
}

// items_per_second: records over the whole run, processes started and ended included;
// appends_per_second: records over the append loops alone.
void Report(benchmark::State& state, int procs, uint64_t loopNs) {
    const double records = static_cast<double>(state.iterations()) * procs * kPerProcess;
    state.SetItemsProcessed(static_cast<int64_t>(records));
    if (loopNs != 0) state.counters["appends_per_second"] = records / (loopNs / 1e9);
}

void KxLog(benchmark::State& state) {
    const int procs = static_cast<int>(state.range(0));
    const unsigned long flush = static_cast<unsigned long>(state.range(1));
    const bool fileLock = state.range(2) != 0;
    const std::string dir = BenchDir();
    unlink((dir + "/kx.log").c_str());
    unlink((dir + "/kx.log.lock").c_str());
    if (fileLock) {
        // A lock file in the other target's layout: nobody here can take its mutex.
        RunProcesses(1, [&](long) {
            kxLogLockSetAbiForTest(kxLogLockAbi() ^ 0x00FF0000u);
            KLogStream stream(dir.c_str(), "kx.log", 65536, flush, true);
            _exit(stream.IsLive() ? 0 : 2);
        });
    }
    uint64_t loopNs = 0;
    for (auto _ : state) {
        loopNs += RunProcesses(procs, [&](long count) {
            // Opened after the fork: the processes share nothing but the file.
            KLogStream stream(dir.c_str(), "kx.log", 65536, flush, true);
            if (!stream.IsLive() ||
                (stream.GetLockMode() == KLogLock::Mode::kFileLock) != fileLock)
                _exit(2);
            g_pKLogSinkDefault = &stream;
            LoopStart();
            for (long i = 0; i < count; ++i)
                kxLogPrintfA(0, kxLogSevProgress, kFormat, i, i % 100, i % 10000);
            LoopEnd();
            g_pKLogSinkDefault = nullptr;
        });
    }
    Report(state, procs, loopNs);
}

#if KX_HAVE_SPDLOG
void Spdlog(benchmark::State& state) {
    const int procs = static_cast<int>(state.range(0));
    const std::string path = BenchDir() + "/spd.log";
    unlink(path.c_str());
    uint64_t loopNs = 0;
    for (auto _ : state) {
        loopNs += RunProcesses(procs, [&](long count) {
            auto logger = spdlog::basic_logger_mt("bench", path);
            LoopStart();
            for (long i = 0; i < count; ++i)
                logger->info("request {:06d} from host-{:02d} completed in {:4d} us status ok!!", i,
                             i % 100, i % 10000);
            LoopEnd();
            logger->flush();
            spdlog::shutdown();
        });
    }
    Report(state, procs, loopNs);
}
#endif

// A datagram listener on /dev/log inside a private mount namespace, so that syslog(3) has a
// local reader without touching the machine's own logging.
class SyslogListener {
public:
    static SyslogListener* Get() {
        static SyslogListener* listener = Start();
        return listener;
    }
    ~SyslogListener() = delete;

private:
    static SyslogListener* Start() {
        if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", "/dev", "tmpfs", 0, "size=1m") != 0)
            return nullptr;
        int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        strcpy(addr.sun_path, "/dev/log");
        if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) return nullptr;
        int big = 4 << 20;
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &big, sizeof big);
        auto* l = new SyslogListener;
        std::thread([fd, l] {
            char buf[2048];
            for (;;)
                if (recv(fd, buf, sizeof buf, 0) > 0) l->received.fetch_add(1, std::memory_order_relaxed);
        }).detach();
        return l;
    }
    SyslogListener() = default;

public:
    std::atomic<long> received{0};
};

void Syslog(benchmark::State& state) {
    const int procs = static_cast<int>(state.range(0));
    if (SyslogListener::Get() == nullptr) {
        state.SkipWithError("needs root for a private mount namespace with its own /dev/log");
        return;
    }
    uint64_t loopNs = 0;
    for (auto _ : state) {
        loopNs += RunProcesses(procs, [](long count) {
            openlog("kxlog_bench", LOG_PID, LOG_DAEMON);
            LoopStart();
            for (long i = 0; i < count; ++i) syslog(LOG_INFO, kFormat, i, i % 100, i % 10000);
            LoopEnd();
            closelog();
        });
    }
    Report(state, procs, loopNs);
}

void LockMutexOnly(benchmark::State& state) {
    KMutex mutex(false);
    if (mutex.Create("KXLOG_BENCH_MUTEX", false) != KX_OK) state.SkipWithError("no named mutex");
    for (auto _ : state) {
        mutex.Lock(500);
        mutex.Unlock();
    }
}

void LockFileOnly(benchmark::State& state) {
    KFileUnix file;
    file.CreateFileA((BenchDir() + "/lock").c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                     OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    for (auto _ : state) {
        file.TryLockFile(true);
        file.UnlockFile();
    }
}

void LockStream(benchmark::State& state) {
    KLogStream stream(BenchDir().c_str(), "lock.log", 64, 0, true);
    if (!stream.IsLive()) state.SkipWithError("stream did not open");
    for (auto _ : state) {
        stream.LockLogfile(500, 4);
        stream.UnlockLogfile();
    }
}

}  // namespace

// The lock figures first: the syslog set-up hides the shared-memory directory the named mutex
// lives in.
BENCHMARK(LockMutexOnly);
BENCHMARK(LockFileOnly);
BENCHMARK(LockStream);
BENCHMARK(KxLog)
    ->ArgNames({"procs", "flush", "filelock"})
    ->Args({1, 16384, 0})
    ->Args({4, 16384, 0})
    ->Args({1, 0, 0})
    ->Args({4, 0, 0})
    ->Args({1, 16384, 1})
    ->Args({4, 16384, 1})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
#if KX_HAVE_SPDLOG
BENCHMARK(Spdlog)->ArgName("procs")->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(5);
#endif
BENCHMARK(Syslog)->ArgName("procs")->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(5);

BENCHMARK_MAIN();
