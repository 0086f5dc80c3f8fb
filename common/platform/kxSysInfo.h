// kxSysInfo: the answers Win32 code expects from GetSystemInfo, GetVersionEx and the machine and
// user names, read once per process from one record.
//
// On Linux only the processor count, page size, allocation granularity, computer name, NIS
// domain and user have real values. Everything else (architecture, address bounds, version
// numbers, the is-Windows flags, the system directory) is zero, false or empty on purpose, so
// that callers' Windows-specific branches stay off.
//
// Thread safety: the record is filled once, on first use or during static initialisation,
// whichever comes first; afterwards it is only read. String accessors never return null.
#pragma once

#include <cstdint>

namespace kxSysInfo {

struct KVersionInfo {
    // Shaped like SYSTEM_INFO.
    uint16_t wProcessorArchitecture;
    uint16_t wReserved;
    uint32_t dwPageSize;
    void* lpMinimumApplicationAddress;
    void* lpMaximumApplicationAddress;
    uint32_t dwActiveProcessorMask;
    uint32_t dwNumberOfProcessors;
    uint32_t dwProcessorType;
    uint32_t dwAllocationGranularity;
    uint16_t wProcessorLevel;
    uint16_t wProcessorRevision;

    // Shaped like OSVERSIONINFOEXA.
    uint32_t dwOSVersionInfoSize;
    uint32_t dwMajorVersion;
    uint32_t dwMinorVersion;
    uint32_t dwBuildNumber;
    uint32_t dwPlatformId;
    char szCSDVersion[128];
    uint16_t wServicePackMajor;
    uint16_t wServicePackMinor;
    uint16_t wSuiteMask;
    uint8_t wProductType;
    uint8_t wReserved2;

    // The first flag has no accessor.
    bool bFlag0;
    bool bIsNT;
    bool bIs9x;
    bool bIs95;
    bool bIs98OrGreater;
    bool bIs2KOrGreater;
    bool bIsXPOrGreater;
    bool bIsServer2003OrGreater;

    // Owned heap copies (array new), null when unknown.
    char* pszSystemDirectory;
    char* pszComputerName;
    char* pszDomainName;
    char* pszCurrentUser;

    // Zeroes the record and reads the system: USER, uname (node and NIS domain names),
    // online processors (1 if unknown), page size (0 if unknown). Frees earlier strings first.
    void Fill();
    // Frees the strings and sets them to null.
    void Release();
};

// The process-wide record. Constant-initialised to zero; filled before main, or earlier by the
// first accessor call from another static initialiser.
extern KVersionInfo g_VersionInfo;
// Returned in place of a null string.
extern const char g_EmptyStr[1];

uint16_t ProcessorArchitecture();
uint32_t NumberOfProcessors();
uint32_t PageSize();
uint32_t AllocationGranularity();
void* MinValidAddress();
void* MaxValidAddress();
bool IsWinNT();
bool IsWin9x();
bool IsWin95();
bool IsWin98OrGreater();
bool IsWin2KOrGreater();
bool IsWinXPOrGreater();
bool IsWinServer2003OrGreater();
uint32_t OsMajorVersion();
uint32_t OsMinorVersion();
uint32_t OsBuildNumber();
// The service-pack text buffer of the record (empty).
const char* OsCSDVersion();
uint16_t OsServicePackMajor();
uint16_t OsServicePackMinor();
uint16_t OsSuiteMask();
uint8_t OsProductType();

// Each returns the string or g_EmptyStr; the pointer stays valid until the process exits.
const char* GetSystemDirectoryA();
// This machine's name (the uname node name); the file layer and the RPC credentials use it.
const char* GetComputerNameA();
// The NIS domain name from uname, not the DNS domain.
const char* GetDomainName();
// The value of USER at start-up.
const char* GetCurrentUser();

// Allocates strlen(source) + 1 bytes with new[], copies source, stores the copy in target and
// returns it. The caller owns the copy (delete[]). Source must not be null.
char* AllocAndCopyString(const char* source, char*& target);
// AllocAndCopyString of the environment variable's value; null (target untouched) when unset.
char* GetEnv(const char* name, char*& target);

}  // namespace kxSysInfo
