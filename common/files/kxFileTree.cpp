// The tree operations of kxFileUtils: creating a directory with its parents, cleaning or
// deleting a tree, and copying one.

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "base/KBuffer.h"
#include "files/KDirectory.h"
#include "files/kxFileUtils.h"
#include "files/kxPath.h"
#include "platform/kxDirectoryTree.h"
#include "base/kxLog.h"
#include "platform/kxPlatformErrors.h"
#include "platform/kxWin32.h"

namespace kxFileUtils {
namespace {

constexpr size_t kMaxDirName = 32767;

const char* const kCreateTree = "kxFileUtils::CreateDirectoryTree";

bool IsDots(const char* name) { return strcmp(name, ".") == 0 || strcmp(name, "..") == 0; }

// Every entry `pattern` matches, "." and ".." left out.
std::vector<FILE_INFO> List(const std::string& pattern, const char* caller) {
    std::vector<FILE_INFO> entries;
    KDirectory directory;
    directory.Init(pattern.c_str());
    _WIN32_FIND_DATAA data;
    while (directory.GetNext(&data, caller)) {
        if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && IsDots(data.cFileName)) continue;
        entries.push_back({data.cFileName, data.dwFileAttributes});
    }
    return entries;
}

// Joins by the syntax of `base`; a relative base, which has no syntax of its own, takes "/".
std::string Join(const char* base, const std::string& name) {
    std::string path = base;
    if (!kxPath::Append(path, name.c_str(), '\0')) kxPath::Append(path, name.c_str(), '/');
    return path;
}

// The file utilities' rules for the shared walk: "/" alone separates levels, existence is
// checked by PathExists, and every failure is logged.
class TreeBuilder : public kxDirectoryTree {
public:
    TreeBuilder() : kxDirectoryTree("/") {}

private:
    long Examine(const char* level, bool& missing) override {
        bool exists = false;
        uint32_t attributes = 0;
        const long status = PathExists(level, exists, &attributes);
        missing = !exists;
        if (status != KX_OK || !exists || (attributes & FILE_ATTRIBUTE_DIRECTORY)) return status;
        kxLogPrintfA(KX_E_BAD_ARGUMENT, kxLogSevFailure, "%s: <%s> exists but is not a directory",
                     kCreateTree, level);
        return KX_E_BAD_ARGUMENT;
    }
    long CreateFailed(const char* level, int error) override {
        const long status = StatusFromLastError(static_cast<DWORD>(error), KX_E_DIRECTORY);
        kxLogPrintfA(status, kxLogSevFailure, "%s: error %d creating directory <%s>'", kCreateTree,
                     error, level);
        return status;
    }
    void ParentFailed(long status, const char* parent) override {
        kxLogPrintfA(status, kxLogSevFailure, "%s: error trying to create parent dir <%s>",
                     kCreateTree, parent);
    }
};

}  // namespace

long CreateDirectoryTree(const char* dir, _SECURITY_ATTRIBUTES* sa, bool* created) {
    if (created != nullptr) *created = false;
    if (dir == nullptr) return KX_E_BAD_ARGUMENT;
    size_t length = strlen(dir);
    if (length == 0) return KX_OK;
    if (length > kMaxDirName) {
        kxLogPrintfA(KX_E_BAD_ARGUMENT, kxLogSevFailure, "%s: DirName <%.100s> too long, %lu chars",
                     kCreateTree, dir, static_cast<unsigned long>(length));
        return KX_E_BAD_ARGUMENT;
    }
    char local[MAX_PATH + 1];
    KBuffer heap;
    char* name = local;
    if (length > MAX_PATH) {
        const long status = heap.Resize(static_cast<unsigned long>(length) + 1, kCreateTree);
        if (status != KX_OK) return status;
        name = reinterpret_cast<char*>(heap.GetPtr(0, static_cast<unsigned long>(length) + 1));
    }
    memcpy(name, dir, length + 1);
    while (length > 1 && name[length - 1] == '/') name[--length] = '\0';
    TreeBuilder builder;
    return builder.Make(name, length, sa, created);
}

