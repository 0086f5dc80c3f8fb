// The NFS version 3 calls that describe an export's root: LOOKUP of ".", FSSTAT, FSINFO and
// PATHCONF on the root handle, each filling its part of an ExportInfo.
//
// Convention: each returns 0 or the code TranslateError made of the failed call (logged with
// the procedure's name and the detail host ":" serverPath).
#pragma once

#include <rpc/rpc.h>

#include <string>

#include "nfs/DirEntry.h"

namespace kxNFSUtils {

// LOOKUP of name in info's handle; on success the object's attributes go into info, on failure
// info.type becomes kDirEntryInvalid.
long LookupEntry3(CLIENT* client, ExportInfo& info, char* name, const std::string& host);
// readPreferred, writePreferred, timeDelta, maxTransfer, transferMultiple, canSetTime;
// unitSize is set to 1024 whatever the answer.
long FSInfo3(CLIENT* client, ExportInfo& info, const std::string& host);
// nameMax, caseInsensitive, casePreserving, chownRestricted.
long PathConf3(CLIENT* client, ExportInfo& info, const std::string& host);
// KX_E_NFS_CANCELLED without a call when cancelled; else the root's attributes, FSSTAT's sizes,
// FSINFO and PATHCONF, in that order, stopping at the first failure.
long FillExportInfo(CLIENT* client, ExportInfo& info, bool cancelled, const std::string& host);

}  // namespace kxNFSUtils
