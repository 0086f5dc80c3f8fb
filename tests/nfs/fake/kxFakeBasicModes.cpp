// Modes every program can use: a minimal MOUNT service, and answers no real server gives.
//
//   accept        NULL answers; EXPORT (5) lists Count() exports "/export/NNNNNN"; MNT (1)
//                 gives a 4-byte handle; UMNT (3) answers; other procedures PROC_UNAVAIL
//   garbage       every call gets 16 bytes that are no RPC reply
//   shortdenied   every call gets a denied RPC_MISMATCH reply cut off before its last field
//   oddstatus     procedure 1 is accepted with an accept status no enumeration holds
//                 (0x70000); any other gets a reply status of 7, which ends the decoding
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kxFakePeer.h"

namespace {

using kxfake::Call;

// EXPORT's result: Count() exports named /export/NNNNNN, without groups.
bool ExportList(const Call& call, std::vector<char>& out) {
    std::vector<std::string> names(static_cast<size_t>(kxfake::Count()));
    std::vector<const char*> list;
    for (size_t i = 0; i < names.size(); ++i) {
        char buf[32];
        snprintf(buf, sizeof buf, "/export/%06zu", i);
        list.push_back((names[i] = buf).c_str());
    }
    return kxfake::AcceptWith(call, kxfake::Proc(kxfake::EncodeExportNames), &list, out);
}

bool_t EncodeMountOk(XDR* x, void*) {
    int status = 0;
    char handle[4] = {1, 2, 3, 4};
    char* h = handle;
    u_int len = 4;
    u_int flavours = 1;
    int flavour = 1;
    return xdr_int(x, &status) && xdr_bytes(x, &h, &len, 64) && xdr_u_int(x, &flavours) &&
           xdr_int(x, &flavour);
}

bool Accept(const Call& call, std::vector<char>& out) {
    switch (call.procedure) {
        case 0:
        case 3:
            return kxfake::AcceptWith(call, nullptr, nullptr, out);
        case 1:
            return kxfake::AcceptWith(call, reinterpret_cast<xdrproc_t>(EncodeMountOk), nullptr,
                                      out);
        case 5:
            return ExportList(call, out);
        default:
            return kxfake::AcceptStatus(call, PROC_UNAVAIL, out);
    }
}

bool Garbage(const Call&, std::vector<char>& out) {
    out.assign(16, '\x5a');
    return true;
}

// xid, REPLY, MSG_DENIED, RPC_MISMATCH, low version: 20 bytes, the high version missing.
bool ShortDenied(const Call& call, std::vector<char>& out) {
    return kxfake::Words({call.xid, 1, 1, 0, 2}, out);
}

// Written as words: the values do not fit the enumerations.
bool OddStatus(const Call& call, std::vector<char>& out) {
    if (call.procedure == 1) return kxfake::Words({call.xid, 1, 0, 0, 0, 0x70000}, out);
    return kxfake::Words({call.xid, 1, 7}, out);
}

}  // namespace

KX_FAKE_MODE("accept", Accept);
KX_FAKE_MODE("garbage", Garbage);
KX_FAKE_MODE("shortdenied", ShortDenied);
KX_FAKE_MODE("oddstatus", OddStatus);