long CleanDirectory(const char* dir, bool deleteDirectory, bool stopOnError, const char* spec) {
    const char* const function = "kxFileUtils::CleanDirectory";
    bool exists = false;
    uint32_t attributes = 0;
    long status = PathExists(dir, exists, &attributes);
    if (status != KX_OK || !exists) return status;
    if (spec == nullptr) spec = "*";
    kxLogPrintfA(KX_S_INFORMATION, kxLogSevProgress, "%s: %s directory <%s> with file spec <%s>",
                 function, deleteDirectory ? "deleting" : "cleaning", dir, spec);
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        kxLogPrintfA(KX_E_BAD_ARGUMENT, kxLogSevFailure, "%s: <%s> is not a directory", function,
                     dir);
        return KX_E_BAD_ARGUMENT;
    }
    // The compatibility layer never reports read-only today; kept for layers that do.
    if ((attributes & 0x01) && !SetFileAttributesA(dir, attributes & ~0x01u)) {
        const long failed = KX_E_FILE_FIND;
        kxLogPrintfA(failed, kxLogSevFailure,
                     "%s: error %d setting read-only directory <%s> to be writable", function,
                     static_cast<int>(GetLastError()), dir);
        return failed;
    }

    std::string pattern = dir;
    AppendNameToPath(pattern, spec, '/');
    bool anyFailed = false;
    for (const FILE_INFO& entry : List(pattern, function)) {
        std::string path = dir;
        AppendNameToPath(path, entry.name.c_str(), '/');
        status = (entry.attributes & FILE_ATTRIBUTE_DIRECTORY)
                     ? CleanDirectory(path.c_str(), true, stopOnError, spec)
                     : RemoveFile(path.c_str());
        if (status == KX_OK) continue;
        anyFailed = true;
        if (stopOnError) {
            kxLogPrintfA(status, kxLogSevFailure, "%s: error deleting <%s>", function,
                         path.c_str());
            break;
        }
        kxLogPrintfA(status, kxLogSevWarning, "%s: unable to delete <%s>", function, path.c_str());
    }
    if (deleteDirectory && !anyFailed) {
        if (!RemoveDirectoryA(dir)) {
            kxLogPrintfA(KX_E_DIRECTORY, kxLogSevFailure, "%s: error %d deleting directory <%s>",
                         function, static_cast<int>(GetLastError()), dir);
            return KX_E_DIRECTORY;
        }
        return KX_OK;
    }
    return status;
}

long CopyDirectoryTree(const char* from, const char* to, _SECURITY_ATTRIBUTES* sa, bool recursive) {
    const char* const function = "kxFileUtils::CopyDirectoryTree";
    if (from == nullptr || to == nullptr) return KX_E_BAD_ARGUMENT;
    long status = CreateDirectoryTree(to, sa, nullptr);
    if (status != KX_OK) {
        kxLogPrintfA(status, kxLogSevFailure, "%s: error creating destination directory", function);
        return status;
    }
    for (const FILE_INFO& entry : List(Join(from, "*"), function)) {
        const std::string source = Join(from, entry.name);
        const std::string target = Join(to, entry.name);
        if (entry.attributes & FILE_ATTRIBUTE_DIRECTORY) {
            if (!recursive || IsDots(entry.name.c_str())) continue;
            status = CopyDirectoryTree(source.c_str(), target.c_str(), sa, true);
            if (status != KX_OK) {
                kxLogPrintfA(status, kxLogSevFailure,
                             "%s: error copying sub-directory tree <%s> to <%s>", function,
                             source.c_str(), target.c_str());
                return status;
            }
        } else if (!CopyFileA(source.c_str(), target.c_str(), FALSE)) {
            const int error = static_cast<int>(GetLastError());
            status = kxCopyFailureStatus(error);
            kxLogPrintfA(status, kxLogSevFailure, "%s: error %d copying file <%s> to <%s>",
                         function, error, source.c_str(), target.c_str());
            return status;
        }
    }
    return KX_OK;
}

}  // namespace kxFileUtils
