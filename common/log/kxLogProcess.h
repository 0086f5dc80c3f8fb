// The process id stamped into every record, read from the system once rather than per record.
//
// Thread safety: any thread, at any time (before main too).
#pragma once

#include <cstdint>

// getpid() of the calling process. Cached; a child made by fork() (or anything else that runs
// the pthread_atfork handlers) reads its own id afresh. A child made by a raw clone system call
// without those handlers would keep its parent's id: the library never makes one.
uint32_t kxLogProcessId();
