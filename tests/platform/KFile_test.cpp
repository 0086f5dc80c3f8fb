// File handles on real files: KFileUnix's Win32-shaped operations and mappings, and the routing
// of "host:path" names.
#include "platform/KFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <string>

#include "kxLogCapture.h"
#include "kxPlatformFaults.h"
#include "kxTestProcess.h"
#include "platform/KFileNameCache.h"
#include "platform/KFileUnix.h"
#include "platform/kxSysInfo.h"

namespace {

using kxtest::TempDir;

unsigned long Open(KFileABC& f, const std::string& name, unsigned long disposition,
                   uintptr_t mode = 0, unsigned long access = GENERIC_READ | GENERIC_WRITE) {
    return f.CreateFileA(name.c_str(), access, 0, reinterpret_cast<_SECURITY_ATTRIBUTES*>(mode),
                         disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

mode_t ModeOf(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? (st.st_mode & 0777) : 0;
}

// Restores the process's umask when the test ends.
struct Umask {
    explicit Umask(mode_t m) : old(umask(m)) {}
    ~Umask() { umask(old); }
    mode_t old;
};

TEST(KFileUnixTest, DispositionsCreateTruncateAndReportPreExisting) {
    TempDir dir;
    Umask clear(0);
    const std::string a = dir / "a";
    KFileUnix f;
    EXPECT_EQ(0u, Open(f, a, CREATE_ALWAYS));
    EXPECT_TRUE(f.IsOpen());
    EXPECT_FALSE(f.IsPreExisting());
    EXPECT_STREQ(a.c_str(), f.GetFileName());
    EXPECT_EQ(0660u, ModeOf(a)) << "default permission bits";
    unsigned long n = 0;
    EXPECT_TRUE(f.WriteFile("hello", 5, &n, nullptr));
    EXPECT_EQ(5u, n);

    EXPECT_EQ(0u, Open(f, a, CREATE_ALWAYS));
    EXPECT_TRUE(f.IsPreExisting());
    EXPECT_EQ(0u, f.GetFileSize(nullptr)) << "CREATE_ALWAYS truncates an existing file";

    EXPECT_EQ(0u, Open(f, dir / "b", OPEN_ALWAYS, 0600));
    EXPECT_FALSE(f.IsPreExisting());
    EXPECT_EQ(0600u, ModeOf(dir / "b")) << "the security-attributes value is the mode";
    EXPECT_EQ(0u, Open(f, dir / "b", OPEN_ALWAYS, 0600));
    EXPECT_TRUE(f.IsPreExisting());

    kxtest::LogCapture log;
    EXPECT_EQ(static_cast<unsigned long>(KX_E_FILE_OPEN), Open(f, a, CREATE_NEW));
    EXPECT_FALSE(f.IsOpen());
    EXPECT_STREQ("", f.GetFileName());
    EXPECT_EQ(static_cast<unsigned long>(KX_E_NOT_FOUND), Open(f, dir / "none", OPEN_EXISTING));
    EXPECT_TRUE(log.Has(KX_E_NOT_FOUND, "KFileUnix::CreateFileA: error 2 opening file handle <"));
    for (unsigned long bad : {0ul, 6ul}) {
        EXPECT_EQ(static_cast<unsigned long>(KX_E_BAD_ARGUMENT), Open(f, dir / "c", bad));
        EXPECT_TRUE(log.Has(KX_E_BAD_ARGUMENT, "unknown dwCreationDisposition passed"));
    }
    EXPECT_EQ(0, ModeOf(dir / "c")) << "nothing created";
    EXPECT_EQ(static_cast<unsigned long>(KX_E_NOT_FOUND), Open(f, dir / "none", TRUNCATE_EXISTING));

    // Write-only access cannot read; read-only cannot write.
    EXPECT_EQ(0u, Open(f, a, OPEN_EXISTING, 0, GENERIC_WRITE));
    char buf[8];
    EXPECT_FALSE(f.ReadFile(buf, sizeof buf, &n, nullptr));
    EXPECT_EQ(0u, Open(f, a, OPEN_EXISTING, 0, GENERIC_READ));
    EXPECT_FALSE(f.WriteFile("x", 1, &n, nullptr));
    EXPECT_TRUE(log.Has(KX_E_FILE_WRITE, "KFileUnix::WriteFile: write failed, 9 <"));
}

TEST(KFileUnixTest, PositionsSizesAndTimes) {
    TempDir dir;
    KFileUnix f;
    ASSERT_EQ(0u, Open(f, dir / "p", CREATE_ALWAYS));
    unsigned long n;
    ASSERT_TRUE(f.WriteFile("0123456789", 10, &n, nullptr));
    long high = 0;
    EXPECT_EQ(9u, f.SetFilePointer(-1, &high, FILE_CURRENT)) << "a negative low part seeks back";
    EXPECT_EQ(0, high);
    high = 0;
    EXPECT_EQ(2u, f.SetFilePointer(2, &high, FILE_BEGIN));
    EXPECT_TRUE(f.SetEndOfFile());
    EXPECT_EQ(2u, f.GetFileSize(nullptr));
    EXPECT_EQ(0xFFFFFFFFul, f.SetFilePointer(0, nullptr, 3));

    // Sizes past 4 GiB: only the low 32 bits are reported, the high part always 0.
    const int raw = open((dir / "p").c_str(), O_WRONLY);
    ASSERT_EQ(0, ftruncate(raw, 5LL << 30));
    close(raw);
    unsigned long sizeHigh = 7;
    EXPECT_EQ(1ul << 30, f.GetFileSize(&sizeHigh));
    EXPECT_EQ(0u, sizeHigh);
    _LARGE_INTEGER li;
    EXPECT_TRUE(f.GetFileSizeEx(&li));
    EXPECT_EQ(1u << 30, li.LowPart);
    EXPECT_EQ(0, li.HighPart);

    // Times: whole seconds, FILETIME ticks.
    const uint64_t t = (1700000000ull + kxFileTimeEpochSeconds) * kxFileTimeTicksPerSecond;
    const _FILETIME ft{static_cast<uint32_t>(t), static_cast<uint32_t>(t >> 32)};
    EXPECT_TRUE(f.SetFileTime(nullptr, nullptr, &ft));
    _FILETIME access{1, 1}, write{0, 0}, creation{9, 9};
    EXPECT_TRUE(f.GetFileTime(&creation, &access, &write));
    EXPECT_EQ(ft.dwLowDateTime, write.dwLowDateTime);
    EXPECT_EQ(ft.dwHighDateTime, write.dwHighDateTime);
    EXPECT_EQ(9u, creation.dwLowDateTime) << "creation time untouched";

    _WIN32_FIND_DATAA fd;
    EXPECT_EQ(KX_OK, f.GetWinFindData((dir / "p").c_str(), &fd));
    EXPECT_EQ(1700000000u, fd.ftLastWriteTime.dwLowDateTime) << "raw Unix seconds, deliberately";
    EXPECT_EQ(0u, fd.ftLastWriteTime.dwHighDateTime);
    EXPECT_EQ(0u, fd.dwFileAttributes);
    EXPECT_STREQ("p", fd.cFileName);
    EXPECT_EQ(KX_OK, f.GetWinFindData(dir.path().c_str(), &fd));
    EXPECT_EQ(FILE_ATTRIBUTE_DIRECTORY, fd.dwFileAttributes);
    EXPECT_EQ(KX_E_FILE_FIND, f.GetWinFindData((dir / "none").c_str(), &fd));
    EXPECT_EQ(KX_E_BAD_ARGUMENT, f.GetWinFindData(nullptr, &fd));
    EXPECT_FALSE(f.IsDir(nullptr)) << "an open file answers for itself";
    f.CloseHandle();
    EXPECT_TRUE(f.IsDir(dir.path().c_str()));
    EXPECT_EQ(0xFFFFFFFFul, f.GetFileSize(nullptr));
    EXPECT_EQ(-1, f.fstat(nullptr));
}

TEST(KFileUnixTest, MappingsGrowTheFileAndRefuseWriteCopy) {
    TempDir dir;
    KFileUnix f;
    ASSERT_EQ(0u, Open(f, dir / "m", CREATE_ALWAYS));
    EXPECT_EQ(KX_OK, f.UnMapFile()) << "nothing mapped";
    EXPECT_EQ(nullptr, f.MapFile(nullptr, PAGE_WRITECOPY, 0, 4096, "name"));
    EXPECT_EQ(0u, f.GetFileSize(nullptr)) << "refused before growing";

    char* p = static_cast<char*>(f.MapFile(nullptr, PAGE_READWRITE, 0, 8192, "name"));
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(8192u, f.GetFileSize(nullptr));
    memcpy(p + 5000, "mapped", 6);
    EXPECT_TRUE(f.FlushViewOfFile(nullptr, 0));
    EXPECT_EQ("mapped", kxtest::ReadFile(dir / "m").substr(5000, 6)) << "a named mapping is shared";
    EXPECT_EQ(KX_OK, f.UnMapFile());
    EXPECT_EQ(nullptr, f.GetFileMapping());

    // Private without a name: changes stay in this process.
    p = static_cast<char*>(f.MapFile(nullptr, PAGE_READWRITE, 0, 4096, nullptr));
    ASSERT_NE(nullptr, p);
    memcpy(p, "private", 7);
    f.FlushViewOfFile(nullptr, 0);
    EXPECT_NE("private", kxtest::ReadFile(dir / "m").substr(0, 7));
    EXPECT_EQ(8192u, f.GetFileSize(nullptr)) << "never shrinks";
    f.CloseHandle();
    EXPECT_EQ(nullptr, f.GetFileMapping()) << "closing unmaps";

    // A failing mmap, or a file that cannot grow to the size asked for (a full disk: a view past
    // its end would fault when touched), leaves nothing mapped and says so.
    kxtest::PlatformFaults env;
    KFileUnix g(&env);
    ASSERT_EQ(0u, Open(g, dir / "m", OPEN_EXISTING));
    kxtest::LogCapture log;
    env.mmapError = ENOMEM;
    EXPECT_EQ(nullptr, g.MapFile(nullptr, PAGE_READWRITE, 0, 4096, "name"));
    EXPECT_TRUE(log.Has(KX_E_FILE_MAP, "KFileUnix::MapFile: error mapping file 12."));
    env.mmapError = 0;
    env.growError = ENOSPC;
    EXPECT_EQ(nullptr, g.MapFile(nullptr, PAGE_READWRITE, 0, 16384, "name"));
    EXPECT_TRUE(log.Has(KX_E_FILE_MAP, "KFileUnix::MapFile: error mapping file 28."));
    EXPECT_EQ(8192u, g.GetFileSize(nullptr));
    EXPECT_EQ(nullptr, g.GetFileMapping());
}

TEST(KFileUnixTest, FileLockExcludesOtherHandlesUntilReleasedOrClosed) {
    TempDir dir;
    KFileUnix a, b;
    ASSERT_EQ(0u, Open(a, dir / "l", CREATE_ALWAYS));
    ASSERT_EQ(0u, Open(b, dir / "l", OPEN_EXISTING));
    EXPECT_EQ(KX_OK, a.TryLockFile(true));
    EXPECT_EQ(KX_OK, a.TryLockFile(true)) << "the holder may take it again";
    EXPECT_EQ(KX_S_WAIT_TIMEOUT, b.TryLockFile(true)) << "another handle, same process";
    EXPECT_EQ(KX_S_WAIT_TIMEOUT, b.TryLockFile(false));
    EXPECT_EQ(KX_OK, a.UnlockFile());
    EXPECT_EQ(KX_OK, b.TryLockFile(false));
    EXPECT_EQ(KX_S_WAIT_TIMEOUT, a.TryLockFile(true)) << "readers keep writers out";
    b.CloseHandle();
    EXPECT_EQ(KX_OK, a.TryLockFile(true)) << "closing drops the lock";
    EXPECT_EQ(KX_E_REFUSED, b.TryLockFile(true)) << "no file open";
}

TEST(KFileTest, HostNamesRouteLocallyOrToTheRemoteHandle) {
    TempDir dir;
    const std::string self = kxSysInfo::GetComputerNameA();
    ASSERT_FALSE(self.empty());
    std::ofstream(dir / "here") << "local";
    KFileNameCache::Expire();

    KFile f;
    EXPECT_EQ(0u, Open(f, dir / "here", OPEN_EXISTING));

    EXPECT_EQ(0u, Open(f, self + ":" + (dir / "here"), OPEN_EXISTING)) << "this machine's name";
    EXPECT_STREQ((dir / "here").c_str(), f.GetFileName());
    char buf[8] = {};
    unsigned long n = 0;
    EXPECT_TRUE(f.ReadFile(buf, 5, &n, nullptr));
    EXPECT_STREQ("local", buf);

    // A documentation address is never this machine. Without a remote handle registered, its
    // names are refused (and nothing goes out on the network).
    struct NoRemoteHandle {
        KFile::RemoteFactory saved = KFile::SetRemoteFactory(nullptr);
        ~NoRemoteHandle() { KFile::SetRemoteFactory(saved); }
    } noRemote;
    EXPECT_NE(nullptr, noRemote.saved) << "a program using KFile links the NFS remote handle";
    kxtest::LogCapture log;
    EXPECT_EQ(static_cast<unsigned long>(KX_E_REFUSED), Open(f, "192.0.2.7:/export/f", OPEN_EXISTING));
    EXPECT_FALSE(f.IsOpen());
    EXPECT_TRUE(log.Has(KX_E_REFUSED, "remote files are not available <192.0.2.7:/export/f>"));
    std::vector<std::string> remote = KFileNameCache::KnownRemoteNames();
    EXPECT_NE(remote.end(), std::find(remote.begin(), remote.end(), "192.0.2.7"));

    // A host that does not resolve is remote and never cached.
    EXPECT_EQ(static_cast<unsigned long>(KX_E_REFUSED), Open(f, ":/export/f", OPEN_EXISTING));
    remote = KFileNameCache::KnownRemoteNames();
    EXPECT_EQ(remote.end(), std::find(remote.begin(), remote.end(), ""));

    // Once the caches are older than their age limit, the next lookup rebuilds them.
    KFileNameCache::Expire();
    EXPECT_TRUE(KFile::_IsLocalServer(self));
    EXPECT_EQ(std::vector<std::string>{self}, KFileNameCache::KnownLocalNames());
    EXPECT_TRUE(KFileNameCache::KnownRemoteNames().empty());
}

}  // namespace
