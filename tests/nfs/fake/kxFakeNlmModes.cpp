// Lock-manager modes (program 100021): a lock manager that answers every request with one
// status, so tests can check what the client sent (with the record) and how it reads answers.
//
//   nlm        any version: NULL answers; TEST, LOCK, CANCEL, UNLOCK and GRANTED (1 to 5) get
//              the request's cookie back with status Count() (0 granted, 1 denied, ...); other
//              procedures PROC_UNAVAIL. Versions 1 and 4 share the shape of that answer.
//   nlm4only   as nlm for version 4; a request in any other version gets PROG_MISMATCH naming
//              version 4 alone, as nfs-ganesha answers
#include <cstring>

#include "kxFakePeer.h"

namespace {

using kxfake::Call;

// nlm_res and nlm4_res have the same shape: the cookie (a counted opaque), then the status.
struct Result {
    char* cookie;
    u_int length;
    int status;
};

bool_t CodeCookie(XDR* x, Result* r) {
    return xdr_bytes(x, &r->cookie, &r->length, 1024);
}

bool_t EncodeResult(XDR* x, Result* r) {
    return CodeCookie(x, r) && xdr_int(x, &r->status);
}

// Every request of procedures 1 to 5 starts with its cookie.
bool AnswerStatus(const Call& call, std::vector<char>& out) {
    kxfake::Args<Result> r(call, CodeCookie);
    if (!r.ok) return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    r.value.status = kxfake::Count();
    return kxfake::AcceptWith(call, kxfake::Proc(EncodeResult), &r.value, out);
}

bool Answer(const Call& call, std::vector<char>& out) {
    if (call.procedure == 0) return kxfake::AcceptWith(call, nullptr, nullptr, out);
    if (call.procedure >= 1 && call.procedure <= 5) return AnswerStatus(call, out);
    return kxfake::AcceptStatus(call, PROC_UNAVAIL, out);
}

// Other versions: xid, REPLY, MSG_ACCEPTED, null verifier, PROG_MISMATCH, lowest and highest
// version offered.
bool Nlm4Only(const Call& call, std::vector<char>& out) {
    if (call.version != 4) return kxfake::Words({call.xid, 1, 0, 0, 0, 2, 4, 4}, out);
    return Answer(call, out);
}

}  // namespace

KX_FAKE_MODE("nlm", Answer);
KX_FAKE_MODE("nlm4only", Nlm4Only);
