// The XDR routines that are written by hand rather than generated: the export list, coded in
// a loop instead of one nested call per export, and the PATHCONF result body, whose four flags
// are coded in place when the stream can reserve their bytes. The bytes on the wire are those
// of the published definitions in both cases.
#include <rpc/rpc.h>

#include "xdr/mount_prot.h"
#include "xdr/nfs3_prot.h"

namespace {

// Element routine for xdr_pointer over an export node: the node's fields are coded by the loop
// in xdr_exports, so xdr_pointer is left with the "another node follows" flag and, when
// decoding, the zeroed allocation of the node.
bool_t xdr_dummy(XDR*, exportnode*) { return TRUE; }

bool_t ExportLink(XDR* xdrs, exportnode** link) {
    return xdr_pointer(xdrs, reinterpret_cast<char**>(link), sizeof(exportnode),
                       reinterpret_cast<xdrproc_t>(xdr_dummy));
}

}  // namespace

extern "C" bool_t xdr_exports(XDR* xdrs, exports* objp) {
    if (xdrs->x_op == XDR_FREE) {
        exportnode* node = *objp;
        while (node != nullptr) {
            exportnode* next = node->ex_next;
            xdr_dirpath(xdrs, &node->ex_dir);
            xdr_groups(xdrs, &node->ex_groups);
            mem_free(node, sizeof *node);
            node = next;
        }
        *objp = nullptr;
        return TRUE;
    }
    exportnode** link = objp;
    for (;;) {
        if (!ExportLink(xdrs, link)) return FALSE;
        exportnode* node = *link;
        if (node == nullptr) return TRUE;
        if (!xdr_dirpath(xdrs, &node->ex_dir) || !xdr_groups(xdrs, &node->ex_groups))
            return FALSE;
        link = &node->ex_next;
    }
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
