#include "platform/KMutex.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "kxLogCapture.h"
#include "kxPlatformFaults.h"
#include "kxTestProcess.h"
#include "platform/kxWin32.h"

namespace {

using Clock = std::chrono::steady_clock;
using KMutexShared = KMutex::KMutexShared;

long long MsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

std::string UniqueName() {
    static int counter = 0;
    return "kxtest_mutex_" + std::to_string(getpid()) + "_" + std::to_string(++counter);
}

bool NameExists(const std::string& name) {
    const int fd = shm_open(("/" + name).c_str(), O_RDWR, 0);
    if (fd == -1) return false;
    close(fd);
    return true;
}

// Runs body in a forked child, which exits with body's result.
pid_t Fork(const std::function<int()>& body) {
    const pid_t pid = fork();
    if (pid == 0) _exit(body());
    return pid;
}

// The child's exit code, or -1 if it did not exit normally within the limit.
int ExitCode(pid_t pid, std::chrono::milliseconds limit = std::chrono::seconds(30)) {
    const std::optional<int> status = kxtest::WaitFor(pid, limit);
    if (!status) {
        kxtest::KillAndReap(pid);
        return -1;
    }
    return WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
}

// One-shot signal between processes over a pipe.
class Gate {
public:
    Gate() {
        if (pipe(fds_) != 0) abort();
    }
    ~Gate() {
        close(fds_[0]);
        close(fds_[1]);
    }
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;
    void Open() { (void)!write(fds_[1], "x", 1); }
    bool Wait() {
        char c;
        return read(fds_[0], &c, 1) == 1;
    }

private:
    int fds_[2];
};

// A shared-memory object under the name, as another process's creator would leave it: of the
// given size, with the given signature, and with initialised pthread objects when `init`.
KMutexShared* MakeForeignBlock(const std::string& name, off_t size, uint32_t signature, bool init) {
    const int fd = shm_open(("/" + name).c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    if (fd == -1 || ftruncate(fd, size) != 0) return nullptr;
    void* p = mmap(nullptr, sizeof(KMutexShared), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (p == MAP_FAILED) return nullptr;
    auto* block = static_cast<KMutexShared*>(p);
    if (size >= static_cast<off_t>(sizeof(KMutexShared))) {
        if (init) {
            pthread_mutexattr_t ma;
            pthread_mutexattr_init(&ma);
            pthread_mutexattr_setpshared(&ma, PTHREAD_PROCESS_SHARED);
            pthread_mutexattr_setrobust(&ma, PTHREAD_MUTEX_ROBUST);
            pthread_mutex_init(&block->mutex, &ma);
            pthread_condattr_t ca;
            pthread_condattr_init(&ca);
            pthread_condattr_setpshared(&ca, PTHREAD_PROCESS_SHARED);
            pthread_cond_init(&block->cond, &ca);
            block->ownerThread = static_cast<pthread_t>(-1);
            block->ownerProcess = -1;
        }
        block->signature = signature;
    }
    return block;
}

TEST(KMutex, UnnamedMutexRecursionSingleReleaseAndNonOwnerUnlock) {
    KMutex mutex;
    ASSERT_EQ(KX_OK, mutex.Create());
    ASSERT_EQ(KX_OK, mutex.Lock(0));
    ASSERT_EQ(KX_OK, mutex.Lock(KMutex::kInfinite));  // owner recursion

    long otherLock = -1, otherUnlock = -1;
    std::thread([&] {
        otherUnlock = mutex.Unlock();  // not the owner: no effect
        otherLock = mutex.Lock(0);
    }).join();
    EXPECT_EQ(KX_OK, otherUnlock);
    EXPECT_EQ(KX_S_WAIT_TIMEOUT, otherLock);

    // Locked twice, released once: free for everybody.
    ASSERT_EQ(KX_OK, mutex.Unlock());
    std::thread([&] {
        otherLock = mutex.Lock(0);
        otherUnlock = mutex.Unlock();
    }).join();
    EXPECT_EQ(KX_OK, otherLock);
    EXPECT_EQ(KX_OK, otherUnlock);

    // Re-creating drops the old block and starts free.
    ASSERT_EQ(KX_OK, mutex.Lock(0));
    ASSERT_EQ(KX_OK, mutex.Create());
    std::thread([&] { otherLock = mutex.Lock(0); }).join();
    EXPECT_EQ(KX_OK, otherLock);
}

TEST(KMutex, FailuresAreStatusesAndCreateFailuresAreLogged) {
    kxtest::LogCapture log;
    KMutex idle;
    EXPECT_EQ(KX_E_NOT_INITIALISED, idle.Lock(0));
    EXPECT_EQ(KX_E_NOT_INITIALISED, idle.Unlock());
    EXPECT_FALSE(idle.IsValid());

    KMutex bad;
    EXPECT_EQ(KX_E_MUTEX_CREATE, bad.Create(nullptr, false));
    EXPECT_EQ(KX_E_MUTEX_CREATE, bad.Create("has/slash", false));
    EXPECT_TRUE(log.Has(KX_E_MUTEX_CREATE, "KMutex::Create(ASCII): error"));
    EXPECT_TRUE(log.Has(KX_E_MUTEX_CREATE, "creating mutex (name='has/slash')"));
    EXPECT_EQ(KX_E_NOT_INITIALISED, bad.Lock(0));

    // A failed mapping leaves neither a usable object nor the name behind.
    {
        kxtest::PlatformFaults env;
        env.mmapError = ENOMEM;
        KMutex unmappable(true, &env);
        const std::string name = UniqueName();
        EXPECT_EQ(KX_E_MUTEX_CREATE, unmappable.Create(name.c_str(), true));
        EXPECT_EQ(KX_E_NOT_INITIALISED, unmappable.Lock(0));
        EXPECT_FALSE(NameExists(name));
        EXPECT_TRUE(log.Has(KX_E_MUTEX_CREATE, "error 12 creating mutex"));
    }
}

// A deadline past the end of the current second carries into the seconds. The clock is read at
// .999999 of a second, so every wait crosses one; a lost carry would put the deadline a second
// early and end the 100 ms wait at once.
TEST(KMutex, TimedWaitLastsItsTimeAcrossASecondBoundary) {
    struct LateInTheSecond : kxEnvWrapper {
        int GetTimeOfDay(struct timeval* tv) override {
            const int rc = kxEnvWrapper::GetTimeOfDay(tv);
            tv->tv_usec = 999999;
            return rc;
        }
    } env;
    kxtest::LogCapture log;
    KMutex mutex(true, &env);
    ASSERT_EQ(KX_OK, mutex.Create());
    ASSERT_EQ(KX_OK, mutex.Lock(0));
    long other = 0;
    long long waitedMs = 0;
    std::thread([&] {
        const auto start = Clock::now();
        other = mutex.Lock(100);
        waitedMs = MsSince(start);
    }).join();
    EXPECT_EQ(KX_S_WAIT_TIMEOUT, other);
    EXPECT_GE(waitedMs, 95);
    EXPECT_TRUE(log.Records().empty()) << "time-outs are never logged";
}

TEST(KMutex, NamedMutexExcludesProcessesUnderContention) {
    const std::string name = UniqueName();
    KMutex mutex;
    ASSERT_EQ(KX_OK, mutex.Create(name.c_str(), false));

    void* shared =
        mmap(nullptr, sizeof(long), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(MAP_FAILED, shared);
    volatile long* counter = static_cast<long*>(shared);
    const int kProcesses = 4, kRounds = 2000;
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
        children.push_back(Fork([&] {
            for (int round = 0; round < kRounds; ++round) {
                if (mutex.Lock(KMutex::kInfinite) != KX_OK) return 1;
                // A read-modify-write with a pause in the middle: lost updates if two get in.
                const long seen = *counter;
                if (round % 64 == 0) sched_yield();
                *counter = seen + 1;
                if (mutex.Unlock() != KX_OK) return 2;
            }
            return 0;
        }));
    }
    for (pid_t pid : children) EXPECT_EQ(0, ExitCode(pid));
    EXPECT_EQ(kProcesses * kRounds, *counter);
    munmap(shared, sizeof(long));
}

TEST(KMutex, NameIsRemovedOnceMappedSoLaterCreatesMakeANewMutex) {
    const std::string name = UniqueName();
    KMutex first;
    ASSERT_EQ(KX_OK, first.Create(name.c_str(), true));
    EXPECT_EQ(0, errno);
    EXPECT_EQ("/" + name, first.Name());
    EXPECT_FALSE(NameExists(name));

    // Same name, but a separate mutex: not reported as existing and not held.
    KMutex second;
    ASSERT_EQ(KX_OK, second.Create(name.c_str(), false));
    EXPECT_FALSE(second.AlreadyExisted());
    EXPECT_NE(ERROR_ALREADY_EXISTS, errno);
    EXPECT_EQ(0, ExitCode(Fork([&] { return second.Lock(0) == KX_OK ? 0 : 1; })));
}

TEST(KMutex, CreatorThatNeverCompletesIsTestedFourTimesASecondApart) {
    const std::string stuck = UniqueName(), empty = UniqueName(), late = UniqueName();
    KMutexShared* stuckBlock = MakeForeignBlock(stuck, sizeof(KMutexShared), KMutex::kSignatureNotReady, false);
    KMutexShared* emptyBlock = MakeForeignBlock(empty, 0, 0, false);  // creator not even sized it
    KMutexShared* lateBlock = MakeForeignBlock(late, sizeof(KMutexShared), KMutex::kSignatureNotReady, true);
    ASSERT_TRUE(stuckBlock && emptyBlock && lateBlock);

    struct Outcome {
        long result = 0;
        int error = 0;
        long long ms = 0;
    };
    Outcome outcomes[3];
    const std::string* names[3] = {&stuck, &empty, &late};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&, i] {
            KMutex mutex(false);
            const auto start = Clock::now();
            outcomes[i].result = mutex.Create(names[i]->c_str(), false);
            outcomes[i].error = errno;
            outcomes[i].ms = MsSince(start);
        });
    }
    Sleep(1500);
    __atomic_store_n(&lateBlock->signature, KMutex::kSignatureReady, __ATOMIC_RELEASE);
    for (auto& th : threads) th.join();

    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(KX_E_MUTEX_CREATE, outcomes[i].result) << i;
        EXPECT_GE(outcomes[i].ms, 2800) << i;
        EXPECT_LT(outcomes[i].ms, 4500) << i;
        EXPECT_FALSE(NameExists(*names[i])) << i;
    }
    EXPECT_EQ(KX_OK, outcomes[2].result);
    EXPECT_EQ(183, outcomes[2].error);
    EXPECT_GE(outcomes[2].ms, 1800);
    EXPECT_LT(outcomes[2].ms, 2900);
    for (KMutexShared* b : {stuckBlock, emptyBlock, lateBlock}) munmap(b, sizeof(KMutexShared));
}

