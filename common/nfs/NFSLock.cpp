// Placeholder until whole-file locking lands: refuses with KX_E_REFUSED.
#include "nfs/NFSBrowseImplCommon.h"

namespace kxNFSUtils {

bool NFSBrowseImplCommon::LockFile(const DirEntry&, bool, bool) {
    lastError = KX_E_REFUSED;
    return false;
}

}  // namespace kxNFSUtils
