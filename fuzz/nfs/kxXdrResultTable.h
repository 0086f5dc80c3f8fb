// Every result the NFS client decodes from a server, by the routine it decodes it with: the
// MOUNT, NFS version 3 and lock manager results, generated and hand-written alike. The fuzz
// targets pick one with an input byte, so entries are only ever added at the end (a committed
// corpus keeps meaning the same routines).
#pragma once

#include <rpc/rpc.h>

#include <cstddef>

#include "xdr/mount_prot.h"
#include "xdr/nfs3_prot.h"
#include "xdr/nlm4_prot.h"
#include "xdr/nlm_prot.h"

namespace kxfuzz {

struct XdrResult {
    const char* name;
    xdrproc_t proc;               // as the RPC library takes it
    bool_t (*code)(XDR*, void*);  // the same, for calls from here (through its own type)
    size_t size;                  // of the object it decodes into
};

template <typename T, bool_t (*Routine)(XDR*, T*)>
bool_t Code(XDR* xdrs, void* object) {
    return Routine(xdrs, static_cast<T*>(object));
}

// clang-format off
#define KX_XDR_RESULT(type) \
    {#type, reinterpret_cast<xdrproc_t>(xdr_##type), &Code<type, xdr_##type>, sizeof(type)}
// clang-format on

inline const XdrResult kXdrResults[] = {
    KX_XDR_RESULT(exports),          // 0: export list with group lists (hand-written)
    KX_XDR_RESULT(fhstatus),         // 1: MOUNT version 1
    KX_XDR_RESULT(mountres3),        // 2: MOUNT version 3, with the flavour list
    KX_XDR_RESULT(getattr3res),      // 3
    KX_XDR_RESULT(lookup3res),       // 4
    KX_XDR_RESULT(access3res),       // 5
    KX_XDR_RESULT(readlink3res),     // 6
    KX_XDR_RESULT(read3res),         // 7
    KX_XDR_RESULT(write3res),        // 8
    KX_XDR_RESULT(diropres3),        // 9: CREATE, MKDIR, SYMLINK
    KX_XDR_RESULT(wccstat3),         // 10: SETATTR, REMOVE, RMDIR
    KX_XDR_RESULT(rename3res),       // 11
    KX_XDR_RESULT(link3res),         // 12
    KX_XDR_RESULT(readdirplus3res),  // 13: entry list (hand-written)
    KX_XDR_RESULT(fsstat3res),       // 14
    KX_XDR_RESULT(fsinfo3res),       // 15
    KX_XDR_RESULT(pathconf3res),     // 16: flags coded in place (hand-written)
    KX_XDR_RESULT(nlm_res),          // 17
    KX_XDR_RESULT(nlm4_res),         // 18
};

#undef KX_XDR_RESULT

inline constexpr size_t kXdrResultCount = sizeof kXdrResults / sizeof kXdrResults[0];

}  // namespace kxfuzz