TEST(KMutex, OwnerKilledWithSigkillIsTakenOverByTheNextWaiter) {
    const std::string name = UniqueName();
    KMutex mutex;
    ASSERT_EQ(KX_OK, mutex.Create(name.c_str(), false));

    // A child process that holds the mutex until it is killed.
    auto holdingOwner = [&] {
        Gate held;
        const pid_t owner = Fork([&]() -> int {
            if (mutex.Lock(KMutex::kInfinite) != KX_OK) return 1;
            held.Open();
            for (;;) pause();
        });
        held.Wait();
        return owner;
    };
    auto killedOwner = [&](bool reap) {
        const pid_t owner = holdingOwner();
        kill(owner, SIGKILL);
        if (reap) ExitCode(owner);
        return owner;
    };

    // Owner dead and reaped: even a zero wait takes the mutex, and says so.
    killedOwner(true);
    bool abandoned = false;
    auto start = Clock::now();
    EXPECT_EQ(KX_OK, mutex.Lock(0, &abandoned));
    EXPECT_TRUE(abandoned);
    EXPECT_LT(MsSince(start), 200);
    EXPECT_EQ(KX_OK, mutex.Unlock());
    EXPECT_EQ(KX_OK, mutex.Lock(0, &abandoned));
    EXPECT_FALSE(abandoned);
    EXPECT_EQ(KX_OK, mutex.Unlock());

    // Owner dead but not yet reaped (a zombie still answers kill): taken over within the wait.
    const pid_t zombie = killedOwner(false);
    start = Clock::now();
    EXPECT_EQ(KX_OK, mutex.Lock(2000, &abandoned));
    EXPECT_TRUE(abandoned);
    EXPECT_LT(MsSince(start), 1000);
    EXPECT_EQ(KX_OK, mutex.Unlock());
    ExitCode(zombie);

    // A waiter already blocked for ever when the owner dies wakes up and takes it.
    const pid_t owner = holdingOwner();
    std::atomic<long> waited{-1};
    std::atomic<bool> waitedAbandoned{false};
    std::thread waiter([&] {
        bool a = false;
        waited = mutex.Lock(KMutex::kInfinite, &a);
        waitedAbandoned = a;
        mutex.Unlock();
    });
    Sleep(200);
    EXPECT_EQ(-1, waited.load());
    kill(owner, SIGKILL);
    ExitCode(owner);
    waiter.join();
    EXPECT_EQ(KX_OK, waited.load());
    EXPECT_TRUE(waitedAbandoned.load());
    EXPECT_EQ(0, ExitCode(Fork([&] { return mutex.Lock(0) == KX_OK ? 0 : 1; })));
}

