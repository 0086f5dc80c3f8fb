#include "platform/kxPlatformErrors.h"

#include "platform/KFileABC.h"
#include "platform/KMutex.h"

DWORD kxWin32ErrorFromErrno(int error) {
    switch (error) {
        case EACCES:
            return ERROR_ACCESS_DENIED;
        default:
            return static_cast<DWORD>(error);
    }
}

long kxPlatformStatus(int error, long failure) {
    switch (error) {
        case ENOENT:
            return failure == KX_E_FILE_OPEN ? KX_E_NOT_FOUND : failure;
        case EAGAIN:
        case EACCES:
            return failure == KX_E_FILE_LOCK ? KX_S_WAIT_TIMEOUT : failure;
        case ETIMEDOUT:
            return failure == KX_E_WAIT_FAILED ? KX_S_WAIT_TIMEOUT : failure;
        default:
            return failure;
    }
}
