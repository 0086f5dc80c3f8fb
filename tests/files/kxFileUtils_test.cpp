#include "files/kxFileUtils.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/KCString.h"
#include "base/kxEnv.h"
#include "kxFilesTestUtil.h"

using namespace kxFileUtils;
using kxtest::IsDir;
using kxtest::IsFile;
using kxtest::WriteText;

namespace {

constexpr long kStatFailed = kxStatus(0xE0020107);
using kxFileUtilsTest = kxtest::FilesTest;

// The process clock stands still at 2007-03-05, a Monday, 04:05:06 UTC and the given
// milliseconds while the object lives.
class MondayMorning : public kxEnvWrapper {
public:
    explicit MondayMorning(int ms) : m_now{1173067506, ms * 1000}, m_scope(this) {}
    int GetTimeOfDay(struct timeval* tv) override {
        *tv = m_now;
        return 0;
    }

private:
    const struct timeval m_now;
    kxScopedEnv m_scope;
};

}  // namespace

TEST(kxFileUtilsNamesTest, AppendNameToPathCountsOnlyTheGivenSeparator) {
    char buf[32] = "";
    AppendNameToPath(buf, "///a", 0);  // an empty path gets one too; all leading ones go
    EXPECT_STREQ(buf, "/a");
    strcpy(buf, "C:\\d\\");
    AppendNameToPath(buf, "e", '/');  // a trailing "\" is not the separator asked for
    EXPECT_STREQ(buf, "C:\\d\\/e");
    KCString k("/x");
    AppendNameToPath(k, "y", 0);
    EXPECT_STREQ(k, "/x/y");
    std::string s = "/x/";
    AppendNameToPath(s, "/y", '/');
    EXPECT_EQ(s, "/x/y");
    const char* p = "a\\b/c";
    EXPECT_EQ(GetNextSlash(p, false), p + 3);  // the mirror of kxPath::GetNextSlash
    EXPECT_EQ(GetNextSlash(p, true), p + 1);
}

