// Names, existence, removal, renaming and unique names. The tree operations are in
// kxFileTree.cpp.

#include "files/kxFileUtils.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/KCString.h"
#include "base/kxLog.h"
#include "files/kxPath.h"
#include "platform/kxPlatformErrors.h"
#include "platform/kxWin32.h"

namespace kxFileUtils {
namespace {

constexpr uint32_t kReadOnly = 0x01;

long CheckExistence(const char* function, const char* name, bool& exists, DWORD attributes) {
    if (attributes != INVALID_FILE_ATTRIBUTES) {
        exists = true;
        return KX_OK;
    }
    const DWORD error = GetLastError();
    if (IsMissingError(error)) return KX_OK;
    kxLogPrintfA(KX_E_FILE_FIND, kxLogSevFailure, "%s: error %d checking existence of <%s>",
                 function, error, name);
    return KX_E_FILE_FIND;
}

}  // namespace

void AppendNameToPath(char* path, const char* name, char separator) {
    if (path == nullptr) return;
    if (separator == '\0') separator = '/';
    size_t length = strlen(path);
    if (length == 0 || path[length - 1] != separator) {
        path[length++] = separator;
        path[length] = '\0';
    }
    if (name == nullptr) return;
    while (*name == separator) ++name;
    memmove(path + length, name, strlen(name) + 1);
}

void AppendNameToPath(std::string& path, const char* name, char separator) {
    const size_t length = path.size();
    path.resize(length + 1 + (name != nullptr ? strlen(name) : 0) + 1);
    AppendNameToPath(&path[0], name, separator);
    path.resize(strlen(path.c_str()));
}

void AppendNameToPath(KCString& path, const char* name, char separator) {
    const size_t extra = 1 + (name != nullptr ? strlen(name) : 0);
    char* buffer = path.GetBuffer(path.GetLength() + static_cast<int>(extra));
    AppendNameToPath(buffer, name, separator);
    path.ReleaseBuffer(-1);
}

const char* GetLastSlash(const char* p) { return kxPath::GetLastSlash(p); }

char* GetLastSlash(char* p) { return kxPath::GetLastSlash(p); }

const char* GetNextSlash(const char* p, bool alsoBackslash) {
    if (p == nullptr) return nullptr;
    return alsoBackslash ? kxPath::GetNextSlash(p, true) : strchr(p, '/');
}

char* GetNextSlash(char* p, bool alsoBackslash) {
    return const_cast<char*>(GetNextSlash(static_cast<const char*>(p), alsoBackslash));
}

long PathExists(const char* name, bool& exists, uint32_t* attributes) {
    exists = false;
    if (name == nullptr) return KX_E_BAD_ARGUMENT;
    const DWORD found = GetFileAttributesA(name);
    const long status = CheckExistence("kxFileUtils::PathExistsA", name, exists, found);
    if (exists && attributes != nullptr) *attributes = found;
    return status;
}

long PathExistsEx(const char* name, bool& exists, _WIN32_FILE_ATTRIBUTE_DATA* data) {
    exists = false;
    if (name == nullptr || data == nullptr) return KX_E_BAD_ARGUMENT;
    const DWORD found = GetFileAttributesExA(name, GetFileExInfoStandard, data)
                            ? data->dwFileAttributes
                            : INVALID_FILE_ATTRIBUTES;
    return CheckExistence("kxFileUtils::PathExistsEx", name, exists, found);
}

long RemoveFile(const char* name) {
    const char* const function = "kxFileUtils::RemoveFile";
    bool exists = false;
    uint32_t attributes = 0;
    long status = PathExists(name, exists, &attributes);
    if (status != KX_OK || !exists) return status;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
        kxLogPrintfA(KX_E_BAD_ARGUMENT, kxLogSevFailure, "%s: <%s> is a directory", function, name);
        return KX_E_BAD_ARGUMENT;
    }
    // The compatibility layer never reports read-only today; kept for layers that do.
    if ((attributes & kReadOnly) && !SetFileAttributesA(name, attributes & ~kReadOnly)) {
        kxLogPrintfA(KX_E_FILE_FIND, kxLogSevFailure,
                     "%s: error %d setting read-only file <%s> to be writable", function,
                     static_cast<int>(GetLastError()), name);
        return KX_E_FILE_FIND;
    }
    if (!DeleteFileA(name)) {
        kxLogPrintfA(KX_E_DELETE_OR_MOVE, kxLogSevFailure, "%s: error %d deleting file <%s>",
                     function, static_cast<int>(GetLastError()), name);
        return KX_E_DELETE_OR_MOVE;
    }
    return KX_OK;
}

