#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "kxPlatformFaults.h"
#include "kxTestProcess.h"
#include "platform/kxWin32.h"

namespace {

void WriteFile(const std::string& path, const std::string& data) {
    std::ofstream(path, std::ios::binary) << data;
}

std::string Pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>('a' + (i * 7 + i / 251) % 26);
    return s;
}

mode_t ModeOf(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

TEST(kxWin32Files, AttributesOfEachKindOfName) {
    kxtest::TempDir dir;
    const std::string file = dir / "f", fifo = dir / "p";
    WriteFile(file, "12345");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));

    EXPECT_EQ(FILE_ATTRIBUTE_DIRECTORY, GetFileAttributesA(dir.path().c_str()));
    EXPECT_EQ(FILE_ATTRIBUTE_NORMAL, GetFileAttributesA(file.c_str()));
    EXPECT_EQ(0u, GetFileAttributesA(fifo.c_str()));
    errno = 0;
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA((dir / "missing").c_str()));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, errno);
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(nullptr));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, errno);
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA((file + "/below").c_str()));
    EXPECT_EQ(ENOTDIR, errno);  // other failures keep the Unix number
}

TEST(kxWin32Files, AttributeDataDropsTheHostPartAndConvertsTimes) {
    kxtest::TempDir dir;
    const std::string file = dir / "data";
    WriteFile(file, Pattern(1234));
    struct utimbuf times {1000000000, 1234567890};  // access, modification
    ASSERT_EQ(0, utime(file.c_str(), &times));

    _WIN32_FILE_ATTRIBUTE_DATA data;
    memset(&data, 0xAB, sizeof(data));
    ASSERT_TRUE(GetFileAttributesExA(("anyhost:" + file).c_str(), GetFileExInfoStandard, &data));
    EXPECT_EQ(FILE_ATTRIBUTE_NORMAL, data.dwFileAttributes);
    EXPECT_EQ(1234u, data.nFileSizeLow);
    EXPECT_EQ(0u, data.nFileSizeHigh);
    EXPECT_EQ(0u, data.ftCreationTime.dwLowDateTime);
    EXPECT_EQ(0u, data.ftCreationTime.dwHighDateTime);
    auto value = [](const _FILETIME& ft) { return (static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime; };
    EXPECT_EQ(1000000000ULL * 10000000ULL + 116444736000000000ULL, value(data.ftLastAccessTime));
    EXPECT_EQ(1234567890ULL * 10000000ULL + 116444736000000000ULL, value(data.ftLastWriteTime));

    ASSERT_TRUE(GetFileAttributesExA("anyhost:/etc", GetFileExInfoStandard, &data));
    EXPECT_EQ(FILE_ATTRIBUTE_DIRECTORY, data.dwFileAttributes);
    EXPECT_FALSE(GetFileAttributesExA(file.c_str(), GetFileExMaxInfoLevel, &data));
    EXPECT_FALSE(GetFileAttributesExA(("h:" + dir / "none").c_str(), GetFileExInfoStandard, &data));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, errno);
}

TEST(kxWin32Files, CopyMakesAnExactCopyWithTheSourceModeOnlyForNewTargets) {
    kxtest::TempDir dir;
    const std::string from = dir / "from", to = dir / "to", existing = dir / "existing";
    const std::string content = Pattern(3 * 65536 + 17);
    WriteFile(from, content);
    ASSERT_EQ(0, chmod(from.c_str(), 0640));
    WriteFile(existing, Pattern(5 * 65536));  // longer than the source: must be truncated
    ASSERT_EQ(0, chmod(existing.c_str(), 0600));

    const mode_t mask = umask(022);
    EXPECT_TRUE(CopyFileA(from.c_str(), to.c_str(), FALSE));
    EXPECT_TRUE(CopyFileA(from.c_str(), existing.c_str(), FALSE));
    umask(mask);
    EXPECT_EQ(content, kxtest::ReadFile(to));
    EXPECT_EQ(0640u, ModeOf(to));
    EXPECT_EQ(content, kxtest::ReadFile(existing));
    EXPECT_EQ(0600u, ModeOf(existing));

    // Fail-if-exists leaves the target alone.
    WriteFile(existing, "keep");
    EXPECT_FALSE(CopyFileA(from.c_str(), existing.c_str(), TRUE));
    EXPECT_EQ("keep", kxtest::ReadFile(existing));
    EXPECT_TRUE(CopyFileA(from.c_str(), (dir / "fresh").c_str(), TRUE));
    EXPECT_EQ(content, kxtest::ReadFile(dir / "fresh"));

    // An empty source cannot be mapped and goes through the buffered copy.
    WriteFile(dir / "empty", "");
    EXPECT_TRUE(CopyFileA((dir / "empty").c_str(), to.c_str(), FALSE));
    EXPECT_EQ("", kxtest::ReadFile(to));

    errno = 0;
    EXPECT_FALSE(CopyFileA((dir / "missing").c_str(), to.c_str(), FALSE));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(CopyFileA(from.c_str(), (dir / "no/such/dir").c_str(), FALSE));
    EXPECT_FALSE(CopyFileA(nullptr, to.c_str(), FALSE));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, errno);
}

