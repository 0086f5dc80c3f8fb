// Remote files through KFile against a real NFS server in the test's sandbox: every name is
// "127.0.0.2:<path>", a loopback address that is not this machine's own, so KFile hands it to
// the NFS remote handle; results are checked through the local file system under the export.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>

#include "kxNFSServerTest.h"
#include "kxToolRun.h"
#include "log/KLogStream.h"
#include "nfs/KFileNFS.h"
#include "nfs/NFSBrowse.h"
#include "platform/KFile.h"

namespace {

using kxtest::Exists;
using kxtest::Put;
using kxtest::RandomBytes;

const std::string kHost = "127.0.0.2";
const unsigned long kRefused = static_cast<unsigned long>(KX_E_REFUSED);

uint64_t Ticks(const _FILETIME& t) { return (uint64_t{t.dwHighDateTime} << 32) | t.dwLowDateTime; }

_FILETIME FileTime(uint64_t ticks) {
    return _FILETIME{static_cast<uint32_t>(ticks), static_cast<uint32_t>(ticks >> 32)};
}

class KFileNFSTest : public kxtest::NFSServerTest {
protected:
    void SetUp() override {
        kxtest::NFSServerTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        ASSERT_FALSE(KFile::_IsLocalServer(kHost)) << "the tests need a host KFile sends away";
        dir = MakeTestDir();
    }

    std::string Local(const std::string& name) const { return dir + "/" + name; }
    std::string Remote(const std::string& name) const { return kHost + ":" + Local(name); }

    static unsigned long Open(KFileABC& f, const std::string& name, unsigned long disposition,
                              unsigned long access = GENERIC_READ | GENERIC_WRITE) {
        return f.CreateFileA(name.c_str(), access, FILE_SHARE_READ, nullptr, disposition,
                             FILE_ATTRIBUTE_NORMAL, nullptr);
    }
    static std::string Get(const std::string& path) { return kxtest::ReadFile(path); }
    static struct stat Stat(const std::string& path) {
        struct stat st {};
        EXPECT_EQ(0, stat(path.c_str(), &st)) << path;
        return st;
    }
    static std::string ReadAll(KFileABC& f, size_t n) {
        std::string s(n, '\0');
        unsigned long got = 0;
        f.ReadFile(&s[0], static_cast<unsigned long>(n), &got, nullptr);
        s.resize(got);
        return s;
    }
    static bool Write(KFileABC& f, const std::string& bytes) {
        unsigned long put = 0;
        return f.WriteFile(bytes.data(), static_cast<unsigned long>(bytes.size()), &put, nullptr) &&
               put == bytes.size();
    }

