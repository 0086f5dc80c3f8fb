// Named mutex costs against a bare process-shared pthread mutex measured in the same run:
// an uncontended Lock/Unlock pair, and the rate at which two processes hand the lock over.

#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <string>

#include "platform/KMutex.h"

namespace {

std::string BenchName() { return "kxbench_mutex_" + std::to_string(getpid()); }

// A process-shared pthread mutex in anonymous shared memory: the baseline.
struct SharedPthread {
    pthread_mutex_t mutex;
};

SharedPthread* MakeSharedPthread(bool robust = false) {
    void* p = mmap(nullptr, sizeof(SharedPthread), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) abort();
    auto* s = static_cast<SharedPthread*>(p);
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    if (robust) pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&s->mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    return s;
}

void BM_PthreadSharedLockUnlock(benchmark::State& state) {
    SharedPthread* s = MakeSharedPthread();
    for (auto _ : state) {
        pthread_mutex_lock(&s->mutex);
        pthread_mutex_unlock(&s->mutex);
    }
    munmap(s, sizeof(*s));
}
BENCHMARK(BM_PthreadSharedLockUnlock);

// For reference: the robust kind that KMutex uses inside its block.
void BM_PthreadSharedRobustLockUnlock(benchmark::State& state) {
    SharedPthread* s = MakeSharedPthread(true);
    for (auto _ : state) {
        pthread_mutex_lock(&s->mutex);
        pthread_mutex_unlock(&s->mutex);
    }
    munmap(s, sizeof(*s));
}
BENCHMARK(BM_PthreadSharedRobustLockUnlock);

void BM_KMutexLockUnlock(benchmark::State& state) {
    KMutex mutex;
    if (mutex.Create(BenchName().c_str(), false) != KX_OK) {
        state.SkipWithError("KMutex::Create failed");
        return;
    }
    for (auto _ : state) {
        mutex.Lock(KMutex::kInfinite);
        mutex.Unlock();
    }
}
BENCHMARK(BM_KMutexLockUnlock);

// Strict alternation between this process and a forked partner: each side takes the lock,
// and passes the turn only while holding it. One iteration is a round trip (two hand-overs).
struct Turn {
    std::atomic<int> whose;  // 0: this process, 1: the partner
    std::atomic<bool> stop;
};

Turn* MakeTurn() {
    void* p = mmap(nullptr, sizeof(Turn), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) abort();
    return new (p) Turn{{0}, {false}};
}

template <typename LockFn, typename UnlockFn>
void TakeTurn(Turn* turn, int me, LockFn lock, UnlockFn unlock) {
    for (;;) {
        lock();
        if (turn->whose.load(std::memory_order_relaxed) == me || turn->stop.load()) {
            turn->whose.store(1 - me, std::memory_order_relaxed);
            unlock();
            return;
        }
        unlock();
    }
}

template <typename LockFn, typename UnlockFn>
void RunHandover(benchmark::State& state, LockFn lock, UnlockFn unlock) {
    Turn* turn = MakeTurn();
    const pid_t partner = fork();
    if (partner == 0) {
        while (!turn->stop.load()) TakeTurn(turn, 1, lock, unlock);
        _exit(0);
    }
    for (auto _ : state) TakeTurn(turn, 0, lock, unlock);
    turn->stop.store(true);
    int status;
    waitpid(partner, &status, 0);
    state.counters["handovers/s"] = benchmark::Counter(2.0 * static_cast<double>(state.iterations()),
                                                       benchmark::Counter::kIsRate);
    munmap(turn, sizeof(Turn));
}

void BM_PthreadSharedHandover(benchmark::State& state) {
    SharedPthread* s = MakeSharedPthread();
    RunHandover(state, [s] { pthread_mutex_lock(&s->mutex); }, [s] { pthread_mutex_unlock(&s->mutex); });
    munmap(s, sizeof(*s));
}
BENCHMARK(BM_PthreadSharedHandover)->UseRealTime();

void BM_KMutexHandover(benchmark::State& state) {
    KMutex mutex;
    if (mutex.Create((BenchName() + "_h").c_str(), false) != KX_OK) {
        state.SkipWithError("KMutex::Create failed");
        return;
    }
    RunHandover(state, [&] { mutex.Lock(KMutex::kInfinite); }, [&] { mutex.Unlock(); });
}
BENCHMARK(BM_KMutexHandover)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
