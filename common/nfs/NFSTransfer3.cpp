// Placeholder until data transfer lands: nothing moves, KX_E_REFUSED in the last error.
#include "nfs/NFSBrowseImpl3.h"

namespace kxNFSUtils {

unsigned long NFSBrowseImpl3::Write(const DirEntry&, const char*, long long, unsigned long) {
    lastError = KX_E_REFUSED;
    return 0;
}
unsigned long NFSBrowseImpl3::Read(const DirEntry&, char*, long long, unsigned long) {
    lastError = KX_E_REFUSED;
    return 0;
}

}  // namespace kxNFSUtils
