#include "log/kxLogProcess.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace {

// 0 until read; set back to 0 in a child after fork, so that it is read again there.
std::atomic<uint32_t> g_dwProcessId{0};
pthread_once_t g_ForkHandlerOnce = PTHREAD_ONCE_INIT;

void ForgetInChild() {
    g_dwProcessId.store(0, std::memory_order_relaxed);
}

void InstallForkHandler() {
    pthread_atfork(nullptr, nullptr, ForgetInChild);
}

}  // namespace

uint32_t kxLogProcessId() {
    uint32_t pid = g_dwProcessId.load(std::memory_order_relaxed);
    if (pid != 0) return pid;
    pthread_once(&g_ForkHandlerOnce, InstallForkHandler);
    pid = static_cast<uint32_t>(getpid());
    g_dwProcessId.store(pid, std::memory_order_relaxed);
    return pid;
}
