#include "platform/KFileABC.h"

void KFileABC::SetNFSCredentials(int uid, const std::vector<int>& gids) {
    m_nUid = uid;
    m_Gids.clear();
    m_Gids.insert(m_Gids.end(), gids.begin(), gids.end());
}

// Only handles over a local descriptor can take a kernel lock.
long KFileABC::TryLockFile(bool) { return KX_E_REFUSED; }

long KFileABC::UnlockFile() { return KX_E_REFUSED; }
