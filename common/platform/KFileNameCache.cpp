#include "platform/KFileNameCache.h"

#include <algorithm>

#include "base/KCOleDateTime.h"
#include "base/KCOleDateTimeSpan.h"
#include "platform/kxNetUtils.h"
#include "base/KCriticalSection.h"
#include "platform/kxSysInfo.h"

namespace {

struct Caches {
    std::vector<unsigned long> localAddresses;
    std::vector<std::string> localNames;
    std::vector<std::string> remoteNames;
    KCriticalSection lock;
    KCOleDateTime refreshed;  // day 0 (1899): the first lookup refreshes
    const KCOleDateTimeSpan maxAge{0, 12, 0, 0};
};

// Built on first use, so that lookups from other static initialisers find it ready; never
// destroyed, so that lookups during exit still work.
Caches& TheCaches() {
    static Caches* caches = new Caches;
    return *caches;
}

class Hold {
public:
    explicit Hold(const KCriticalSection& cs) : m_cs(cs) { m_cs.Lock(); }
    ~Hold() { m_cs.Unlock(); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

private:
    const KCriticalSection& m_cs;
};

void Update(Caches& c) {
    c.localNames.clear();
    c.remoteNames.clear();
    c.localAddresses.clear();
    const char* self = kxSysInfo::GetComputerNameA();
    kxNetUtils::GetHostIPAddresses(self, c.localAddresses);
    c.localNames.emplace_back(self);
    c.refreshed = KCOleDateTime::GetTickCount();
}

bool Contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

namespace KFileNameCache {

bool IsLocalServer(const std::string& host) {
    Caches& c = TheCaches();
    Hold hold(c.lock);
    const KCOleDateTimeSpan age = KCOleDateTime::GetTickCount() - c.refreshed;
    if (age.GetTotalDays() > c.maxAge.GetTotalDays()) Update(c);
    if (Contains(c.localNames, host)) return true;
    if (Contains(c.remoteNames, host)) return false;
    std::vector<unsigned long> addresses;
    if (kxNetUtils::GetHostIPAddresses(host.c_str(), addresses) < 0) return false;
    for (unsigned long a : addresses) {
        if (std::find(c.localAddresses.begin(), c.localAddresses.end(), a) !=
            c.localAddresses.end()) {
            c.localNames.push_back(host);
            return true;
        }
    }
    c.remoteNames.push_back(host);
    return false;
}

std::vector<std::string> KnownLocalNames() {
    Caches& c = TheCaches();
    Hold hold(c.lock);
    return c.localNames;
}

std::vector<std::string> KnownRemoteNames() {
    Caches& c = TheCaches();
    Hold hold(c.lock);
    return c.remoteNames;
}

void Expire() {
    Caches& c = TheCaches();
    Hold hold(c.lock);
    c.refreshed = KCOleDateTime();
}

}  // namespace KFileNameCache
