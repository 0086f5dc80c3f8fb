// kxNetUtils: turns a server name into IPv4 addresses, and the socket-library start-up guard.
// Below the file layer because the file handles ask it whether a "host:path" names this machine
// (platform/KFileNameCache.h); the NFS client resolves its servers through it as well.
//
// Convention: functions return a status (base/kxStatus.h), 0 on success. Addresses are IPv4
// addresses in network byte order, held in `unsigned long` as the RPC layer takes them.
// Thread safety: every function may be called from any thread (the resolver is re-entrant).
#pragma once

#include <string>
#include <vector>

#include "base/kxStatus.h"

// The host name could not be resolved to an IPv4 address.
constexpr long KX_E_HOST_NOT_FOUND = kxStatus(0xE0FF012A);

namespace kxNetUtils {

// Appends the IPv4 addresses of `host` to `out`, in the resolver's order.
//   0                    at least one address appended
//   KX_E_BAD_ARGUMENT    host is null or empty (nothing logged)
//   KX_E_HOST_NOT_FOUND  no IPv4 result; logged with the resolver's h_errno
// Leading '\' and '/' are skipped, so "\\srv", "//srv" and "srv" name the same server.
// A name that starts with a digit and has exactly three dots is taken as a dotted address
// without asking the resolver. When it is malformed, inet_addr's 0xFFFFFFFF stays in `out`
// ahead of whatever the resolver finds: kept on purpose, callers of the single-address form
// rely on seeing that marker rather than an unrelated name-service answer.
// The flag is accepted for compatibility and not consulted.
long GetHostIPAddresses(const char* host, std::vector<unsigned long>& out, bool flag = false);

// The first address GetHostIPAddresses finds; `address` is untouched on failure.
long GetHostIPAddress(const char* host, unsigned long& address, bool flag = false);

// Socket-library start-up guard. Sockets need no start-up on this platform: it only records
// that Startup ran. Cleanup and the destructor do nothing.
class WinsockInitHelper {
public:
    WinsockInitHelper(unsigned short version, bool startNow);
    ~WinsockInitHelper() = default;
    WinsockInitHelper(const WinsockInitHelper&) = delete;
    WinsockInitHelper& operator=(const WinsockInitHelper&) = delete;

    // Marks the helper started and returns 0.
    long Startup(unsigned short version);
    void Cleanup() {}
    bool Started() const { return m_bStarted; }

private:
    bool m_bStarted = false;
};

}  // namespace kxNetUtils
