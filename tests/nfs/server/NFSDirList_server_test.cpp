// Directory listing: directories on nfs-ganesha listed by both routes over both transports and
// compared with the local listing, and against the fake peer, the requests on the wire and the
// batch failures a real server will not produce on demand.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kxFakeBrowse.h"
#include "kxFakeNfs.h"
#include "kxLogCapture.h"
#include "kxNFSSandbox.h"
#include "kxNFSServerTest.h"
#include "nfs/NFSBrowse.h"
#include "xdr/nfs3_prot.h"

using namespace kxNFSUtils;

namespace {

// Every entry of an enumeration; false in `ended` when it stopped on a failure.
std::vector<DirEntry> Enumerate(NFSBrowse& browse, const DirEntry& dir, bool& ended) {
    std::vector<DirEntry> list;
    DirEntry next;
    std::unique_ptr<NFSGetNextHandle> handle(browse.GetFirstDirEntry(dir, next));
    if (handle) {
        do list.push_back(next);
        while (browse.GetNextDirEntry(handle.get(), next));
    }
    ended = browse.GetLastObjectError() == 0;
    return list;
}

class NFSDirList : public kxtest::NFSServerTest {
protected:
    // A new directory root + "/a/" + name, made locally and then looked up through the server
    // (which has never seen it, so it reads it from disk when it is first listed).
    bool MakeDir(NFSBrowse& browse, const std::string& name, DirEntry& dir) {
        const std::string path = root + "/a/" + name;
        if (mkdir(path.c_str(), 0755) != 0) return false;
        std::unique_ptr<DirEntry> found(browse.Open(path, false, false));
        if (!found) return false;
        dir = *found;
        return dir.type == kDirEntryDirectory;
    }
};

std::map<std::string, struct stat> LocalListing(const std::string& path) {
    std::map<std::string, struct stat> entries;
    DIR* d = opendir(path.c_str());
    if (d == nullptr) return entries;
    while (dirent* e = readdir(d)) stat((path + "/" + e->d_name).c_str(), &entries[e->d_name]);
    closedir(d);
    return entries;
}

TEST_F(NFSDirList, ThousandsOfEntriesByBothRoutesMatchLocalListing) {
    auto browse = Browse(eUseTCP);
    ASSERT_TRUE(browse);
    DirEntry dir;
    ASSERT_TRUE(MakeDir(*browse, "many", dir)) << std::hex << browse->GetLastObjectError();
    // Filled behind the server's back, faster than through it.
    for (int i = 0; i < 3000; ++i) {
        char name[16];
        snprintf(name, sizeof name, "e%05d", i);
        const int fd = open((dir.serverPath + "/" + name).c_str(), O_CREAT | O_WRONLY, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(i % 7, write(fd, "1234567", static_cast<size_t>(i % 7)));
        close(fd);
    }
    ASSERT_EQ(0, mkdir((dir.serverPath + "/sub").c_str(), 0755));
    const auto local = LocalListing(dir.serverPath);
    ASSERT_EQ(3003u, local.size());  // with "." and ".."

    for (eUseProtocol protocol : {eUseTCP, eUseUDP}) {
        auto b = Browse(protocol);
        ASSERT_TRUE(b);
        std::vector<DirEntry> all;
        EXPECT_TRUE(b->Entries(dir, all));
        bool ended = false;
        const std::vector<DirEntry> one = Enumerate(*b, dir, ended);
        EXPECT_TRUE(ended) << std::hex << b->GetLastObjectError();
        for (const std::vector<DirEntry>* list : {&std::as_const(all), &one}) {
            SCOPED_TRACE(std::string(protocol == eUseUDP ? "udp" : "tcp") +
                         (list == &all ? " Entries" : " handle"));
            // The same names as the local listing, once each; the server may leave "." and ".."
            // out.
            std::vector<std::string> names, want;
            for (const DirEntry& e : *list) names.push_back(e.Name());
            std::sort(names.begin(), names.end());
            for (const auto& l : local)
                if (std::count(names.begin(), names.end(), l.first) || l.first[0] != '.')
                    want.push_back(l.first);
            EXPECT_EQ(want, names);
            for (const DirEntry& e : *list) {
                const std::string name = e.Name();
                if (name == "." || name == "..") continue;
                SCOPED_TRACE(name);
                const struct stat& l = local.at(name);
                EXPECT_EQ(dir.serverPath + "/" + name, e.serverPath);
                EXPECT_EQ(e.serverPath, e.path);
                EXPECT_EQ(S_ISDIR(l.st_mode) ? kDirEntryDirectory : kDirEntryRegular, e.type);
                EXPECT_EQ(static_cast<uint64_t>(l.st_size), e.size);
                EXPECT_EQ(static_cast<uint64_t>(l.st_ino), e.fileId);
                EXPECT_GT(e.handleLength, 0u);
                EXPECT_EQ(dir.readPreferred, e.readPreferred);
                EXPECT_EQ(dir.writePreferred, e.writePreferred);
                if (HasFailure()) break;  // one mismatch tells enough
            }
        }
    }
}

TEST_F(NFSDirList, StaleDirectoryFailsBothRoutes) {
    auto browse = Browse(eUseUDP);
    ASSERT_TRUE(browse);
    DirEntry dir;
    ASSERT_TRUE(MakeDir(*browse, "gone", dir));
    ASSERT_EQ(0, rmdir(dir.serverPath.c_str()));  // behind the server's back
    kxtest::LogCapture log;
    std::vector<DirEntry> list;
    EXPECT_FALSE(browse->Entries(dir, list));
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(KX_E_NFS_STALE, browse->GetLastObjectError());
    EXPECT_TRUE(log.Has(KX_E_NFS_STALE,
                        "nfsproc3_readdirplus_3 (status 70, err 0x00000000) "
                        "localhost:" +
                            dir.serverPath));
    DirEntry first;
    EXPECT_EQ(nullptr, browse->GetFirstDirEntry(dir, first));
    EXPECT_EQ(KX_E_NFS_STALE, browse->GetLastObjectError());
}

// ---- Against the fake peer ----

constexpr uint32_t kEntries = 100;  // three batches: 40, 40, 20

// The entries the fake lists, from the first on, as the listing must make them (the other
// fields are compared with a real server's listing above).
void ExpectFakeEntries(const std::vector<DirEntry>& list, size_t count) {
    ASSERT_EQ(count, list.size());
    for (uint32_t i = 0; i < count; ++i) {
        char name[16];
        snprintf(name, sizeof name, "f%06u", i);
        EXPECT_EQ("/export/000000/" + std::string(name), list[i].serverPath);
        EXPECT_EQ(1000u + i, list[i].fileId);
        EXPECT_EQ(kxfake::FakeEntryHandle(i),
                  std::vector<char>(list[i].handle, list[i].handle + list[i].handleLength));
        if (::testing::Test::HasFailure()) return;
    }
}

// The READDIRPLUS requests received from the first'th on: `batches` of them, for the fake's
// root. After the first, each carries the cookie of the last entry received, and the verifier
// stays zero although the server sent another.
void ExpectBatchRequests(const kxtest::FakeNFS& fake, size_t first, size_t batches) {
    const auto calls = fake.Calls(NFSPROC3_READDIRPLUS);
    ASSERT_EQ(first + batches, calls.size());
    const char zero[NFS3_COOKIEVERFSIZE] = {};
    for (size_t i = 0; i < batches; ++i) {
        SCOPED_TRACE(i);
        const kxfake::Args<readdirplus3args> a(calls[first + i], xdr_readdirplus3args);
        ASSERT_TRUE(a.ok);
        const nfs_fh3& dir = a.value.dir;
        EXPECT_EQ("\x01\x02\x03\x04", std::string(dir.data.data_val, dir.data.data_len));
        EXPECT_EQ(i == 0 ? 0 : kxfake::FakeCookie(i * kxfake::kFakeDirBatch - 1), a.value.cookie);
        EXPECT_EQ(0, memcmp(zero, a.value.cookieverf, sizeof zero));
        EXPECT_EQ(1024u, a.value.dircount);
        EXPECT_EQ(8192u, a.value.maxcount);
    }
}

KX_FAKE_TEST(NFSDirListFake, CookiesAndVerifierOnTheWire) {
    kxtest::FakeNFS fake;
    ASSERT_TRUE(fake.Start("nfs", kEntries));
    ExportInfo dir;
    auto udp = fake.Browse(eUseUDP, dir);
    auto tcp = fake.Browse(eUseTCP, dir);
    ASSERT_TRUE(udp && tcp);

    std::vector<DirEntry> all;
    EXPECT_TRUE(udp->Entries(dir, all));
    ExpectFakeEntries(all, kEntries);
    ExpectBatchRequests(fake, 0, 3);

    bool ended = false;
    const std::vector<DirEntry> one = Enumerate(*tcp, dir, ended);
    EXPECT_TRUE(ended);
    ExpectFakeEntries(one, kEntries);
    ExpectBatchRequests(fake, 3, 3);
}

// Listings that cannot go on after their first batch. A failed later batch ends Entries with
// that batch, silently, and the enumeration with the code, logged. Cookies that lead back to
// the start would keep both routes listing for ever: each ends once the loop is seen, logged
// by both, Entries with what it gathered (more than one round of the loop at most), the
// enumeration with a code.
KX_FAKE_TEST(NFSDirListFake, LaterBatchesThatCannotGoOn) {
    const struct {
        const char* mode;
        size_t entriesLogged;
        size_t maxRequests;  // by Entries: the failed one, or three rounds of the loop
        long code;
        const char* text;
    } cases[] = {
        {"nfsdirstale", 0, 2, KX_E_NFS_STALE, "nfsproc3_readdirplus_3 (status 70, err 0x00000000)"},
        {"nfsdirloop", 1, 9, KX_E_NFS_SERVER_FAULT,
         "nfsproc3_readdirplus_3 (cookies go round a loop, listing ended)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.mode);
        kxtest::FakeNFS fake;
        ASSERT_TRUE(fake.Start(c.mode, kEntries));
        ExportInfo dir;
        auto browse = fake.Browse(eUseTCP, dir);
        ASSERT_TRUE(browse);
        kxtest::LogCapture log;
        const std::string line = std::string(c.text) + " fake:/export/000000";

        std::vector<DirEntry> all;
        EXPECT_TRUE(browse->Entries(dir, all));
        const size_t first = c.entriesLogged ? kEntries : kxfake::kFakeDirBatch;
        ASSERT_GE(all.size(), first);
        EXPECT_LE(all.size(), c.entriesLogged ? 4 * first : first);
        ExpectFakeEntries(std::vector<DirEntry>(all.begin(), all.begin() + first), first);
        EXPECT_EQ(0, browse->GetLastObjectError());
        EXPECT_LE(fake.Calls(NFSPROC3_READDIRPLUS).size(), c.maxRequests);
        ASSERT_EQ(c.entriesLogged, log.Records().size());
        for (const auto& r : log.Records()) EXPECT_EQ(line, r.text);

        bool ended = true;
        const std::vector<DirEntry> one = Enumerate(*browse, dir, ended);
        EXPECT_FALSE(ended);
        EXPECT_EQ(all.size(), one.size());
        EXPECT_EQ(c.code, browse->GetLastObjectError());
        ASSERT_EQ(c.entriesLogged + 1, log.Records().size());
        EXPECT_EQ(line, log.Records().back().text);
    }
}

KX_FAKE_TEST(NFSDirListFake, EmptyDirectoryAndCancellation) {
    kxtest::FakeNFS fake;
    ASSERT_TRUE(fake.Start("nfs", 0));
    ExportInfo dir;
    kxtest::CancelFrom cancel;
    {
        auto browse = fake.Browse(eUseUDP, dir);
        ASSERT_TRUE(browse);
        DirEntry first;
        EXPECT_EQ(nullptr, browse->GetFirstDirEntry(dir, first));
        EXPECT_EQ(0, browse->GetLastObjectError());
        std::vector<DirEntry> all{DirEntry()};
        EXPECT_TRUE(browse->Entries(dir, all));
        EXPECT_EQ(1u, all.size());  // appends, clears nothing
    }

    ASSERT_TRUE(fake.Start("nfs", kEntries));
    auto browse = fake.Browse(eUseUDP, dir, &cancel);
    ASSERT_TRUE(browse);
    const size_t before = fake.Calls(NFSPROC3_READDIRPLUS).size();  // kept across restarts
    // Entries asks after each batch: cancelled after the first, it ends with that batch.
    cancel.asked = 0;
    cancel.from = 1;
    std::vector<DirEntry> all;
    EXPECT_TRUE(browse->Entries(dir, all));
    ExpectFakeEntries(all, kxfake::kFakeDirBatch);
    EXPECT_EQ(before + 1, fake.Calls(NFSPROC3_READDIRPLUS).size());

    // The enumeration asks before each entry: false, with the last error left as it was.
    cancel.from = 1 << 30;
    DirEntry next;
    std::unique_ptr<NFSGetNextHandle> handle(browse->GetFirstDirEntry(dir, next));
    ASSERT_TRUE(handle);
    EXPECT_FALSE(browse->GetNextDirEntry(nullptr, next));
    cancel.asked = 0;
    cancel.from = 1;
    EXPECT_FALSE(browse->GetNextDirEntry(handle.get(), next));
    EXPECT_EQ(KX_E_BAD_ARGUMENT, browse->GetLastObjectError());
    // Taken up again, it continues where it stopped.
    cancel.from = 1 << 30;
    ASSERT_TRUE(browse->GetNextDirEntry(handle.get(), next));
    EXPECT_EQ("f000001", next.Name());
}

}  // namespace
