// How the platform layer reports a failed system call, in one place for its two conventions:
//   - the Win32-shaped functions (platform/kxWin32.h) return a truth value and leave a Win32
//     error number as the last error;
//   - the file handles (KFileUnix) and the named mutex (KMutex) return a status.
#pragma once

#include <cerrno>

#include "base/kxWin32Types.h"

// The last error of the Win32-shaped functions is errno itself: callers written against the
// Win32 model read Win32 error numbers there after a failed call, so these functions store them
// in errno in place of the Unix value. The channel is kept for compatibility; read and write it
// through these two, so that every use of it says so.
inline DWORD GetLastError() { return static_cast<DWORD>(errno); }
inline void SetLastError(DWORD error) { errno = static_cast<int>(error); }

// The Win32 error number that a Unix errno becomes: EACCES gives ERROR_ACCESS_DENIED (5); ENOENT
// already equals ERROR_FILE_NOT_FOUND (2); every other value stays the Unix one, as callers expect.
DWORD kxWin32ErrorFromErrno(int error);

// The status of a failed file or mutex call. `failure` is the operation's own failure status;
// the error refines it where it says more:
//   KX_E_FILE_OPEN  with ENOENT           -> KX_E_NOT_FOUND;
//   KX_E_FILE_LOCK  with EAGAIN or EACCES -> KX_S_WAIT_TIMEOUT (another holder: POSIX lets a
//                                            refused file lock report either);
//   KX_E_WAIT_FAILED with ETIMEDOUT       -> KX_S_WAIT_TIMEOUT.
// Otherwise `failure`. Never KX_OK: the call did fail, whatever errno says.
long kxPlatformStatus(int error, long failure);