TEST(KMutex, ProcessKilledHoldingTheBlockLockDoesNotWedgeOthers) {
    kxtest::PlatformFaults env;  // to reach the block's own pthread mutex through its mapping
    const std::string name = UniqueName();
    KMutex mutex(true, &env);
    ASSERT_EQ(KX_OK, mutex.Create(name.c_str(), false));
    auto* block = static_cast<KMutexShared*>(env.lastMapping);
    ASSERT_NE(nullptr, block);

    // The child dies inside the critical region of Lock: pthread mutex held, fields half set.
    Gate held;
    const pid_t child = Fork([&]() -> int {
        pthread_mutex_lock(&block->mutex);
        block->lockCount = 1;
        held.Open();
        for (;;) pause();
    });
    held.Wait();
    kill(child, SIGKILL);
    ExitCode(child);

    // Checked in a child, so that a wedged lock fails the test instead of hanging it.
    EXPECT_EQ(0, ExitCode(Fork([&] {
        bool abandoned = true;
        const auto start = Clock::now();
        if (mutex.Lock(1000, &abandoned) != KX_OK) return 1;
        if (abandoned) return 2;  // the dead process never owned the mutex itself
        if (MsSince(start) > 500) return 3;
        if (block->lockCount != 1) return 4;
        return mutex.Unlock() == KX_OK ? 0 : 5;
    }), std::chrono::seconds(5)));
    EXPECT_EQ(KX_OK, mutex.Lock(0));
    EXPECT_EQ(KX_OK, mutex.Unlock());
}

}  // namespace
