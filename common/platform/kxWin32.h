// Win32 compatibility functions: the Win32 calls the library uses outside the file handles,
// with their Win32 names and shapes and Unix semantics. The time calls live in base (the date
// values there need them) and are included from here for callers of the whole set.
//
// Convention: functions return a BOOL (1 success, 0 failure) unless stated otherwise. On failure
// the last error (GetLastError, platform/kxPlatformErrors.h) holds a Win32 error number where
// one is listed (2 not found, 5 access denied, 87 invalid parameter, 122 buffer too small), else
// the Unix errno of the failing call. The last error is errno itself: callers written against
// the Win32 model read it there, so it stays errno. None of these functions logs or throws.
// Their system calls go through the process Env (base/kxEnv.h), read at each call.
//
// Thread safety: all may be called from any thread (CoCreateGuid uses the reentrant crypt_r).
#pragma once

#include <cstddef>

#include "base/kxWin32Time.h"
#include "base/kxWin32Types.h"
#include "platform/kxPlatformErrors.h"

// Memory ------------------------------------------------------------------------------------

// Accepts only address null, type MEM_COMMIT exactly and protection PAGE_READWRITE exactly;
// anything else (MEM_COMMIT|MEM_RESERVE included) returns null. The memory is 65536-byte
// aligned and not cleared; release it with VirtualFree(p, 0, MEM_RELEASE).
void* VirtualAlloc(void* address, size_t size, DWORD allocationType, DWORD protect);
// Accepts only size 0 and type MEM_RELEASE exactly, else returns FALSE.
BOOL VirtualFree(void* address, size_t size, DWORD freeType);

// File attributes ---------------------------------------------------------------------------

// FILE_ATTRIBUTE_DIRECTORY for a directory, FILE_ATTRIBUTE_NORMAL for a regular file, 0 for
// anything else (FIFO, device, socket). INVALID_FILE_ATTRIBUTES on failure: errno 87 for a null
// name, 2 when missing, 5 when access is denied, else the Unix errno of stat.
DWORD GetFileAttributesA(const char* name);
// Level must be GetFileExInfoStandard. A name containing ':' is examined locally after the first
// ':' (host part dropped without any check: deliberate). Creation time and the size's high half
// are always 0; access and write times are whole seconds.
BOOL GetFileAttributesExA(const char* name, GET_FILEEX_INFO_LEVELS level,
                          _WIN32_FILE_ATTRIBUTE_DATA* data);
// Does nothing and succeeds: Unix has no matching attributes.
BOOL SetFileAttributesA(const char* name, DWORD attributes);

// Files and directories ---------------------------------------------------------------------

// Copies the contents through a read-only mapping of the source written in one write, falling
// back to a 64 KiB buffered copy when that fails (always for an empty source). A new target
// takes the source's mode less the umask; an existing target keeps its mode and is truncated.
// Times and ownership are not copied. With failIfExists, an existing target fails the call and
// is left untouched.
BOOL CopyFileA(const char* existingName, const char* newName, BOOL failIfExists);
// mkdir with mode 0777 (less the umask); the security attributes are ignored.
BOOL CreateDirectoryA(const char* name, _SECURITY_ATTRIBUTES* securityAttributes);
BOOL RemoveDirectoryA(const char* name);
// rename(): an existing target is replaced, unlike on Windows.
BOOL MoveFileA(const char* existingName, const char* newName);
BOOL DeleteFileA(const char* name);

// Identifiers, temporary directory, wildcards ----------------------------------------------

// A time-based identifier: Data1..Data3 from the time, Data4[0..1] from rand_r seeded with the
// time, Data4[2..7] from the classic DES crypt() of the host name with the salt "kx". Identifiers
// made in the same microsecond on the same host are equal. Returns 0; a null argument does
// nothing.
long CoCreateGuid(_GUID* guid);

// Writes $TMP, else $TEMP, else "./", with a trailing '/', into buffer and returns the number of
// characters written without the terminator. Needs room for the text plus a '/' and the
// terminator even when the text already ends with '/': otherwise errno 122 and 0.
DWORD GetTempPathA(DWORD bufferLength, char* buffer);

// fnmatch(pattern, name, FNM_NOESCAPE): '*', '?' and brackets; a backslash is an ordinary
// character; wildcards match '/' and a leading '.'.
BOOL PathMatchSpec(const char* name, const char* pattern);
