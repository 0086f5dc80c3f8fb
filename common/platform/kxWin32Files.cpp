// File attributes, copying, and the directory and file primitives.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "base/kxEnv.h"
#include "platform/kxPlatformErrors.h"
#include "platform/kxWin32.h"

namespace {

void SecondsToFileTime(time_t seconds, _FILETIME* ft) {
    const uint64_t value = static_cast<uint64_t>(static_cast<int64_t>(seconds)) * kxFileTimeTicksPerSecond +
                           kxFileTimeUnixEpoch;
    ft->dwLowDateTime = static_cast<uint32_t>(value);
    ft->dwHighDateTime = static_cast<uint32_t>(value >> 32);
}

// Shared by GetFileAttributesA and GetFileAttributesExA; data may be null.
DWORD QueryAttributes(const char* name, _WIN32_FILE_ATTRIBUTE_DATA* data) {
    if (name == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_FILE_ATTRIBUTES;
    }
    struct stat st;
    if (kxEnv::Default()->Stat(name, &st) != 0) {
        SetLastError(kxWin32ErrorFromErrno(errno));
        return INVALID_FILE_ATTRIBUTES;
    }
    DWORD attributes = 0;
    if (S_ISDIR(st.st_mode))
        attributes = FILE_ATTRIBUTE_DIRECTORY;
    else if (S_ISREG(st.st_mode))
        attributes = FILE_ATTRIBUTE_NORMAL;
    if (data != nullptr) {
        memset(data, 0, sizeof(*data));
        data->dwFileAttributes = attributes;
        SecondsToFileTime(st.st_atime, &data->ftLastAccessTime);
        SecondsToFileTime(st.st_mtime, &data->ftLastWriteTime);
        data->nFileSizeLow = static_cast<uint32_t>(st.st_size);
    }
    return attributes;
}

// Closes the descriptors of one copy however it ends.
struct CopyDescriptors {
    kxEnv* const env;
    int from = -1;
    int to = -1;
    explicit CopyDescriptors(kxEnv* e) : env(e) {}
    CopyDescriptors(const CopyDescriptors&) = delete;
    CopyDescriptors& operator=(const CopyDescriptors&) = delete;
    ~CopyDescriptors() {
        const int saved = errno;  // keep the last error of the failure being reported
        if (from != -1) env->Close(from);
        if (to != -1) env->Close(to);
        errno = saved;
    }
};

// The reason a copy failed travels as a thrown std::string inside CopyFileA only.
typedef std::string CopyFailure;

bool CopyMapped(kxEnv* env, int from, int to, off_t size) {
    if (size <= 0 || static_cast<uint64_t>(size) > SIZE_MAX) return false;  // nothing to map
    const size_t length = static_cast<size_t>(size);
    void* view = env->Mmap(nullptr, length, PROT_READ, MAP_PRIVATE, from, 0);
    if (view == MAP_FAILED) return false;  // "FileMap::FileMap mmap"
    const ssize_t written = env->Write(to, view, length);
    env->Munmap(view, length);
    return written == static_cast<ssize_t>(length);  // else "CopyFile_Mmap write"
}

void CopyBuffered(kxEnv* env, int from, int to, off_t size) {
    // A failed mapped copy may have written part of the target: start both files again at 0 so
    // that the target ends up an exact copy.
    if (env->Lseek(from, 0, SEEK_SET) != 0 || env->Lseek(to, 0, SEEK_SET) != 0) throw CopyFailure("CopyFile_Buffered");
    const size_t kChunk = 65536;
    std::vector<char> buffer(kChunk);
    off_t total = 0;
    ssize_t got;
    do {
        got = env->Read(from, buffer.data(), kChunk);
        if (got < 0) throw CopyFailure("CopyFile_Buffered");
        if (env->Write(to, buffer.data(), static_cast<size_t>(got)) != got)
            throw CopyFailure("CopyFile_Buffered");
        total += got;
    } while (got == static_cast<ssize_t>(kChunk));
    if (total != size) throw CopyFailure("CopyFile_Buffered");
}

}  // namespace

DWORD GetFileAttributesA(const char* name) { return QueryAttributes(name, nullptr); }

BOOL GetFileAttributesExA(const char* name, GET_FILEEX_INFO_LEVELS level, _WIN32_FILE_ATTRIBUTE_DATA* data) {
    if (level != GetFileExInfoStandard) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (name != nullptr) {
        const char* colon = strchr(name, ':');
        if (colon != nullptr) name = colon + 1;
    }
    return QueryAttributes(name, data) != INVALID_FILE_ATTRIBUTES;
}

BOOL SetFileAttributesA(const char*, DWORD) { return TRUE; }

BOOL CopyFileA(const char* existingName, const char* newName, BOOL failIfExists) {
    if (existingName == nullptr || newName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    kxEnv* env = kxEnv::Default();
    try {
        struct stat st;
        if (failIfExists && env->Stat(newName, &st) == 0) {
            SetLastError(EEXIST);
            throw CopyFailure("CopyFileA target file " + std::string(newName) + " exists");
        }
        CopyDescriptors fds(env);
        fds.from = env->Open(existingName, O_RDONLY, 0);
        if (fds.from == -1) throw CopyFailure("FileHandle::FileHandle open " + std::string(existingName));
        if (env->Fstat(fds.from, &st) != 0) throw CopyFailure("CopyFileA fstat " + std::string(existingName));
        fds.to = env->Open(newName, O_WRONLY | O_CREAT | O_TRUNC, st.st_mode & 07777);
        if (fds.to == -1) throw CopyFailure("FileHandle::FileHandle open " + std::string(newName));
        if (!CopyMapped(env, fds.from, fds.to, st.st_size))
            CopyBuffered(env, fds.from, fds.to, st.st_size);
        return TRUE;
    } catch (const CopyFailure&) {
        return FALSE;
    }
}

BOOL CreateDirectoryA(const char* name, _SECURITY_ATTRIBUTES*) {
    if (name == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return kxEnv::Default()->Mkdir(name, 0777) == 0;
}

BOOL RemoveDirectoryA(const char* name) {
    if (name == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return kxEnv::Default()->Rmdir(name) == 0;
}

BOOL MoveFileA(const char* existingName, const char* newName) {
    if (existingName == nullptr || newName == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return kxEnv::Default()->Rename(existingName, newName) == 0;
}

BOOL DeleteFileA(const char* name) {
    if (name == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return kxEnv::Default()->Unlink(name) == 0;
}
