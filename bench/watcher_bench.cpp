// Costs of the Watcher as a black box.
//
// BM_RestartCycle/watcher: the real watcher (-f -d 0) restarting a child that exits 1 at once,
//   time per start.
// BM_RestartCycle/bare: the baseline, a plain fork/execv/waitpid loop over the same child.
// BM_Idle: while the child runs, the watcher's voluntary context switches over 5 seconds (goal:
//   none) and its private dirty memory in kB, without and with logging configured.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "benchmark/benchmark.h"

namespace {

constexpr int kStartsPerRun = 101;  // -r 100
const char* const kChild = "/bin/false";

pid_t SpawnV(std::vector<std::string> args) {
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        execv(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

int WaitStatus(pid_t pid) {
    int st = 0;
    waitpid(pid, &st, 0);
    return st;
}

void BM_RestartCycleWatcher(benchmark::State& state) {
    for (auto _ : state) {
        const pid_t w = SpawnV({KX_WATCHER_BIN, "-f", "-d", "0", "-r",
                                std::to_string(kStartsPerRun - 1), kChild});
        WaitStatus(w);
    }
    state.SetItemsProcessed(state.iterations() * kStartsPerRun);
    state.counters["us_per_start"] = benchmark::Counter(
        static_cast<double>(state.iterations() * kStartsPerRun),
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert, benchmark::Counter::kIs1000);
}

void BM_RestartCycleBare(benchmark::State& state) {
    for (auto _ : state) {
        for (int i = 0; i < kStartsPerRun; ++i) WaitStatus(SpawnV({kChild}));
    }
    state.SetItemsProcessed(state.iterations() * kStartsPerRun);
    state.counters["us_per_start"] = benchmark::Counter(
        static_cast<double>(state.iterations() * kStartsPerRun),
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert, benchmark::Counter::kIs1000);
}

long StatusField(pid_t pid, const std::string& key, const std::string& file) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/" + file);
    for (std::string line; std::getline(in, line);)
        if (line.rfind(key, 0) == 0) return std::stol(line.substr(key.size()));
    return -1;
}

// Argument 1: with logging configured (three 1 MB log files in a temporary directory).
void BM_Idle(benchmark::State& state) {
    char dir[] = "/tmp/kxbench.XXXXXX";
    if (state.range(0) == 1) {
        if (mkdtemp(dir) == nullptr) state.SkipWithError("mkdtemp failed");
        setenv("KX_LOG_DIR", dir, 1);
        setenv("KX_LOG_SIZE", "1024", 1);
    }
    for (auto _ : state) {
        const pid_t w = SpawnV({KX_WATCHER_BIN, "-f", "/bin/sleep", "30"});
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        const long before = StatusField(w, "voluntary_ctxt_switches:", "status");
        std::this_thread::sleep_for(std::chrono::seconds(5));
        const long after = StatusField(w, "voluntary_ctxt_switches:", "status");
        state.counters["wakeups_in_5s"] = static_cast<double>(after - before);
        state.counters["private_dirty_kB"] =
            static_cast<double>(StatusField(w, "Private_Dirty:", "smaps_rollup"));
        state.counters["rss_kB"] = static_cast<double>(StatusField(w, "VmRSS:", "status"));
        kill(w, SIGTERM);
        WaitStatus(w);
    }
    if (state.range(0) == 1) {
        unsetenv("KX_LOG_DIR");
        unsetenv("KX_LOG_SIZE");
        const std::string rm = std::string("rm -rf ") + dir;
        if (system(rm.c_str()) != 0) state.SkipWithError("clean-up failed");
    }
}

}  // namespace

BENCHMARK(BM_RestartCycleWatcher)->Name("BM_RestartCycle/watcher")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RestartCycleBare)->Name("BM_RestartCycle/bare")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Idle)->ArgName("logging")->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kSecond);

BENCHMARK_MAIN();
