// Page-aligned memory, identifiers, the temporary directory and wildcard matching.

#include <crypt.h>
#include <fnmatch.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/kxEnv.h"
#include "platform/kxPlatformErrors.h"
#include "platform/kxWin32.h"

void* VirtualAlloc(void* address, size_t size, DWORD allocationType, DWORD protect) {
    if (address != nullptr || allocationType != MEM_COMMIT || protect != PAGE_READWRITE) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    void* memory = nullptr;
    const int rc = kxEnv::Default()->PosixMemalign(&memory, 65536, size);
    if (rc != 0) {
        SetLastError(static_cast<DWORD>(rc));
        return nullptr;
    }
    return memory;
}

BOOL VirtualFree(void* address, size_t size, DWORD freeType) {
    if (size != 0 || freeType != MEM_RELEASE) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    kxEnv::Default()->Free(address);
    return TRUE;
}

long CoCreateGuid(_GUID* guid) {
    if (guid == nullptr) return 0;
    memset(guid, 0, sizeof(*guid));

    struct timeval tv;
    if (kxEnv::Default()->GetTimeOfDay(&tv) != 0) tv = timeval{};
    // The offset of 203932800 seconds is this library's own epoch for identifiers.
    const uint64_t seconds = static_cast<uint64_t>(static_cast<uint32_t>(tv.tv_sec)) + 203932800u;
    const uint64_t t = (seconds * 1000000u + static_cast<uint64_t>(tv.tv_usec)) * 10u;
    guid->Data1 = static_cast<uint32_t>(t);
    guid->Data2 = static_cast<uint16_t>(t >> 32);
    guid->Data3 = static_cast<uint16_t>((t >> 48) | 0x1000);

    unsigned int seed = static_cast<unsigned int>(t);
    const unsigned int r = static_cast<unsigned int>(rand_r(&seed));
    guid->Data4[0] = static_cast<uint8_t>((r >> 24) | 0xA0);
    guid->Data4[1] = static_cast<uint8_t>(r >> 16);

    char host[256];
    memset(host, 0, sizeof(host));
    gethostname(host, sizeof(host) - 1);
    // The reentrant form gives the same text as the classic DES crypt() for a two-character salt;
    // the result is the echoed salt followed by 11 hash characters.
    std::unique_ptr<crypt_data> scratch(new crypt_data());
    const char* hash = crypt_r(host, "kx", scratch.get());
    if (hash != nullptr && strncmp(hash, "kx", 2) == 0 && strlen(hash) >= 8)
        memcpy(guid->Data4 + 2, hash + 2, 6);
    return 0;
}

DWORD GetTempPathA(DWORD bufferLength, char* buffer) {
    // An empty variable counts as unset: it would otherwise turn into "/", the root directory.
    const char* dir = getenv("TMP");
    if (dir == nullptr || *dir == '\0') dir = getenv("TEMP");
    if (dir == nullptr || *dir == '\0') dir = "./";
    const size_t n = strlen(dir);
    // Room for a '/' is demanded even when the text already ends with one.
    if (n + 2 > bufferLength) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    if (buffer == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    memcpy(buffer, dir, n);
    size_t written = n;
    if (n == 0 || dir[n - 1] != '/') buffer[written++] = '/';
    buffer[written] = '\0';
    return static_cast<DWORD>(written);
}

BOOL PathMatchSpec(const char* name, const char* pattern) {
    if (name == nullptr || pattern == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return fnmatch(pattern, name, FNM_NOESCAPE) == 0;
}
