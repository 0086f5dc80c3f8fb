// Placeholder until directory listing lands: refuses with KX_E_REFUSED.
#include "nfs/NFSBrowseImpl3.h"

namespace kxNFSUtils {

bool NFSBrowseImpl3::Entries(const DirEntry&, std::vector<DirEntry>&) { lastError = KX_E_REFUSED; return false; }
NFSGetNextHandle* NFSBrowseImpl3::GetFirstDirEntry(const DirEntry&, DirEntry&) {
    lastError = KX_E_REFUSED;
    return nullptr;
}
bool NFSBrowseImpl3::GetNextDirEntry(NFSGetNextHandle*, DirEntry&) { lastError = KX_E_REFUSED; return false; }

}  // namespace kxNFSUtils
