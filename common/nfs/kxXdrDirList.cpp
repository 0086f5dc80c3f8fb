// The READDIRPLUS entry list, coded by hand: one entry and the rest of its list, walked in a
// loop instead of one nested call per entry, so the depth of the stack does not depend on what
// a server sends. The bytes on the wire are those of the published definition: each entry's
// fields, then the "another entry follows" flag of its nextentry pointer.
//
// The generated dirlistplus3 routine reaches this one through xdr_pointer for the list head,
// which transfers the head's flag and, in XDR_FREE mode, frees the head node itself; this
// routine frees everything the head leads to.
#include <rpc/rpc.h>

#include "xdr/nfs3_prot.h"

namespace {

// The longest entry name accepted. The protocol sets no limit; this one is far above any file
// system's name limit, yet stops a reply that claims a name of gigabytes from making the
// decoder allocate it before finding the message too short. Equal to the largest reply the
// listing asks a server for, so no honest entry comes near it.
constexpr u_int kMaxEntryName = 8192;

// Element routine for xdr_pointer over an entry: the fields are coded by the loop below, so
// xdr_pointer is left with the flag and, when decoding, the zeroed allocation of the node.
bool_t xdr_dummy(XDR*, entryplus3*) { return TRUE; }

bool_t EntryLink(XDR* xdrs, entryplus3** link) {
    return xdr_pointer(xdrs, reinterpret_cast<char**>(link), sizeof(entryplus3),
                       reinterpret_cast<xdrproc_t>(xdr_dummy));
}

bool_t EntryFields(XDR* xdrs, entryplus3* e) {
    return xdr_fileid3(xdrs, &e->fileid) && xdr_string(xdrs, &e->name, kMaxEntryName) &&
           xdr_cookie3(xdrs, &e->cookie) && xdr_post_op_attr(xdrs, &e->name_attributes) &&
           xdr_post_op_fh3(xdrs, &e->name_handle);
}

}  // namespace

extern "C" bool_t xdr_entryplus3(XDR* xdrs, entryplus3* objp) {
    if (xdrs->x_op == XDR_FREE) {
        // Works on a list cut short by a failed decode too: fields that were never reached are
        // still zero, and zero frees nothing.
        EntryFields(xdrs, objp);
        entryplus3* node = objp->nextentry;
        while (node != nullptr) {
            entryplus3* next = node->nextentry;
            EntryFields(xdrs, node);
            mem_free(node, sizeof *node);
            node = next;
        }
        objp->nextentry = nullptr;
        return TRUE;
    }
    entryplus3* node = objp;
    for (;;) {
        if (!EntryFields(xdrs, node) || !EntryLink(xdrs, &node->nextentry)) return FALSE;
        node = node->nextentry;
        if (node == nullptr) return TRUE;
    }
}
