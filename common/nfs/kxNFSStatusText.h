// Short English texts for the status codes the NFS client returns, for messages to people
// ("no such file or directory"). The codes themselves stay the interface: a text may be
// reworded, a code never changes.
#pragma once

namespace kxNFSUtils {

// The meaning of status, lower case and without a final stop: every code of nfs/kxNFSStatus.h,
// the general codes of base/kxStatus.h and KX_E_HOST_NOT_FOUND. Codes the client does not
// produce read "unknown status". Never null; static storage; callable from any thread.
const char* kxNFSStatusText(long status);

}  // namespace kxNFSUtils