TEST_F(kxFileUtilsTest, PathExistsTellsMissingFromBroken) {
    WriteText(Path("f"), "x");
    bool exists = true;
    uint32_t attributes = 0;
    ASSERT_EQ(PathExists(Path("missing").c_str(), exists, &attributes), KX_OK);
    EXPECT_FALSE(exists);
    ASSERT_EQ(PathExists(root_.path().c_str(), exists, &attributes), KX_OK);
    EXPECT_TRUE(exists && attributes == FILE_ATTRIBUTE_DIRECTORY);
    _WIN32_FILE_ATTRIBUTE_DATA data;
    ASSERT_EQ(PathExistsEx(Path("f").c_str(), exists, &data), KX_OK);
    EXPECT_TRUE(exists && data.dwFileAttributes == FILE_ATTRIBUTE_NORMAL && data.nFileSizeLow == 1);
    EXPECT_EQ(PathExists(nullptr, exists, nullptr), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(PathExistsEx(Path("f").c_str(), exists, nullptr), KX_E_BAD_ARGUMENT);

    // A file where a directory is expected is an error, not a missing path.
    const std::string under = Path("f") + "/x";
    EXPECT_EQ(PathExists(under.c_str(), exists, nullptr), kStatFailed);
    EXPECT_EQ(PathExistsEx(under.c_str(), exists, &data), kStatFailed);
    EXPECT_TRUE(log_.Has(kStatFailed, "kxFileUtils::PathExistsA: error 20 checking existence of <" +
                                          under + ">"));
}

TEST_F(kxFileUtilsTest, RemoveFileCases) {
    EXPECT_EQ(RemoveFile(Path("missing").c_str()), KX_OK);
    EXPECT_EQ(RemoveFile(root_.path().c_str()), KX_E_BAD_ARGUMENT);
    EXPECT_TRUE(log_.Has(KX_E_BAD_ARGUMENT, "kxFileUtils::RemoveFile: <" + root_.path() + "> is a directory"));

    WriteText(Path("ro"), "x");  // read-only, in a writable directory: goes, as on Unix
    chmod(Path("ro").c_str(), 0444);
    EXPECT_EQ(RemoveFile(Path("ro").c_str()), KX_OK);
    EXPECT_FALSE(IsFile(Path("ro")));

    mkdir(Path("locked").c_str(), 0755);
    const std::string inside = Path("locked/f");
    WriteText(inside, "x");
    chmod(Path("locked").c_str(), 0555);
    EXPECT_EQ(kxtest::RunUnprivileged([&] { return RemoveFile(inside.c_str()); }),
              std::to_string(KX_E_DELETE_OR_MOVE) +
                  "\nkxFileUtils::RemoveFile: error 13 deleting file <" + inside + ">");
    EXPECT_TRUE(IsFile(inside));
}

TEST_F(kxFileUtilsTest, RenameFileAndDirectory) {
    WriteText(Path("a"), "A");
    WriteText(Path("b"), "B");
    ASSERT_EQ(RenameFile(Path("a").c_str(), Path("b").c_str(), false), KX_OK);  // rename replaces
    EXPECT_EQ(kxtest::ReadFile(Path("b")), "A");
    EXPECT_EQ(RenameFile(Path("a").c_str(), Path("x").c_str(), false), KX_E_DELETE_OR_MOVE);
    EXPECT_TRUE(log_.Has(KX_E_DELETE_OR_MOVE, "kxFileUtils::RenameFile: error 2 moving file <" +
                                                  Path("a") + "> to <" + Path("x") + ">"));
    mkdir(Path("d").c_str(), 0755);
    EXPECT_EQ(RenameFile(Path("b").c_str(), Path("d").c_str(), true), KX_E_BAD_ARGUMENT);
    EXPECT_TRUE(IsFile(Path("b"))) << "RemoveFile refused the directory; nothing moved";

    mkdir(Path("d/sub").c_str(), 0755);
    mkdir(Path("empty").c_str(), 0755);
    ASSERT_EQ(RenameDirectory(Path("d").c_str(), Path("empty").c_str(), true), KX_OK);
    EXPECT_TRUE(IsDir(Path("empty/sub")));
    // replace cannot empty a non-empty target (see CleanDirectory), so the move fails.
    mkdir(Path("full").c_str(), 0755);
    WriteText(Path("full/keep"), "k");
    EXPECT_EQ(RenameDirectory(Path("empty").c_str(), Path("full").c_str(), true), KX_E_DELETE_OR_MOVE);
    EXPECT_TRUE(log_.Has(KX_E_DELETE_OR_MOVE, "kxFileUtils::RenameDirectory: error 39 moving dir <"));
    EXPECT_TRUE(IsFile(Path("full/keep")) && IsDir(Path("empty/sub")));
}

TEST_F(kxFileUtilsTest, UniqueFileNameStampAndRetries) {
    char out[MAX_PATH + 1] = "untouched";
    {
        // The day of the week (1) stands between month and day, deliberately.
        MondayMorning clock(7);
        ASSERT_EQ(GetUniqueFileName(root_.path().c_str(), "log", out), KX_OK);
        EXPECT_EQ(std::string(out), Path("log200703105040506_007"));
        WriteText(out, "");
        ASSERT_EQ(GetUniqueFileName((root_.path() + "/").c_str(), "log", out), KX_OK);
        EXPECT_EQ(std::string(out), Path("log200703105040506_008"));
    }
    {
        // From 990 ms the candidates are 990..999, then the (fixed) clock is read again: with
        // those ten taken, the thirty tries run out.
        MondayMorning clock(990);
        for (int ms = 990; ms <= 999; ++ms) WriteText(Path("p200703105040506_" + std::to_string(ms)), "");
        strcpy(out, "untouched");
        EXPECT_EQ(GetUniqueFileName(root_.path().c_str(), "p", out), KX_E_NOT_FOUND);
        EXPECT_STREQ(out, "untouched");
    }
    // dir + prefix + 22 may reach 260, not pass it.
    const std::string fits(MAX_PATH - 22 - root_.path().size(), 'p');
    ASSERT_EQ(GetUniqueFileName(root_.path().c_str(), fits.c_str(), out), KX_OK);
    EXPECT_EQ(strlen(out), root_.path().size() + 1 + fits.size() + 19);
    EXPECT_EQ(GetUniqueFileName(root_.path().c_str(), (fits + "p").c_str(), out), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(GetUniqueFileName(nullptr, "p", out), KX_E_BAD_ARGUMENT);
    WriteText(Path("file"), "");
    EXPECT_EQ(GetUniqueFileName(Path("file").c_str(), "x", out), kStatFailed);
}
