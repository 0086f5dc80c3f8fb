// The XDR routines that are written by hand rather than generated: the export list and the
// group lists inside it, coded in a loop instead of one nested call per node, and the PATHCONF
// result body, whose four flags are coded in place when the stream can reserve their bytes.
// The bytes on the wire are those of the published definitions in every case.
#include <rpc/rpc.h>

#include "nfs/kxXdrList.h"
#include "xdr/mount_prot.h"
#include "xdr/nfs3_prot.h"

namespace {

bool_t GroupFields(XDR* xdrs, groupnode* node) { return xdr_name(xdrs, &node->gr_name); }

bool_t ExportFields(XDR* xdrs, exportnode* node) {
    return xdr_dirpath(xdrs, &node->ex_dir) && xdr_groups(xdrs, &node->ex_groups);
}

}  // namespace

extern "C" bool_t xdr_groups(XDR* xdrs, groups* objp) {
    return kxNFSUtils::XdrList(xdrs, objp, &groupnode::gr_next, GroupFields);
}

extern "C" bool_t xdr_exports(XDR* xdrs, exports* objp) {
    return kxNFSUtils::XdrList(xdrs, objp, &exportnode::ex_next, ExportFields);
}

extern "C" bool_t xdr_pathconf3resok(XDR* xdrs, pathconf3resok* objp) {
    if (!xdr_post_op_attr(xdrs, &objp->obj_attributes) || !xdr_uint32(xdrs, &objp->linkmax) ||
        !xdr_uint32(xdrs, &objp->name_max))
        return FALSE;
    if (xdrs->x_op == XDR_ENCODE) {
        if (int32_t* buf = XDR_INLINE(xdrs, 4 * BYTES_PER_XDR_UNIT)) {
            IXDR_PUT_BOOL(buf, objp->no_trunc);
            IXDR_PUT_BOOL(buf, objp->chown_restricted);
            IXDR_PUT_BOOL(buf, objp->case_insensitive);
            IXDR_PUT_BOOL(buf, objp->case_preserving);
            return TRUE;
        }
    } else if (xdrs->x_op == XDR_DECODE) {
        if (int32_t* buf = XDR_INLINE(xdrs, 4 * BYTES_PER_XDR_UNIT)) {
            objp->no_trunc = IXDR_GET_BOOL(buf);
            objp->chown_restricted = IXDR_GET_BOOL(buf);
            objp->case_insensitive = IXDR_GET_BOOL(buf);
            objp->case_preserving = IXDR_GET_BOOL(buf);
            return TRUE;
        }
    }
    return xdr_bool(xdrs, &objp->no_trunc) && xdr_bool(xdrs, &objp->chown_restricted) &&
           xdr_bool(xdrs, &objp->case_insensitive) && xdr_bool(xdrs, &objp->case_preserving);
}
