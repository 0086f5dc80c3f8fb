// File-tree chores on top of the Win32 compatibility functions (platform/kxWin32.h): joining
// names, testing existence, removing and renaming files and directories, creating a directory
// with its parents, emptying, deleting and copying trees, and making unique file names.
//
// Convention: every function returning `long` returns a status: 0 success, negative failure.
// Besides the codes below they return KX_E_BAD_ARGUMENT (0x80000003) for a null argument or a
// name that is not what the operation needs, 0xE0020107 when a file's existence cannot be
// checked, and KX_E_OUT_OF_MEMORY. Every failure is logged through kxLogPrintfA with the status
// as log id, severity 4 unless stated, as "<qualified function name>: ..." with file names in
// angle brackets. Win32 error numbers in messages are the errno left by the compatibility call.
//
// Enumeration: CleanDirectory and CopyDirectoryTree list directories with KDirectory, which in
// this release ends every enumeration at its first match without handing anything out (see
// files/KDirectory.h). So they never see the entries of a directory: a non-empty directory is
// never emptied, and a tree is copied as its top directory alone. This is deliberate.
//
// Thread safety: the functions keep no state of their own and may run in several threads; they
// race on the file system like any other file operation. Their clock and file calls go through
// the process Env (base/kxEnv.h), which is how tests fix the time GetUniqueFileName reads.
#pragma once

#include <cstdint>
#include <string>

#include "base/kxStatus.h"
#include "base/kxWin32Types.h"

class KCString;

constexpr long KX_E_DELETE_OR_MOVE = kxStatus(0xE0020108);      // delete or move failed
constexpr long KX_E_DIRECTORY_REFUSED = kxStatus(0xE0FF0119);   // mkdir failed with error 5
// A file copy that failed: 0x80070000 | (errno & 0xFFFF). When the copy left no positive errno
// the low half is 0xFFFF, so the status never reads as success.
constexpr long kxCopyFailureStatus(int error) {
    return kxStatus(0x80070000u | (error > 0 ? static_cast<uint32_t>(error) & 0xFFFFu : 0xFFFFu));
}

