// Directory listing over READDIRPLUS: the whole directory at once (Entries) or one entry at a
// time through an enumeration handle (NFS3GetNextHandle.h).
#include <cstring>
#include <new>

#include "nfs/NFS3GetNextHandle.h"
#include "nfs/NFSBrowseImpl3.h"
#include "nfs/kxNFS3Call.h"
#include "nfs/kxNFSErrorMap.h"
#include "xdr/nfs3_prot.h"

namespace kxNFSUtils {

bool NFSBrowseImpl3::Entries(const DirEntry& dir, std::vector<DirEntry>& list) {
    if (dir.magic != DirEntry::kMagic) {
        lastError = KX_E_NOT_INITIALISED;
        return false;
    }
    readdirplus3args args = ReadDirPlusArgs(dir.handle, dir.handleLength);
    CookieLoopGuard loopGuard;
    for (bool first = true;; first = false) {
        // A loop in the server's cookies ends the listing like a failed later batch, with what
        // was gathered, but logged: entries of the loop may be in the list more than once.
        if (!loopGuard.Next(args.cookie)) {
            LogCookieLoop(hostName, dir.serverPath);
            return true;
        }
        readdirplus3res res;
        memset(&res, 0, sizeof res);
        const clnt_stat rpc = nfsproc3_readdirplus_3(&args, &res, nfsClient->Handle());
        const auto release = [&res] {
            xdr_free(reinterpret_cast<xdrproc_t>(xdr_readdirplus3res), reinterpret_cast<char*>(&res));
        };
        if (rpc != RPC_SUCCESS || res.status != NFS3_OK) {
            // Only the first batch counts as a failure; a later one ends the listing with what
            // was gathered, silently. Kept on purpose: callers take a partial listing as one.
            if (first)
                lastError = TranslateError(g_NFSErrorMap, rpc, res.status,
                                           "nfsproc3_readdirplus_3 (status %d, err 0x%8.8X)",
                                           Detail(hostName, dir.serverPath));
            release();
            return !first;
        }
        const dirlistplus3& batch = res.readdirplus3res_u.resok.reply;
        const bool atEnd = batch.eof != 0;
        const bool empty = batch.entries == nullptr;
        for (const entryplus3* e = batch.entries; e != nullptr; e = e->nextentry) {
            list.emplace_back();
            EntryFromReadDirPlus(*e, dir.serverPath, dir.readPreferred, dir.writePreferred,
                                 list.back());
            args.cookie = e->cookie;
        }
        release();
        // A batch that brings nothing yet does not end the directory would be asked for again
        // with the same cookie, for ever: it ends the listing too.
        if (atEnd || empty || (cancelled != nullptr && cancelled->Cancelled())) return true;
    }
}

NFSGetNextHandle* NFSBrowseImpl3::GetFirstDirEntry(const DirEntry& dir, DirEntry& first) {
    if (dir.magic != DirEntry::kMagic) {
        lastError = KX_E_NOT_INITIALISED;
        return nullptr;
    }
    auto* handle = new (std::nothrow) NFS3GetNextHandle(nfsClient->Handle(), hostName, dir);
    if (handle == nullptr) {
        lastError = KX_E_OUT_OF_MEMORY;
        return nullptr;
    }
    if (GetNextDirEntry(handle, first)) return handle;
    lastError = handle->LastError();
    delete handle;
    return nullptr;
}

bool NFSBrowseImpl3::GetNextDirEntry(NFSGetNextHandle* handle, DirEntry& next) {
    auto* h = dynamic_cast<NFS3GetNextHandle*>(handle);
    if (h == nullptr) {
        lastError = KX_E_BAD_ARGUMENT;
        return false;
    }
    if (cancelled != nullptr && cancelled->Cancelled()) return false;
    if (h->GetNextEntry(next)) return true;
    lastError = h->LastError();
    return false;
}

}  // namespace kxNFSUtils
