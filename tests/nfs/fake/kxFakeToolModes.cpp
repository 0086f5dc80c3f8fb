// MOUNT answers for the command-line client's tests.
//
//   hostilenames  NULL and UMNT answer; EXPORT lists exports whose names hold terminal
//                 controls, a line end, a UTF-8 C1 control and a Latin-1 byte; MNT refuses
//                 every export (MNT3ERR_ACCES); other procedures PROC_UNAVAIL
#include "kxFakePeer.h"

namespace {

using kxfake::Call;

const std::vector<const char*> kHostileNames = {
    "/export/red\x1b[31mtext",
    "/export/two\nlines",
    "/export/csi\xc2\x9b" "2J",
    "/export/caf\xe9",
};

bool_t EncodeMountRefused(XDR* x, void*) {
    int status = 13;  // MNT3ERR_ACCES
    return xdr_int(x, &status);
}

bool HostileNames(const Call& call, std::vector<char>& out) {
    switch (call.procedure) {
    case 0:
    case 3:
        return kxfake::AcceptWith(call, nullptr, nullptr, out);
    case 1:
        return kxfake::AcceptWith(call, reinterpret_cast<xdrproc_t>(EncodeMountRefused), nullptr,
                                  out);
    case 5:
        return kxfake::AcceptWith(call, kxfake::Proc(kxfake::EncodeExportNames), &kHostileNames,
                                  out);
    default:
        return kxfake::AcceptStatus(call, PROC_UNAVAIL, out);
    }
}

}  // namespace

KX_FAKE_MODE("hostilenames", HostileNames);