TEST(kxWin32Files, CopyFallsBackToBufferedCopyWhenTheMappedCopyFails) {
    kxtest::TempDir dir;
    const std::string from = dir / "from", to = dir / "to";
    for (size_t size : {size_t{1}, size_t{65535}, size_t{65536}, size_t{2 * 65536}, size_t{2 * 65536 + 1}}) {
        const std::string content = Pattern(size);
        WriteFile(from, content);
        {
            kxtest::PlatformFaults env;
            env.mmapError = ENODEV;
            kxScopedEnv scope(&env);
            EXPECT_TRUE(CopyFileA(from.c_str(), to.c_str(), FALSE)) << size;
            EXPECT_EQ(content, kxtest::ReadFile(to)) << size;
        }
        // A short write from the mapping leaves part of the target written; the buffered copy
        // must still produce an exact copy, not the source appended to a fragment.
        {
            kxtest::PlatformFaults env;
            env.halveFirstWrite = true;
            kxScopedEnv scope(&env);
            EXPECT_TRUE(CopyFileA(from.c_str(), to.c_str(), FALSE)) << size;
            EXPECT_EQ(content, kxtest::ReadFile(to)) << size;
        }
    }

    // When the buffered copy fails as well, the copy fails.
    kxtest::PlatformFaults env;
    kxScopedEnv scope(&env);
    env.mmapError = ENODEV;
    env.shortWrites = true;
    EXPECT_FALSE(CopyFileA(from.c_str(), to.c_str(), FALSE));
    env.readError = EIO;
    EXPECT_FALSE(CopyFileA(from.c_str(), to.c_str(), FALSE));
    EXPECT_EQ(EIO, errno);
}

TEST(kxWin32Files, DirectoryAndFilePrimitives) {
    kxtest::TempDir dir;
    const std::string sub = dir / "sub", a = dir / "a", b = dir / "b";
    EXPECT_TRUE(CreateDirectoryA(sub.c_str(), nullptr));
    EXPECT_FALSE(CreateDirectoryA(sub.c_str(), nullptr));
    EXPECT_EQ(EEXIST, errno);

    WriteFile(a, "new");
    WriteFile(b, "old");
    EXPECT_TRUE(MoveFileA(a.c_str(), b.c_str()));  // replaces the target
    EXPECT_EQ("new", kxtest::ReadFile(b));
    EXPECT_FALSE(MoveFileA(a.c_str(), b.c_str()));

    WriteFile(sub + "/x", "");
    EXPECT_FALSE(RemoveDirectoryA(sub.c_str()));  // not empty
    EXPECT_TRUE(DeleteFileA((sub + "/x").c_str()));
    EXPECT_FALSE(DeleteFileA((sub + "/x").c_str()));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_TRUE(RemoveDirectoryA(sub.c_str()));

    EXPECT_FALSE(CreateDirectoryA(nullptr, nullptr));
    EXPECT_FALSE(RemoveDirectoryA(nullptr));
    EXPECT_FALSE(MoveFileA(nullptr, b.c_str()));
    EXPECT_FALSE(DeleteFileA(nullptr));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, errno);
}

}  // namespace
