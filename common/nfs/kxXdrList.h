// XDR coding of a linked list in a loop. The published protocols describe lists as optional
// pointers to nodes that hold the next optional pointer ("struct node *next"), and generated
// code follows that shape with one nested call per node: a long list from a server (or from
// anyone who can answer in its place) then exhausts the stack. XdrList produces the same bytes
// with one stack frame for the whole list.
//
// Internal to the NFS client.
#pragma once

#include <rpc/rpc.h>

namespace kxNFSUtils {

namespace xdr_list_detail {
// Element routine for xdr_pointer: the node's fields are coded by the loop, so xdr_pointer is
// left with the "another node follows" flag and, when decoding, the zeroed node.
inline bool_t Nothing(XDR*, void*) { return TRUE; }
}  // namespace xdr_list_detail

// Codes the list at *head. fields codes one node's own fields (not its link) and must accept
// XDR_FREE on a partly decoded node. A decoding failure leaves the nodes read so far linked
// from *head, so freeing the result releases them; freeing leaves *head null.
template <typename Node>
bool_t XdrList(XDR* xdrs, Node** head, Node* Node::*next, bool_t (*fields)(XDR*, Node*)) {
    if (xdrs->x_op == XDR_FREE) {
        Node* node = *head;
        while (node != nullptr) {
            Node* following = node->*next;
            fields(xdrs, node);
            mem_free(node, sizeof(Node));
            node = following;
        }
        *head = nullptr;
        return TRUE;
    }
    Node** link = head;
    for (;;) {
        if (!xdr_pointer(xdrs, reinterpret_cast<char**>(link), sizeof(Node),
                         reinterpret_cast<xdrproc_t>(xdr_list_detail::Nothing)))
            return FALSE;
        Node* node = *link;
        if (node == nullptr) return TRUE;
        if (!fields(xdrs, node)) return FALSE;
        link = &(node->*next);
    }
}

}  // namespace kxNFSUtils
