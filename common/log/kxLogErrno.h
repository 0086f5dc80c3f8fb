// How the log layer turns the error of a failed system call into its own status: the one place
// that decides it, for the lock and file calls of the log files.
#pragma once

#include <cerrno>

#include "base/kxStatus.h"
#include "platform/KFileABC.h"

constexpr long KX_E_LOG_LOCK_FILE = kxStatus(0xE0010104);  // the lock file is unusable to a writer

// `error` is an errno value or the error number a pthread call returned (0: success).
//   EAGAIN, EACCES (a conflicting file lock: POSIX allows either), EBUSY, ETIMEDOUT
//                        -> KX_S_WAIT_TIMEOUT: someone else holds the lock, try again later;
//   ENOTRECOVERABLE      -> KX_E_LOG_LOCK_FILE: the lock file's mutex can never be taken again;
//   anything else        -> KX_E_FILE_LOCK: the lock call itself failed.
// EOWNERDEAD is not a failure (the lock was taken from a dead holder); callers handle it first.
inline long kxLogStatusFromErrno(int error) {
    switch (error) {
        case 0:
            return KX_OK;
        case EAGAIN:
        case EACCES:
        case EBUSY:
        case ETIMEDOUT:
            return KX_S_WAIT_TIMEOUT;
        case ENOTRECOVERABLE:
            return KX_E_LOG_LOCK_FILE;
        default:
            return KX_E_FILE_LOCK;
    }
}
