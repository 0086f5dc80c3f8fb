#include "base/KCriticalSection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <thread>

#include "base/kxEnv.h"
#include "kxLogCapture.h"

namespace {

std::string ThrownText(void (*op)(const KCriticalSection&), const KCriticalSection& cs) {
    try {
        op(cs);
    } catch (const std::logic_error& e) {
        return e.what();
    }
    return "<nothing thrown>";
}

void DoLock(const KCriticalSection& cs) { cs.Lock(); }
void DoUnlock(const KCriticalSection& cs) { cs.Unlock(); }

// Fails one of the pthread calls a critical section makes, with the error number given.
class PthreadFaults : public kxEnvWrapper {
public:
    enum Step { kAttrInit, kAttrSetType, kMutexInit, kMutexLock, kNone };
    Step step = kNone;
    int MutexAttrInit(pthread_mutexattr_t* a) override {
        return step == kAttrInit ? ENOMEM : kxEnvWrapper::MutexAttrInit(a);
    }
    int MutexAttrSetType(pthread_mutexattr_t* a, int type) override {
        return step == kAttrSetType ? EINVAL : kxEnvWrapper::MutexAttrSetType(a, type);
    }
    int MutexInit(pthread_mutex_t* m, const pthread_mutexattr_t* a) override {
        return step == kMutexInit ? EAGAIN : kxEnvWrapper::MutexInit(m, a);
    }
    int MutexLock(pthread_mutex_t* m) override {
        if (step != kMutexLock) return kxEnvWrapper::MutexLock(m);
        errno = 1234;
        return EAGAIN;
    }
};

TEST(KCriticalSection, RecursiveLockingReleasesForOtherThreadsOnlyAfterLastUnlock) {
    KCriticalSection cs;
    ASSERT_TRUE(cs.IsValid());
    cs.Lock();
    cs.Lock();

    std::atomic<bool> acquired{false};
    std::thread other([&] {
        cs.Lock();
        acquired = true;
        cs.Unlock();
    });
    cs.Unlock();
    // One level is still held: the other thread must not get in yet.
    struct timespec ts {0, 50 * 1000 * 1000};
    nanosleep(&ts, nullptr);
    EXPECT_FALSE(acquired.load());
    cs.Unlock();
    other.join();
    EXPECT_TRUE(acquired.load());
}

// An invalid object refuses both calls without logging.
TEST(KCriticalSection, FailedConstructionLeavesObjectInvalid) {
    kxtest::LogCapture log;
    for (auto step : {PthreadFaults::kAttrInit, PthreadFaults::kAttrSetType, PthreadFaults::kMutexInit}) {
        PthreadFaults env;
        env.step = step;
        kxScopedEnv scope(&env);
        KCriticalSection cs;
        EXPECT_FALSE(cs.IsValid()) << "step " << step;
        EXPECT_EQ(ThrownText(DoLock, cs), "KCriticalSection::Lock: invalid");
        EXPECT_EQ(ThrownText(DoUnlock, cs), "KCriticalSection::Unlock: invalid");
    }
    EXPECT_TRUE(log.Records().empty());
}

// A failed lock is logged with errno, not with the call's result; an unlock without holding the
// lock is logged too, and both throw their unformatted text. The lock still works afterwards.
TEST(KCriticalSection, LockFailureLogsErrnoNotTheResult) {
    kxtest::LogCapture log;
    KCriticalSection cs;
    EXPECT_EQ(ThrownText(DoUnlock, cs), "KCriticalSection::Unlock: failed %d.");
    PthreadFaults env;
    env.step = PthreadFaults::kMutexLock;
    std::string thrown;
    {
        kxScopedEnv scope(&env);
        thrown = ThrownText(DoLock, cs);
    }
    EXPECT_EQ(thrown, "KCriticalSection::Lock: failed %d.");
    EXPECT_TRUE(log.Has(KX_E_NOT_INITIALISED, "KCriticalSection::Unlock: failed "));
    EXPECT_TRUE(log.Has(KX_E_NOT_INITIALISED, "KCriticalSection::Lock: failed 1234."));
    cs.Lock();
    cs.Unlock();
}

}  // namespace
