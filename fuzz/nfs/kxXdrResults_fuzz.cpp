// The result decoders of the NFS client on arbitrary bytes, without the RPC header around them:
// decode, then free what was decoded (also after a failure half-way through a list), and for
// what decoded, encode it and decode that again: the routine must read back what it wrote and
// write the same bytes again (a hand-written routine whose two directions disagree fails here).
//
// Input: one byte choosing the routine (kxXdrResultTable.h, modulo its length), then the body.
#include <cstring>
#include <memory>

#include "kxFuzzCheck.h"
#include "nfs/kxXdrResultTable.h"

namespace {

struct Object {
    explicit Object(const kxfuzz::XdrResult& r) : result(r), bytes(new char[r.size]()) {}
    ~Object() { xdr_free(result.proc, bytes.get()); }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    const kxfuzz::XdrResult& result;
    std::unique_ptr<char[]> bytes;
};

// Encodes obj into out (capacity `room`); the length written, or -1 when encoding fails.
long Encode(Object& obj, char* out, u_int room) {
    XDR x;
    xdrmem_create(&x, out, room, XDR_ENCODE);
    const bool ok = obj.result.code(&x, obj.bytes.get());
    const long length = ok ? static_cast<long>(XDR_GETPOS(&x)) : -1;
    XDR_DESTROY(&x);
    return length;
}

bool Decode(Object& obj, char* in, u_int length, u_int* consumed) {
    XDR x;
    xdrmem_create(&x, in, length, XDR_DECODE);
    const bool ok = obj.result.code(&x, obj.bytes.get());
    *consumed = XDR_GETPOS(&x);
    XDR_DESTROY(&x);
    return ok;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 1u << 20) return 0;
    const kxfuzz::XdrResult& result = kxfuzz::kXdrResults[data[0] % kxfuzz::kXdrResultCount];
    const u_int length = static_cast<u_int>(size - 1);
    std::unique_ptr<char[]> body(new char[length + 1]);
    memcpy(body.get(), data + 1, length);

    Object first(result);
    u_int consumed = 0;
    if (!Decode(first, body.get(), length, &consumed)) return 0;
    KX_FUZZ_CHECK(consumed <= length);
    // Strings are C strings once decoded (a name cut at a zero byte encodes shorter), and
    // booleans read as any non-zero word encode as 1: the first encoding may differ from the
    // input, but never grows, and from then on it is stable.
    std::unique_ptr<char[]> once(new char[consumed + 1]);
    const long onceLength = Encode(first, once.get(), consumed);
    KX_FUZZ_CHECK(onceLength >= 0 && onceLength <= static_cast<long>(consumed));

    Object second(result);
    u_int consumedAgain = 0;
    KX_FUZZ_CHECK(Decode(second, once.get(), static_cast<u_int>(onceLength), &consumedAgain));
    KX_FUZZ_CHECK(consumedAgain == static_cast<u_int>(onceLength));
    std::unique_ptr<char[]> twice(new char[onceLength + 1]);
    const long twiceLength = Encode(second, twice.get(), static_cast<u_int>(onceLength));
    KX_FUZZ_CHECK(twiceLength == onceLength);
    KX_FUZZ_CHECK(memcmp(once.get(), twice.get(), static_cast<size_t>(onceLength)) == 0);
    return 0;
}
