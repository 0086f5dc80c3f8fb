#include "platform/kxSysInfo.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace kxSysInfo {

KVersionInfo g_VersionInfo;
const char g_EmptyStr[1] = "";

namespace {

// Fills the record on first use, so that static initialisers in other files that run before
// this file's own see the real values.
const KVersionInfo& Info() {
    static const bool filled = (g_VersionInfo.Fill(), true);
    (void)filled;
    return g_VersionInfo;
}

const char* OrEmpty(const char* text) { return text != nullptr ? text : g_EmptyStr; }

// Fills the record before main and frees its strings when the process ends.
struct Lifetime {
    Lifetime() { Info(); }
    ~Lifetime() { g_VersionInfo.Release(); }
    Lifetime(const Lifetime&) = delete;
    Lifetime& operator=(const Lifetime&) = delete;
} g_Lifetime;

}  // namespace

void KVersionInfo::Release() {
    for (char** text : {&pszSystemDirectory, &pszComputerName, &pszDomainName, &pszCurrentUser}) {
        delete[] *text;
        *text = nullptr;
    }
}

void KVersionInfo::Fill() {
    Release();
    memset(static_cast<void*>(this), 0, sizeof(*this));
    GetEnv("USER", pszCurrentUser);
    struct utsname names;
    if (uname(&names) == 0) {
        AllocAndCopyString(names.nodename, pszComputerName);
        AllocAndCopyString(names.domainname, pszDomainName);
    }
    const long processors = sysconf(_SC_NPROCESSORS_ONLN);
    dwNumberOfProcessors = processors > 0 ? static_cast<uint32_t>(processors) : 1;
    const long pageSize = sysconf(_SC_PAGESIZE);
    dwPageSize = pageSize > 0 ? static_cast<uint32_t>(pageSize) : 0;
    dwAllocationGranularity = dwPageSize;
}

char* AllocAndCopyString(const char* source, char*& target) {
    const size_t length = strlen(source);
    char* copy = new char[length + 1];
    memcpy(copy, source, length + 1);
    target = copy;
    return copy;
}

char* GetEnv(const char* name, char*& target) {
    const char* value = getenv(name);
    if (value == nullptr) return nullptr;
    return AllocAndCopyString(value, target);
}

uint16_t ProcessorArchitecture() { return Info().wProcessorArchitecture; }
uint32_t NumberOfProcessors() { return Info().dwNumberOfProcessors; }
uint32_t PageSize() { return Info().dwPageSize; }
uint32_t AllocationGranularity() { return Info().dwAllocationGranularity; }
void* MinValidAddress() { return Info().lpMinimumApplicationAddress; }
void* MaxValidAddress() { return Info().lpMaximumApplicationAddress; }
bool IsWinNT() { return Info().bIsNT; }
bool IsWin9x() { return Info().bIs9x; }
bool IsWin95() { return Info().bIs95; }
bool IsWin98OrGreater() { return Info().bIs98OrGreater; }
bool IsWin2KOrGreater() { return Info().bIs2KOrGreater; }
bool IsWinXPOrGreater() { return Info().bIsXPOrGreater; }
bool IsWinServer2003OrGreater() { return Info().bIsServer2003OrGreater; }
uint32_t OsMajorVersion() { return Info().dwMajorVersion; }
uint32_t OsMinorVersion() { return Info().dwMinorVersion; }
uint32_t OsBuildNumber() { return Info().dwBuildNumber; }
const char* OsCSDVersion() { return Info().szCSDVersion; }
uint16_t OsServicePackMajor() { return Info().wServicePackMajor; }
uint16_t OsServicePackMinor() { return Info().wServicePackMinor; }
uint16_t OsSuiteMask() { return Info().wSuiteMask; }
uint8_t OsProductType() { return Info().wProductType; }

const char* GetSystemDirectoryA() { return OrEmpty(Info().pszSystemDirectory); }
const char* GetComputerNameA() { return OrEmpty(Info().pszComputerName); }
const char* GetDomainName() { return OrEmpty(Info().pszDomainName); }
const char* GetCurrentUser() { return OrEmpty(Info().pszCurrentUser); }

}  // namespace kxSysInfo