long RenameFile(const char* from, const char* to, bool replace) {
    if (from == nullptr || to == nullptr) return KX_E_BAD_ARGUMENT;
    if (replace) {
        const long status = RemoveFile(to);
        if (status != KX_OK) return status;
    }
    if (!MoveFileA(from, to)) {
        kxLogPrintfA(KX_E_DELETE_OR_MOVE, kxLogSevFailure, "%s: error %d moving file <%s> to <%s>",
                     "kxFileUtils::RenameFile", static_cast<int>(GetLastError()), from, to);
        return KX_E_DELETE_OR_MOVE;
    }
    return KX_OK;
}

long RenameDirectory(const char* from, const char* to, bool replace) {
    if (from == nullptr || to == nullptr) return KX_E_BAD_ARGUMENT;
    if (replace) CleanDirectory(to, true, false, nullptr);
    if (!MoveFileA(from, to)) {
        kxLogPrintfA(KX_E_DELETE_OR_MOVE, kxLogSevFailure, "%s: error %d moving dir <%s> to <%s>",
                     "kxFileUtils::RenameDirectory", static_cast<int>(GetLastError()), from, to);
        return KX_E_DELETE_OR_MOVE;
    }
    return KX_OK;
}

long GetUniqueFileName(const char* dir, const char* prefix, char* out) {
    if (dir == nullptr || prefix == nullptr || out == nullptr) return KX_E_BAD_ARGUMENT;
    const size_t dirLength = strlen(dir);
    if (dirLength + strlen(prefix) + 22 > MAX_PATH) return KX_E_BAD_ARGUMENT;
    const char* slash = (dirLength > 0 && dir[dirLength - 1] == '/') ? "" : "/";

    _SYSTEMTIME now;
    memset(&now, 0, sizeof now);
    GetSystemTime(&now);
    for (int attempt = 0; attempt < 30; ++attempt) {
        // Room for the longest stamp sixteen-bit fields can make, so nothing is ever cut.
        char candidate[MAX_PATH + 64];
        const int length = snprintf(candidate, sizeof candidate, "%s%s%s%d%02d%d%02d%02d%02d%02d_%03d",
                                    dir, slash, prefix, now.wYear, now.wMonth, now.wDayOfWeek,
                                    now.wDay, now.wHour, now.wMinute, now.wSecond,
                                    now.wMilliseconds);
        if (length < 0 || static_cast<size_t>(length) > MAX_PATH) return KX_E_BAD_ARGUMENT;
        bool exists = false;
        const long status = PathExists(candidate, exists, nullptr);
        if (status != KX_OK) return status;
        if (!exists) {
            memcpy(out, candidate, static_cast<size_t>(length) + 1);
            return KX_OK;
        }
        if (now.wMilliseconds < 999) {
            ++now.wMilliseconds;
        } else {
            GetSystemTime(&now);
        }
    }
    kxLogPrintfA(KX_E_NOT_FOUND, kxLogSevFailure, "%s: no free name for prefix <%s> in <%s>",
                 "kxFileUtils::GetUniqueFileName", prefix, dir);
    return KX_E_NOT_FOUND;
}

bool IsMissingError(DWORD error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND || error == 53;
}

long StatusFromLastError(DWORD error, long failure) {
    if (failure == KX_E_DIRECTORY && error == ERROR_ACCESS_DENIED) return KX_E_DIRECTORY_REFUSED;
    return failure;
}

}  // namespace kxFileUtils
