#include "nfs/NFS3GetNextHandle.h"

#include <cstring>

#include "nfs/kxNFS3Call.h"
#include "nfs/kxNFSErrorMap.h"

namespace kxNFSUtils {

readdirplus3args ReadDirPlusArgs(const uint8_t* handle, uint32_t handleLength) {
    readdirplus3args args;
    memset(&args, 0, sizeof args);
    args.dir.data.data_len = handleLength <= kDirEntryHandleSize ? handleLength : 0;
    args.dir.data.data_val = reinterpret_cast<char*>(const_cast<uint8_t*>(handle));
    args.cookie = 0;
    args.dircount = kReadDirPlusDirCount;
    args.maxcount = kReadDirPlusMaxCount;
    return args;
}

void EntryFromReadDirPlus(const entryplus3& e, const std::string& dirPath, uint32_t readPreferred,
                          uint32_t writePreferred, DirEntry& entry) {
    entry = DirEntry();
    entry.serverPath = dirPath;
    if (entry.serverPath.empty() || entry.serverPath.back() != '/') entry.serverPath += '/';
    if (e.name != nullptr) entry.serverPath += e.name;
    entry.path = entry.serverPath;
    FAttr3ToDirEntry(e.name_attributes.post_op_attr_u.attributes, entry);
    CopyHandle(e.name_handle.post_op_fh3_u.handle, entry);
    entry.readPreferred = readPreferred;
    entry.writePreferred = writePreferred;
}

bool CookieLoopGuard::Next(uint64_t cookie) {
    if (started && cookie == saved) return false;
    if (!started || ++steps == power) {
        saved = cookie;
        if (started) power *= 2;
        steps = 0;
        started = true;
    }
    return true;
}

void LogCookieLoop(const std::string& hostName, const std::string& dirPath) {
    kxLogPrintfA(KX_E_NFS_SERVER_FAULT, kxLogSevWarning,
                 "nfsproc3_readdirplus_3 (cookies go round a loop, listing ended) %s",
                 Detail(hostName, dirPath).c_str());
}

NFS3GetNextHandle::NFS3GetNextHandle(CLIENT* clnt, const std::string& host, const DirEntry& dir)
    : client(clnt),
      hostName(host),
      dirPath(dir.serverPath),
      readPreferred(dir.readPreferred),
      writePreferred(dir.writePreferred) {
    memcpy(handle, dir.handle, sizeof handle);
    args = ReadDirPlusArgs(handle, dir.handleLength);
    memset(&result, 0, sizeof result);
}

NFS3GetNextHandle::~NFS3GetNextHandle() { FreeRes(); }

void NFS3GetNextHandle::FreeRes() {
    current = nullptr;
    if (!haveResult) return;
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_readdirplus3res), reinterpret_cast<char*>(&result));
    memset(&result, 0, sizeof result);
    haveResult = false;
}

bool NFS3GetNextHandle::GetNextBatch() {
    if (atEnd) return false;
    FreeRes();
    if (!loopGuard.Next(args.cookie)) {
        lastError = KX_E_NFS_SERVER_FAULT;
        LogCookieLoop(hostName, dirPath);
        return false;
    }
    const clnt_stat rpc = nfsproc3_readdirplus_3(&args, &result, client);
    // Whatever was decoded, a failed decode included, is released by the next FreeRes.
    haveResult = true;
    if (rpc == RPC_SUCCESS && result.status == NFS3_OK) {
        const dirlistplus3& list = result.readdirplus3res_u.resok.reply;
        atEnd = list.eof != 0;
        current = list.entries;
        return true;
    }
    lastError = TranslateError(g_NFSErrorMap, rpc, result.status,
                               "nfsproc3_readdirplus_3 (status %d, err 0x%8.8X)",
                               Detail(hostName, dirPath));
    FreeRes();
    return false;
}

bool NFS3GetNextHandle::GetNextEntry(DirEntry& entry) {
    if (current == nullptr && (!GetNextBatch() || current == nullptr)) return false;
    EntryFromReadDirPlus(*current, dirPath, readPreferred, writePreferred, entry);
    args.cookie = current->cookie;
    current = current->nextentry;
    return true;
}

}  // namespace kxNFSUtils