    std::string dir;
};

TEST_F(KFileNFSTest, DispositionsCreateKeepTruncateOrRefuse) {
    KFile f;
    EXPECT_EQ(kRefused, Open(f, Remote("f"), TRUNCATE_EXISTING));
    EXPECT_FALSE(f.IsOpen());
    EXPECT_FALSE(Exists(Local("f")));

    ASSERT_EQ(0u, Open(f, Remote("f"), CREATE_NEW));
    EXPECT_FALSE(f.IsPreExisting());
    EXPECT_EQ(Remote("f"), f.GetFileName());
    EXPECT_TRUE(Write(f, "first contents"));
    EXPECT_EQ(kRefused, Open(f, Remote("f"), CREATE_NEW));
    EXPECT_FALSE(f.IsOpen());
    EXPECT_EQ("first contents", Get(Local("f")));

    ASSERT_EQ(0u, Open(f, Remote("f"), TRUNCATE_EXISTING));
    EXPECT_TRUE(f.IsPreExisting());
    EXPECT_EQ(0, Stat(Local("f")).st_size);

    // CREATE_ALWAYS removes and creates again: a second link keeps the old contents.
    Put(Local("f"), "old contents");
    ASSERT_EQ(0, link(Local("f").c_str(), Local("kept").c_str()));
    const ino_t before = Stat(Local("f")).st_ino;
    ASSERT_EQ(0u, Open(f, Remote("f"), CREATE_ALWAYS));
    EXPECT_TRUE(f.IsPreExisting());
    EXPECT_NE(before, Stat(Local("f")).st_ino);
    EXPECT_EQ("old contents", Get(Local("kept")));

    // A directory opens for queries, but is never removed or truncated.
    ASSERT_EQ(0, mkdir(Local("sub").c_str(), 0777));
    EXPECT_EQ(0u, Open(f, Remote("sub"), OPEN_EXISTING, GENERIC_READ));
    for (unsigned long d : {CREATE_ALWAYS, TRUNCATE_EXISTING})
        EXPECT_EQ(static_cast<unsigned long>(KX_E_NFS_WRONG_TYPE), Open(f, Remote("sub"), d)) << d;
    EXPECT_TRUE(Exists(Local("sub")));

    // Failures that are not a missing name come back with the browse layer's code.
    EXPECT_EQ(static_cast<unsigned long>(KX_E_NFS_NOENT), Open(f, Remote("none/f"), CREATE_NEW));
    KFileNFS direct;
    EXPECT_EQ(static_cast<unsigned long>(KX_E_BAD_ARGUMENT), Open(direct, Local("f"), OPEN_EXISTING))
        << "no host part";
}

TEST_F(KFileNFSTest, ReadsWritesAndPositionsKeepTheirWin32Quirks) {
    const std::string data = RandomBytes(200000, 1);
    KFile f;
    ASSERT_EQ(0u, Open(f, Remote("f"), CREATE_NEW));
    // Across several of the export's 64 KiB chunks, at an odd offset.
    EXPECT_EQ(12345u, f.SetFilePointer(12345, nullptr, FILE_BEGIN));
    ASSERT_TRUE(Write(f, data));
    const std::string local = Get(Local("f"));
    EXPECT_TRUE(local == std::string(12345, '\0') + data);
    EXPECT_EQ(212345u, f.GetFileSize(nullptr)) << "the size follows the handle's own writes";

    // FILE_END subtracts: 50 moves back from the end. Reading past the end is a short read:
    // false, with what was there and the position advanced by it.
    EXPECT_EQ(212295u, f.SetFilePointer(50, nullptr, FILE_END));
    std::string buf(100, 'x');
    unsigned long got = 7;
    EXPECT_FALSE(f.ReadFile(&buf[0], 100, &got, nullptr));
    EXPECT_EQ(50u, got);
    EXPECT_TRUE(buf.substr(0, 50) == data.substr(data.size() - 50));
    EXPECT_EQ(212345u, f.SetFilePointer(0, nullptr, FILE_CURRENT));

    // A negative low word makes the high word all ones whatever the caller's high word says.
    long high = 1;
    EXPECT_EQ(212344u, f.SetFilePointer(-1, &high, FILE_CURRENT));
    EXPECT_EQ(0, high);
    high = 0;
    EXPECT_EQ(0xFFFFFFFFul, f.SetFilePointer(-1, &high, FILE_BEGIN));
    EXPECT_EQ(-1, high);
    EXPECT_FALSE(f.ReadFile(&buf[0], 10, &got, nullptr)) << "no such position";
    EXPECT_EQ(0u, got);

    // A read-only handle writes nothing.
    KFile reader;
    ASSERT_EQ(0u, Open(reader, Remote("f"), OPEN_EXISTING, GENERIC_READ));
    unsigned long put = 9;
    EXPECT_FALSE(reader.WriteFile("zz", 2, &put, nullptr));
    EXPECT_EQ(0u, put);
    EXPECT_TRUE(local == Get(Local("f")));
}

TEST_F(KFileNFSTest, SizesTimesAndTruncation) {
    Put(Local("f"), RandomBytes(10000, 2));
    KFile f;
    ASSERT_EQ(0u, Open(f, Remote("f"), OPEN_EXISTING));
    f.SetFilePointer(40, nullptr, FILE_BEGIN);
    ASSERT_TRUE(f.SetEndOfFile());
    EXPECT_EQ(40, Stat(Local("f")).st_size);
    f.SetFilePointer(5000, nullptr, FILE_BEGIN);
    ASSERT_TRUE(f.SetEndOfFile());
    EXPECT_EQ(std::string(4960, '\0'), Get(Local("f")).substr(40));

    // Client times to the 100 ns tick; the creation time is ignored and reported as zero.
    const uint64_t access = kxFileTimeUnixEpoch + 981173106ull * 10000000ull + 1234567;
    const uint64_t write = kxFileTimeUnixEpoch + 1262304000ull * 10000000ull + 7654321;
    const _FILETIME a = FileTime(access), w = FileTime(write), c = FileTime(1);
    ASSERT_TRUE(f.SetFileTime(&c, &a, &w));
    struct stat st = Stat(Local("f"));
    EXPECT_EQ(981173106, st.st_atim.tv_sec);
    EXPECT_EQ(123456700, st.st_atim.tv_nsec);
    EXPECT_EQ(1262304000, st.st_mtim.tv_sec);
    EXPECT_EQ(765432100, st.st_mtim.tv_nsec);
    _FILETIME gc = FileTime(5), ga{}, gw{};
    ASSERT_TRUE(f.GetFileTime(&gc, &ga, &gw));
    EXPECT_EQ(0u, Ticks(gc));
    EXPECT_EQ(access, Ticks(ga));
    EXPECT_EQ(write, Ticks(gw));
    // Only the write time: the access time stays.
    const _FILETIME w2 = FileTime(write + 10000000);
    ASSERT_TRUE(f.SetFileTime(nullptr, nullptr, &w2));
    EXPECT_EQ(981173106, Stat(Local("f")).st_atim.tv_sec);
    EXPECT_EQ(1262304001, Stat(Local("f")).st_mtim.tv_sec);

    // After a write the next query asks the server: the times are the server's again.
    ASSERT_TRUE(Write(f, "x"));
    ASSERT_TRUE(f.GetFileTime(nullptr, nullptr, &gw));
    st = Stat(Local("f"));
    EXPECT_EQ(kxFileTimeUnixEpoch + static_cast<uint64_t>(st.st_mtim.tv_sec) * 10000000ull +
                  static_cast<uint64_t>(st.st_mtim.tv_nsec) / 100,
              Ticks(gw));
    struct stat remote {};
    ASSERT_EQ(0, f.fstat(&remote));
    EXPECT_EQ(st.st_mode, remote.st_mode);
    EXPECT_EQ(st.st_size, remote.st_size);
}

TEST_F(KFileNFSTest, ViewsAreCopiesWrittenBackOnFlushAndUnmap) {
    const std::string data = RandomBytes(8192, 3);
    Put(Local("f"), data);
    KFile f;
    ASSERT_EQ(0u, Open(f, Remote("f"), OPEN_EXISTING));

    auto* view = static_cast<char*>(f.MapViewOfFile(FILE_MAP_WRITE, 0, 4096, 1000));
    ASSERT_NE(nullptr, view);
    EXPECT_EQ(static_cast<void*>(view), f.GetFileMapping());
    EXPECT_EQ(0, memcmp(view, data.data() + 4096, 1000));
    memcpy(view, "FLUSHED", 7);
    EXPECT_EQ(data, Get(Local("f"))) << "nothing reaches the server before a flush";
    EXPECT_FALSE(f.FlushViewOfFile(view + 1, 10)) << "not the view's start";
    ASSERT_TRUE(f.FlushViewOfFile(view, 0));
    EXPECT_EQ("FLUSHED", Get(Local("f")).substr(4096, 7));
    memcpy(view + 993, "UNMAPPD", 7);
    ASSERT_TRUE(f.UnmapViewOfFile(view));
    EXPECT_EQ(nullptr, f.GetFileMapping());
    EXPECT_EQ("UNMAPPD", Get(Local("f")).substr(5089, 7));

    // Read-only views and a view longer than the file (which fails and never grows it) are
    // never written back.
    const std::string before = Get(Local("f"));
    view = static_cast<char*>(f.MapViewOfFile(FILE_MAP_READ, 0, 0, 100));
    ASSERT_NE(nullptr, view);
    memset(view, 'r', 100);
    EXPECT_TRUE(f.FlushViewOfFile(view, 100));
    EXPECT_TRUE(f.UnmapViewOfFile(view));
    EXPECT_EQ(nullptr, f.MapFile(nullptr, PAGE_READWRITE, 0, 9000, "name"));
    EXPECT_EQ(0, f.UnMapFile());
    EXPECT_EQ(before, Get(Local("f")));

    // MapFile with write protection: a writable view of the first bytes.
    view = static_cast<char*>(f.MapFile(nullptr, PAGE_READWRITE, 0, 8192, "name"));
    ASSERT_NE(nullptr, view);
    memcpy(view + 8185, "MAPFILE", 7);
    EXPECT_EQ(0, f.UnMapFile());
    EXPECT_EQ("MAPFILE", Get(Local("f")).substr(8185));

    // A handle without write access never writes a view back.
    const std::string whole = Get(Local("f"));
    KFile reader;
    ASSERT_EQ(0u, Open(reader, Remote("f"), OPEN_EXISTING, GENERIC_READ));
    view = static_cast<char*>(reader.MapViewOfFile(FILE_MAP_WRITE, 0, 0, 64));
    ASSERT_NE(nullptr, view);
    memset(view, 'w', 64);
    EXPECT_EQ(0, reader.UnMapFile());
    EXPECT_EQ(whole, Get(Local("f")));
    // 0 bytes: from the offset to the end of the file.
    view = static_cast<char*>(reader.MapViewOfFile(FILE_MAP_READ, 0, 8000, 0));
    ASSERT_NE(nullptr, view);
    EXPECT_EQ(0, memcmp(view, whole.data() + 8000, 192));
}

// Positions and sizes past 4 GiB keep their high words (a hole, so the file takes no space).
TEST_F(KFileNFSTest, SparseFilePastFourGiB) {
    KFile f;
    ASSERT_EQ(0u, Open(f, Remote("sparse"), CREATE_NEW));
    long high = 1;
    EXPECT_EQ(0x40000003ul, f.SetFilePointer(0x40000003, &high, FILE_BEGIN));
    ASSERT_TRUE(Write(f, "beyond four GiB!"));
    unsigned long sizeHigh = 0;
    EXPECT_EQ(0x40000013ul, f.GetFileSize(&sizeHigh));
    EXPECT_EQ(1ul, sizeHigh);
    EXPECT_EQ(0x140000013ll, Stat(Local("sparse")).st_size);
    _LARGE_INTEGER size{};
    ASSERT_TRUE(f.GetFileSizeEx(&size));
    EXPECT_EQ(0x140000013ll, size.QuadPart);
    high = 0;
    EXPECT_EQ(0x40000000ul, f.SetFilePointer(0x13, &high, FILE_END));
    EXPECT_EQ(1, high);
    EXPECT_EQ(std::string("\0\0\0beyond four GiB!", 19), ReadAll(f, 19));
    auto* view = static_cast<const char*>(f.MapViewOfFile(FILE_MAP_READ, 1, 0x40000003, 16));
    ASSERT_NE(nullptr, view);
    EXPECT_EQ("beyond four GiB!", std::string(view, 16));
    _WIN32_FIND_DATAA fd{};
    ASSERT_EQ(0, f.GetWinFindData(Remote("sparse").c_str(), &fd));
    EXPECT_EQ(1u, fd.nFileSizeHigh);
}

// The handle's credentials are the ones the server sees: another owner may not write.
TEST_F(KFileNFSTest, CredentialsReachTheServer) {
    Put(Local("owned"), "original");
    ASSERT_EQ(0, chown(Local("owned").c_str(), 1234, 1234));
    ASSERT_EQ(0, chmod(Local("owned").c_str(), 0644));
    KFile other, owner;
    other.SetNFSCredentials(4321, {4321});
    ASSERT_EQ(0u, Open(other, Remote("owned"), OPEN_EXISTING));
    EXPECT_FALSE(Write(other, "changed!"));
    owner.SetNFSCredentials(1234, {1234});
    ASSERT_EQ(0u, Open(owner, Remote("owned"), OPEN_EXISTING));
    EXPECT_TRUE(Write(owner, "changed!"));
    EXPECT_EQ("changed!", Get(Local("owned")));
}

TEST_F(KFileNFSTest, QueriesAndHandleRecords) {
    Put(Local("f"), "0123456789");
    Put(Local("g"), "abc");
    ASSERT_EQ(0, mkdir(Local("sub").c_str(), 0777));
    KFile f;
    ASSERT_EQ(0u, Open(f, Remote("f"), OPEN_EXISTING, GENERIC_READ));
    EXPECT_TRUE(f.IsDir(Remote("sub").c_str()));
    EXPECT_FALSE(f.IsDir(Remote("g").c_str()));
    EXPECT_FALSE(f.IsDir(Local("sub").c_str())) << "no host part";

    _WIN32_FIND_DATAA fd;
    ASSERT_EQ(0, f.GetWinFindData(Remote("sub").c_str(), &fd));
    EXPECT_EQ(0x10u, fd.dwFileAttributes);
    EXPECT_STREQ("sub", fd.cFileName);
    ASSERT_EQ(0, f.GetWinFindData(Remote("g").c_str(), &fd));
    EXPECT_EQ(0u, fd.dwFileAttributes);
    EXPECT_EQ(3u, fd.nFileSizeLow);
    EXPECT_EQ(KX_E_FILE_FIND, f.GetWinFindData(Remote("missing").c_str(), &fd));
    EXPECT_EQ(0, fd.cFileName[0]);
    // The queries leave the handle's own file alone.
    EXPECT_EQ("0123", ReadAll(f, 4));

    KFileNFS direct;
    ASSERT_EQ(0u, Open(direct, Remote("f"), OPEN_EXISTING, GENERIC_READ));
    EXPECT_EQ(kxNFSUtils::kDirEntryRegular, direct.GetFileType());
    EXPECT_EQ(static_cast<uint64_t>(Stat(Local("f")).st_ino), direct.GetFileId());
    EXPECT_NE(0u, direct.GetFileSystemId());
    // A record tagged 0xFEFFFEFF replaces the open handle's entry: its reads go to that file.
    kxNFSUtils::NFSBrowse* b = nullptr;
    ASSERT_EQ(KX_OK, kxNFSUtils::CreateNFSBrowse(b, kHost, 0, {0}, nullptr, kxNFSUtils::eUseTCP));
    std::unique_ptr<kxNFSUtils::NFSBrowse> browse(b);
    std::unique_ptr<kxNFSUtils::DirEntry> entry(browse->Open(Local("g"), false, false));
    ASSERT_TRUE(entry);
    EXPECT_NE(nullptr, direct.SetHandle(entry.get()));
    EXPECT_EQ("abc", ReadAll(direct, 3));
    uint32_t untagged[64] = {0x12345678};
    EXPECT_EQ(nullptr, direct.SetHandle(untagged));

    // Through KFile: the record makes a remote handle with no connection of its own; it answers
    // from the record, and reads fail.
    KFile record;
    ASSERT_NE(nullptr, record.SetHandle(entry.get()));
    EXPECT_EQ(3u, record.GetFileSize(nullptr));
    _FILETIME w{};
    EXPECT_TRUE(record.GetFileTime(nullptr, nullptr, &w));
    EXPECT_EQ(entry->writeTime, Ticks(w));
    char c;
    EXPECT_FALSE(record.ReadFile(&c, 1, nullptr, nullptr));
}

TEST_F(KFileNFSTest, LocksGoThroughTheServersLockManager) {
    if (!kxtest::NFSSandbox::Get().StatusMonitorUp())
        GTEST_SKIP() << "rpc.statd is not installed: the server grants no locks";
    Put(Local("f"), "locked");
    KFile reader, writer;
    ASSERT_EQ(0u, Open(reader, Remote("f"), OPEN_EXISTING, GENERIC_READ));
    ASSERT_EQ(0u, Open(writer, Remote("f"), OPEN_EXISTING));
    EXPECT_EQ(KX_E_FILE_LOCK, reader.TryLockFile(true)) << "exclusive needs write access";

    // Another owner: the server tells owners apart by the client's address, and a browse
    // object that reaches it at 127.0.0.1 comes from there.
    kxNFSUtils::NFSBrowse* b = nullptr;
    ASSERT_EQ(KX_OK, kxNFSUtils::CreateNFSBrowse(b, std::string("127.0.0.1"), 0, {0}, nullptr,
                                                 kxNFSUtils::eUseTCP));
    std::unique_ptr<kxNFSUtils::NFSBrowse> other(b);
    std::unique_ptr<kxNFSUtils::DirEntry> entry(other->Open(Local("f"), false, false));
    ASSERT_TRUE(entry);
    ASSERT_TRUE(other->LockFile(*entry, true, true));
    EXPECT_EQ(KX_S_WAIT_TIMEOUT, writer.TryLockFile(true)) << "held elsewhere: try again later";
    ASSERT_TRUE(other->LockFile(*entry, false, true));

    // Closing a handle releases its whole lock, even after the size the lock's range was
    // computed from has shrunk.
    ASSERT_TRUE(Write(writer, std::string(20000, 'w')));
    ASSERT_EQ(KX_OK, writer.TryLockFile(true));
    EXPECT_FALSE(other->LockFile(*entry, true, false));
    writer.SetFilePointer(0, nullptr, FILE_BEGIN);
    ASSERT_TRUE(writer.SetEndOfFile());
    writer.CloseHandle();
    EXPECT_TRUE(other->LockFile(*entry, true, true));
}

TEST_F(KFileNFSTest, LogViewerReadsALogFileOnTheServer) {
#ifndef KX_LOGVIEW_TOOL
    GTEST_SKIP() << "kxlogview is not built";
#else
    if (!kxtest::NFSSandbox::Get().StatusMonitorUp())
        GTEST_SKIP() << "rpc.statd is not installed: the viewer locks the file it reads";
    const std::string logs = Local("logs");
    ASSERT_EQ(0, mkdir(logs.c_str(), 0777));
    {
        KLogStream w(logs.c_str(), "Default.log", 1024, 0, true);
        ASSERT_TRUE(w.IsLive());
        for (int i = 0; i < 200; ++i)
            w.PrintString(("record " + std::to_string(i)).c_str(), 0, kxLogSevProgress, 0);
    }

    // Exactly one view's worth: the remote file prints as the local one does. The viewer only
    // uses KFile, so this also proves the NFS library's link anchor registers the remote handle.
    const auto viewer = [](const std::string& file) {
        return kxtest::RunProgram(KX_LOGVIEW_TOOL, {"-o", "cat", file});
    };
    const kxtest::ToolRun local = viewer(logs + "/Default.log");
    ASSERT_EQ(0, local.status) << local.err;
    const kxtest::ToolRun remote = viewer(kHost + ":" + logs + "/Default.log");
    EXPECT_EQ(0, remote.status) << remote.err;
    EXPECT_EQ(local.out, remote.out);
    EXPECT_NE(std::string::npos, remote.out.find("record 199"));
#endif
}

}  // namespace
