// kx_kfile_copy SOURCE TARGET [UID GID]: copies one file to another through KFile alone, the
// way any program of the library opens files, so that "host:path" names of another machine go
// to the NFS remote handle. It calls nothing of the NFS library, only links it (see
// CMakeLists.txt): the test that runs it on remote names shows that a program using KFile needs
// nothing else to reach remote files. UID and GID are the credentials presented to the server.
// Exit codes: 0 copied; 1 a file failed (message on standard error); 100 usage.
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "platform/KFile.h"

namespace {

int Fail(const char* what, const char* name, unsigned long status) {
    fprintf(stderr, "kx_kfile_copy: %s %s: 0x%08lX\n", what, name,
            static_cast<unsigned long>(static_cast<uint32_t>(status)));
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 && argc != 5) {
        fprintf(stderr, "usage: kx_kfile_copy SOURCE TARGET [UID GID]\n");
        return 100;
    }
    KFile from, to;
    if (argc == 5) {
        const int uid = atoi(argv[3]);
        const std::vector<int> gids{atoi(argv[4])};
        from.SetNFSCredentials(uid, gids);
        to.SetNFSCredentials(uid, gids);
    }
    unsigned long status = from.CreateFileA(argv[1], GENERIC_READ, FILE_SHARE_READ, nullptr,
                                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (status != 0) return Fail("cannot open", argv[1], status);
    status = to.CreateFileA(argv[2], GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
    if (status != 0) return Fail("cannot create", argv[2], status);

    _LARGE_INTEGER size;
    if (!from.GetFileSizeEx(&size)) return Fail("cannot size", argv[1], 0);
    std::vector<char> block(1 << 20);
    for (int64_t left = size.QuadPart; left > 0;) {
        const unsigned long want = static_cast<unsigned long>(
            left < static_cast<int64_t>(block.size()) ? left : block.size());
        unsigned long got = 0, put = 0;
        if (!from.ReadFile(block.data(), want, &got, nullptr) || got != want)
            return Fail("cannot read", argv[1], got);
        if (!to.WriteFile(block.data(), got, &put, nullptr) || put != got)
            return Fail("cannot write", argv[2], put);
        left -= static_cast<int64_t>(got);
    }
    return 0;
}
