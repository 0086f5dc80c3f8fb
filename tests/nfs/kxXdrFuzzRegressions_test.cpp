// Regressions found by fuzzing the result decoders (fuzz/nfs): replies whose claims cost the
// client far more than the bytes it received. The inputs are also in the fuzz corpus.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "nfs/kxNFSErrorMap.h"
#include "xdr/mount_prot.h"
#include "xdr/nfs3_prot.h"

namespace {

std::vector<char> Words(const std::vector<uint32_t>& words) {
    std::vector<char> out(words.size() * 4);
    for (size_t i = 0; i < words.size(); ++i) {
        const uint32_t w = htonl(words[i]);
        memcpy(&out[i * 4], &w, 4);
    }
    return out;
}

bool Decode(std::vector<char>& bytes, mountres3& out) {
    memset(&out, 0, sizeof out);
    XDR x;
    xdrmem_create(&x, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
    const bool ok = xdr_mountres3(&x, &out);
    XDR_DESTROY(&x);
    return ok;
}

}  // namespace

// A MNT reply of 24 bytes claiming a billion flavours was allocated at 4 GB and walked element
// by element when freed (seconds of work). The list is bounded now: such a claim is refused
// before anything is allocated, while a list at the bound still decodes.
TEST(kxXdrFuzzRegressions, MountFlavourListBeyondTheBoundAllocatesNothing) {
    std::vector<char> claim = Words({MNT3_OK, 4, 0x01020304, 0x40000000, 1, 6});
    mountres3 res;
    EXPECT_FALSE(Decode(claim, res));
    EXPECT_EQ(nullptr, res.mountres3_u.mountinfo.auth_flavors.auth_flavors_val);
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_mountres3), reinterpret_cast<char*>(&res));

    std::vector<uint32_t> full = {MNT3_OK, 4, 0x01020304, MNTFLAVORS};
    full.resize(full.size() + MNTFLAVORS, 1);
    std::vector<char> atBound = Words(full);
    ASSERT_TRUE(Decode(atBound, res));
    EXPECT_EQ(static_cast<u_int>(MNTFLAVORS),
              res.mountres3_u.mountinfo.auth_flavors.auth_flavors_len);
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_mountres3), reinterpret_cast<char*>(&res));
}

// Statuses and file types beyond every listed value (a hostile server's) are stored by the
// generated decoders and read by the error tables; the enumerations are based on unsigned int, so this is a
// value like any other (the sanitizer build used to stop here) and translates to the default.
TEST(kxXdrFuzzRegressions, UnlistedStatusAndFileTypeAreOrdinaryValues) {
    std::vector<char> bytes = Words({0x7FFFFFF0});
    getattr3res res{};
    XDR x;
    xdrmem_create(&x, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
    ASSERT_TRUE(xdr_getattr3res(&x, &res));
    XDR_DESTROY(&x);
    EXPECT_EQ(kxNFSUtils::g_NFSErrorMap.Default(),
              kxNFSUtils::g_NFSErrorMap.TranslateError(res.status));

    std::vector<uint32_t> ok = {NFS3_OK, 99};
    ok.resize(2 + 20, 0);  // the rest of fattr3: mode .. ctime, all zero
    bytes = Words(ok);
    xdrmem_create(&x, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
    ASSERT_TRUE(xdr_getattr3res(&x, &res));
    XDR_DESTROY(&x);
    EXPECT_EQ(99, static_cast<int>(res.getattr3res_u.resok.obj_attributes.type));
}
