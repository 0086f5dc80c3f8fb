// KFileNameCache: the process-wide caches that tell whether a host name is this machine, so that
// KFile can open "host:path" locally instead of through the remote handle.
//
// This machine's addresses come from resolving its own name (kxSysInfo::GetComputerNameA).
// Every name seen since the last refresh is remembered as local or remote; names that do not
// resolve are not remembered and are looked up again next time. The caches are rebuilt lazily,
// by the first lookup after they are more than 12 hours old. Only the machine's own name is
// known without a lookup: "localhost" is local only if it resolves to one of those addresses.
//
// Thread safety: all functions may be called from any thread; one critical section guards the
// caches for the whole of a lookup, name resolution included.
#pragma once

#include <string>
#include <vector>

namespace KFileNameCache {

// True when host names this machine (exact, case-sensitive comparison with known names).
bool IsLocalServer(const std::string& host);

// For tests: the known names, and a way to age the caches past their refresh time.
std::vector<std::string> KnownLocalNames();
std::vector<std::string> KnownRemoteNames();
void Expire();

}  // namespace KFileNameCache
