// Win32-shaped records, integer types and constants shared by the whole library.
//
// The library is written against a Win32-shaped interface and runs on Unix; these are its own
// declarations of the records and values that interface uses. Every field is a fixed-width type,
// so the records have the same size and layout on the 64-bit and the 32-bit target.
//
// Error convention of the compatibility functions (platform/kxWin32.h): a BOOL result (1 success,
// 0 failure) with a Win32 error number left in errno where one is listed below, otherwise the Unix
// errno of the failing call.
#pragma once

#include <cstddef>
#include <cstdint>

typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
// Win32 truth value: unsigned 32-bit, 1 for success and 0 for failure.
typedef uint32_t BOOL;

// Guarded because the Sun RPC headers define the same macros.
#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

// 100-nanosecond ticks since 1601-01-01 00:00:00 UTC, as two 32-bit halves.
struct _FILETIME {
    uint32_t dwLowDateTime;
    uint32_t dwHighDateTime;
};
typedef _FILETIME FILETIME;

// A _FILETIME's halves as one count of ticks, and back.
inline uint64_t kxFileTimeToTicks(const _FILETIME& ft) {
    return (static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
}
inline _FILETIME kxFileTimeFromTicks(uint64_t ticks) {
    return _FILETIME{static_cast<uint32_t>(ticks), static_cast<uint32_t>(ticks >> 32)};
}

struct _SYSTEMTIME {
    uint16_t wYear;       // full year
    uint16_t wMonth;      // 1-12
    uint16_t wDayOfWeek;  // 0 = Sunday
    uint16_t wDay;        // 1-31
    uint16_t wHour;
    uint16_t wMinute;
    uint16_t wSecond;
    uint16_t wMilliseconds;
};
typedef _SYSTEMTIME SYSTEMTIME;

union _LARGE_INTEGER {
    struct {
        uint32_t LowPart;
        int32_t HighPart;
    };
    struct {
        uint32_t LowPart;
        int32_t HighPart;
    } u;
    int64_t QuadPart;
};
typedef _LARGE_INTEGER LARGE_INTEGER;

struct _WIN32_FILE_ATTRIBUTE_DATA {
    uint32_t dwFileAttributes;
    _FILETIME ftCreationTime;
    _FILETIME ftLastAccessTime;
    _FILETIME ftLastWriteTime;
    uint32_t nFileSizeHigh;
    uint32_t nFileSizeLow;
};
typedef _WIN32_FILE_ATTRIBUTE_DATA WIN32_FILE_ATTRIBUTE_DATA;

constexpr size_t MAX_PATH = 260;

struct _WIN32_FIND_DATAA {
    uint32_t dwFileAttributes;
    _FILETIME ftCreationTime;
    _FILETIME ftLastAccessTime;
    _FILETIME ftLastWriteTime;
    uint32_t nFileSizeHigh;
    uint32_t nFileSizeLow;
    uint32_t dwReserved0;
    uint32_t dwReserved1;
    char cFileName[MAX_PATH];
    char cAlternateFileName[14];
};
typedef _WIN32_FIND_DATAA WIN32_FIND_DATAA;

struct _GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
};
typedef _GUID GUID;

// Opaque: only ever passed through. KFileUnix::CreateFileA reads the pointer's value itself as
// permission bits.
struct _SECURITY_ATTRIBUTES;
struct _OVERLAPPED;

static_assert(sizeof(_FILETIME) == 8, "_FILETIME is two 32-bit halves");
static_assert(sizeof(_SYSTEMTIME) == 16, "_SYSTEMTIME is eight 16-bit fields");
static_assert(sizeof(_LARGE_INTEGER) == 8, "_LARGE_INTEGER is 64 bits");
static_assert(sizeof(_WIN32_FILE_ATTRIBUTE_DATA) == 36, "_WIN32_FILE_ATTRIBUTE_DATA layout");
static_assert(sizeof(_WIN32_FIND_DATAA) == 320, "_WIN32_FIND_DATAA is 318 bytes plus alignment");
static_assert(sizeof(_GUID) == 16, "_GUID is 16 bytes");
#if KX_TARGET_32BIT
static_assert(offsetof(_WIN32_FIND_DATAA, cFileName) == 44, "_WIN32_FIND_DATAA layout");
static_assert(offsetof(_WIN32_FIND_DATAA, cAlternateFileName) == 304, "_WIN32_FIND_DATAA layout");
#endif

