#include "platform/kxNetUtils.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

#include "base/kxLog.h"

namespace kxNetUtils {

namespace {

bool LooksDotted(const char* name) {
    if (*name < '0' || *name > '9') return false;
    int dots = 0;
    for (const char* p = name; *p; ++p) dots += (*p == '.');
    return dots == 3;
}

}  // namespace

long GetHostIPAddresses(const char* host, std::vector<unsigned long>& out, bool /*flag*/) {
    if (host == nullptr || *host == '\0') return KX_E_BAD_ARGUMENT;
    while (*host == '\\' || *host == '/') ++host;

    if (LooksDotted(host)) {
        const in_addr_t a = inet_addr(host);
        out.push_back(static_cast<unsigned long>(a));
        // The value just appended decides, not whatever the caller's vector held before.
        if (a != INADDR_NONE) return KX_OK;
    }

    hostent result;
    hostent* found = nullptr;
    char work[1024];
    int herr = 0;
    const int rc = gethostbyname_r(host, &result, work, sizeof work, &found, &herr);
    if (rc != 0 || found == nullptr || found->h_addrtype != AF_INET || found->h_length != 4) {
        kxLogPrintfA(KX_E_HOST_NOT_FOUND, kxLogSevFailure,
                     "%s: error %d getting IP address for '%s'", "kxNetUtils::GetHostIPAddress",
                     herr, host);
        return KX_E_HOST_NOT_FOUND;
    }
    for (char** p = found->h_addr_list; *p != nullptr; ++p) {
        in_addr_t a;
        memcpy(&a, *p, sizeof a);
        out.push_back(static_cast<unsigned long>(a));
    }
    return KX_OK;
}

long GetHostIPAddress(const char* host, unsigned long& address, bool flag) {
    std::vector<unsigned long> all;
    const long rc = GetHostIPAddresses(host, all, flag);
    if (rc == KX_OK && !all.empty()) address = all.front();
    return rc;
}

WinsockInitHelper::WinsockInitHelper(unsigned short version, bool startNow) {
    if (startNow) Startup(version);
}

long WinsockInitHelper::Startup(unsigned short /*version*/) {
    m_bStarted = true;
    return KX_OK;
}

}  // namespace kxNetUtils