namespace kxFileUtils {

// One entry of a directory listing.
struct FILE_INFO {
    std::string name;
    uint32_t attributes;  // FILE_ATTRIBUTE_DIRECTORY for a directory
};

// Appends `name` to `path` behind `separator` (0 means "/"). The separator is added when path is
// empty or does not already end with it, and every leading copy of it in name is skipped. Only
// the given separator counts, and an empty path gets one too (unlike kxPath::Append). The char*
// form needs room for strlen(path) + 1 + strlen(name) + 1 bytes. Null path does nothing; null
// name appends the separator only.
void AppendNameToPath(char* path, const char* name, char separator);
void AppendNameToPath(std::string& path, const char* name, char separator);
void AppendNameToPath(KCString& path, const char* name, char separator);

// The last "/" or "\" of p, or null.
const char* GetLastSlash(const char* p);
char* GetLastSlash(char* p);
// The first "/"; with alsoBackslash, whichever of the first "/" and the first "\" comes first
// (the mirror of kxPath::GetNextSlash). Null when there is none or p is null.
const char* GetNextSlash(const char* p, bool alsoBackslash);
char* GetNextSlash(char* p, bool alsoBackslash);

// exists = whether name is there; its attributes (FILE_ATTRIBUTE_DIRECTORY, _NORMAL or 0) are
// stored through `attributes` when it is and that is given. Missing (error 2, 3 or 53) is not an
// error. Any other failure, such as a file where a directory is expected or a name too long for
// the system, is "kxFileUtils::PathExistsA: error <n> checking existence of <name>", 0xE0020107.
long PathExists(const char* name, bool& exists, uint32_t* attributes);
// The same with the full attribute record (null data: KX_E_BAD_ARGUMENT). A name holding ":" is
// examined after its first ":", as GetFileAttributesExA does.
long PathExistsEx(const char* name, bool& exists, _WIN32_FILE_ATTRIBUTE_DATA* data);

// Deletes a file. A missing file is success; a directory is refused (KX_E_BAD_ARGUMENT,
// "<name> is a directory"); unlink failure: KX_E_DELETE_OR_MOVE, "error <n> deleting file".
long RemoveFile(const char* name);
// Moves a file; with `replace`, RemoveFile(to) first and its failure is returned. The move
// replaces an existing target file even without `replace` (rename semantics).
// Failure: KX_E_DELETE_OR_MOVE, "error <n> moving file <from> to <to>".
long RenameFile(const char* from, const char* to, bool replace);
// Moves a directory; with `replace`, CleanDirectory(to, true, false, null) first, whose result
// is only logged: the move itself decides (an empty target is replaced, a non-empty one makes
// the move fail). Failure: KX_E_DELETE_OR_MOVE, "error <n> moving dir <from> to <to>".
long RenameDirectory(const char* from, const char* to, bool replace);

// Creates `dir` and every missing parent. *created (may be null) tells whether the last
// component was made by this call. Empty name: 0. Trailing "/" are dropped and runs of "/"
// count as one. Names above 32767 characters: KX_E_BAD_ARGUMENT, "DirName <...> too long".
// An existing non-directory on the way: KX_E_BAD_ARGUMENT, "<name> exists but is not a
// directory". mkdir failure: KX_E_DIRECTORY_REFUSED when errno is 5, else KX_E_DIRECTORY,
// "error <n> creating directory <name>'" (with its trailing apostrophe), and each level above
// logs "error trying to create parent dir <parent>". A directory that appears between the
// check and mkdir (another process) counts as existing.
long CreateDirectoryTree(const char* dir, _SECURITY_ATTRIBUTES* sa, bool* created);

// Removes the entries of `dir` that match `spec` (null: "*"), cleaning and deleting matching
// sub-directories with the same spec, then removes dir itself when deleteDirectory is set and
// no entry failed. A missing dir is success; a file is refused. Logs "<deleting|cleaning>
// directory <dir> with file spec <spec>" (0x60FFFF01, severity 1) first. An entry that fails
// logs "error deleting <path>" (severity 4) and stops with stopOnError, else logs "unable to
// delete <path>" (severity 2) and goes on. The result is the status of the last step taken, so
// an earlier failure followed by successes returns 0 with the directory kept (deliberate).
// Because of the enumeration quirk above, only an empty directory is ever removed: a non-empty
// one with deleteDirectory gives KX_E_DIRECTORY ("error 39 deleting directory") and is kept.
long CleanDirectory(const char* dir, bool deleteDirectory, bool stopOnError, const char* spec);

// Creates `to` (with its parents) and copies the files of `from` into it, and with `recursive`
// its sub-directories. Names are joined with kxPath::Append, the separator chosen by the path's
// syntax ("/" for a relative name). Failures: the destination's status ("error creating
// destination directory"); a sub-tree's status ("error copying sub-directory tree"); a file's
// kxCopyFailureStatus(errno) ("error <n> copying file <from> to <to>"). Because of the
// enumeration quirk above, only the top directory is created and nothing is copied into it.
long CopyDirectoryTree(const char* from, const char* to, _SECURITY_ATTRIBUTES* sa, bool recursive);

// Writes into `out` (at least MAX_PATH + 1 bytes) the first free name of the form
// dir + "/" + prefix + time stamp, the "/" left out when dir ends with one. The stamp is the
// current UTC time as year, month, day of the week, day, hour, minute, second, "_",
// milliseconds ("%d%02d%d%02d%02d%02d%02d_%03d"): the day of the week between month and day is
// deliberate, existing names depend on it. A taken name is retried with the milliseconds
// increased by one while below 999, else with the clock read again, 30 candidates in all.
// Null arguments, or strlen(dir) + strlen(prefix) + 22 above MAX_PATH: KX_E_BAD_ARGUMENT.
// All 30 taken: KX_E_NOT_FOUND. A failed existence check is returned.
long GetUniqueFileName(const char* dir, const char* prefix, char* out);

// How this layer reads the last error (platform/kxPlatformErrors.h) that a failed
// compatibility call left, in one place. Missing: file, path or network path not found (2, 3,
// 53), which the existence checks report as "not there" rather than as a failure.
bool IsMissingError(DWORD error);
// The status of a failed call: `failure`, except that a directory that could not be made
// (KX_E_DIRECTORY) with access denied (5) is KX_E_DIRECTORY_REFUSED.
long StatusFromLastError(DWORD error, long failure);

}  // namespace kxFileUtils