// FILETIME arithmetic: the Unix epoch (1970-01-01) as a FILETIME, and the seconds between the two.
constexpr uint64_t kxFileTimeUnixEpoch = 116444736000000000ULL;
constexpr uint64_t kxFileTimeEpochSeconds = 11644473600ULL;
constexpr uint64_t kxFileTimeTicksPerSecond = 10000000ULL;

// Wait time-out meaning "for ever".
constexpr uint32_t INFINITE = 0xFFFFFFFFu;

// Access rights (CreateFileA).
constexpr uint32_t GENERIC_READ = 0x80000000u;
constexpr uint32_t GENERIC_WRITE = 0x40000000u;
constexpr uint32_t GENERIC_EXECUTE = 0x20000000u;
constexpr uint32_t GENERIC_ALL = 0x10000000u;

// Share modes (accepted and ignored).
constexpr uint32_t FILE_SHARE_READ = 0x1;
constexpr uint32_t FILE_SHARE_WRITE = 0x2;
constexpr uint32_t FILE_SHARE_DELETE = 0x4;

// Creation dispositions.
constexpr uint32_t CREATE_NEW = 1;
constexpr uint32_t CREATE_ALWAYS = 2;
constexpr uint32_t OPEN_EXISTING = 3;
constexpr uint32_t OPEN_ALWAYS = 4;
constexpr uint32_t TRUNCATE_EXISTING = 5;

// File attributes. Only DIRECTORY and NORMAL are ever produced; TEMPORARY is accepted as a flag.
constexpr uint32_t FILE_ATTRIBUTE_DIRECTORY = 0x10;
constexpr uint32_t FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr uint32_t FILE_ATTRIBUTE_TEMPORARY = 0x100;
constexpr uint32_t INVALID_FILE_ATTRIBUTES = 0xFFFFFFFFu;

// Information level of GetFileAttributesExA.
enum GET_FILEEX_INFO_LEVELS { GetFileExInfoStandard = 0, GetFileExMaxInfoLevel = 1 };

// Move methods (SetFilePointer).
constexpr uint32_t FILE_BEGIN = 0;
constexpr uint32_t FILE_CURRENT = 1;
constexpr uint32_t FILE_END = 2;
constexpr uint32_t INVALID_SET_FILE_POINTER = 0xFFFFFFFFu;
constexpr uint32_t INVALID_FILE_SIZE = 0xFFFFFFFFu;

// Page protections (file mappings, VirtualAlloc).
constexpr uint32_t PAGE_NOACCESS = 0x01;
constexpr uint32_t PAGE_READONLY = 0x02;
constexpr uint32_t PAGE_READWRITE = 0x04;
constexpr uint32_t PAGE_WRITECOPY = 0x08;

// View access (MapViewOfFile).
constexpr uint32_t FILE_MAP_COPY = 0x0001;
constexpr uint32_t FILE_MAP_WRITE = 0x0002;
constexpr uint32_t FILE_MAP_READ = 0x0004;
constexpr uint32_t FILE_MAP_ALL_ACCESS = 0xF001F;

// VirtualAlloc / VirtualFree types.
constexpr uint32_t MEM_COMMIT = 0x1000;
constexpr uint32_t MEM_RESERVE = 0x2000;
constexpr uint32_t MEM_DECOMMIT = 0x4000;
constexpr uint32_t MEM_RELEASE = 0x8000;

// Win32 error numbers left in errno by the compatibility functions.
constexpr int ERROR_SUCCESS = 0;
constexpr int ERROR_FILE_NOT_FOUND = 2;
constexpr int ERROR_PATH_NOT_FOUND = 3;
constexpr int ERROR_ACCESS_DENIED = 5;
constexpr int ERROR_INVALID_PARAMETER = 87;
constexpr int ERROR_INSUFFICIENT_BUFFER = 122;
constexpr int ERROR_ALREADY_EXISTS = 183;  // KMutex::Create found the named mutex already there
