#include "files/kxFileUtils.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <string>

#include "base/KCString.h"
#include "files/kxPath.h"
#include "kxFilesTestUtil.h"
#include "kxTestProcess.h"

using namespace kxFileUtils;
using kxtest::IsDir;
using kxtest::IsFile;
using kxtest::WriteText;

namespace {

constexpr long kStatFailed = kxStatus(0xE0020107);

class kxFileUtilsTest : public ::testing::Test {
protected:
    void SetUp() override { chmod(root_.path().c_str(), 0777); }
    std::string Path(const std::string& name) const { return root_ / name; }

    kxtest::TempDir root_;
    kxtest::LogCapture log_;
};

// A clock for GetUniqueFileName that repeats one fixed time.
_SYSTEMTIME g_fixedTime;
void FixedClock(_SYSTEMTIME* now) { *now = g_fixedTime; }

class ClockOverride {
public:
    explicit ClockOverride(const _SYSTEMTIME& t) {
        g_fixedTime = t;
        SetSystemTimeSource(&FixedClock);
    }
    ~ClockOverride() { SetSystemTimeSource(nullptr); }
};

// 2007-03-05, a Monday, 04:05:06.007 UTC.
_SYSTEMTIME MondayMorning(uint16_t milliseconds = 7) { return {2007, 3, 1, 5, 4, 5, 6, milliseconds}; }

}  // namespace

TEST(kxFileUtilsNamesTest, AppendNameToPathCountsOnlyTheGivenSeparator) {
    char buf[64] = "";
    AppendNameToPath(buf, "a", 0);
    EXPECT_STREQ(buf, "/a");  // an empty path gets the separator too
    AppendNameToPath(buf, "///b", '/');
    EXPECT_STREQ(buf, "/a/b");  // every leading separator of the name goes
    AppendNameToPath(buf, "\\c", '\\');
    EXPECT_STREQ(buf, "/a/b\\c");
    strcpy(buf, "C:\\d\\");
    AppendNameToPath(buf, "e", '/');  // a trailing "\" is not the separator asked for
    EXPECT_STREQ(buf, "C:\\d\\/e");
    AppendNameToPath(buf, nullptr, '/');
    EXPECT_STREQ(buf, "C:\\d\\/e/");
    AppendNameToPath(static_cast<char*>(nullptr), "x", '/');

    std::string s = "/x/";
    AppendNameToPath(s, "/y", 0);
    EXPECT_EQ(s, "/x/y");
    KCString k("/x");
    KCString shared = k;
    AppendNameToPath(k, "y", 0);
    EXPECT_STREQ(k, "/x/y");
    EXPECT_STREQ(shared, "/x") << "a shared string is made unique first";

    // kxPath::Append, by contrast, refuses an empty path when it must choose the separator.
    char other[8] = "";
    EXPECT_FALSE(kxPath::Append(other, "a", 0));
}

TEST(kxFileUtilsNamesTest, SlashSearchesMirrorThePathVersions) {
    const char* p = "a\\b/c\\d";
    EXPECT_EQ(GetNextSlash(p, false), p + 3);
    EXPECT_EQ(GetNextSlash(p, true), p + 1);
    EXPECT_EQ(kxPath::GetNextSlash(p, false), p + 1);
    EXPECT_EQ(GetLastSlash(p), p + 5);
    EXPECT_EQ(GetNextSlash("a\\b", false), nullptr);
    EXPECT_EQ(GetLastSlash(static_cast<const char*>(nullptr)), nullptr);
}

TEST_F(kxFileUtilsTest, PathExistsReportsKindsAndRealErrors) {
    WriteText(Path("f"), "x");
    mkdir(Path("d").c_str(), 0755);
    bool exists = true;
    uint32_t attributes = 0;
    ASSERT_EQ(PathExists(Path("missing").c_str(), exists, &attributes), KX_OK);
    EXPECT_FALSE(exists);
    ASSERT_EQ(PathExists(Path("d").c_str(), exists, &attributes), KX_OK);
    EXPECT_TRUE(exists);
    EXPECT_EQ(attributes, FILE_ATTRIBUTE_DIRECTORY);
    ASSERT_EQ(PathExists(Path("f").c_str(), exists, nullptr), KX_OK);
    EXPECT_TRUE(exists);
    EXPECT_EQ(PathExists(nullptr, exists, nullptr), KX_E_BAD_ARGUMENT);

    // A file where a directory is expected is an error, not a missing path.
    const std::string under = Path("f") + "/x";
    EXPECT_EQ(PathExists(under.c_str(), exists, nullptr), kStatFailed);
    EXPECT_FALSE(exists);
    EXPECT_TRUE(log_.Has(kStatFailed, "kxFileUtils::PathExistsA: error 20 checking existence of <" +
                                          under + ">"));

    _WIN32_FILE_ATTRIBUTE_DATA data;
    ASSERT_EQ(PathExistsEx(Path("f").c_str(), exists, &data), KX_OK);
    EXPECT_TRUE(exists);
    EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_NORMAL);
    EXPECT_EQ(data.nFileSizeLow, 1u);
    ASSERT_EQ(PathExistsEx(Path("missing").c_str(), exists, &data), KX_OK);
    EXPECT_FALSE(exists);
    EXPECT_EQ(PathExistsEx(Path("f").c_str(), exists, nullptr), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(PathExistsEx(under.c_str(), exists, &data), kStatFailed);
}

TEST_F(kxFileUtilsTest, RemoveFileHandlesMissingDirectoriesAndReadOnly) {
    EXPECT_EQ(RemoveFile(Path("missing").c_str()), KX_OK);
    EXPECT_EQ(RemoveFile(nullptr), KX_E_BAD_ARGUMENT);

    mkdir(Path("d").c_str(), 0755);
    EXPECT_EQ(RemoveFile(Path("d").c_str()), KX_E_BAD_ARGUMENT);
    EXPECT_TRUE(log_.Has(KX_E_BAD_ARGUMENT, "kxFileUtils::RemoveFile: <" + Path("d") + "> is a directory"));
    EXPECT_TRUE(IsDir(Path("d")));

    // A read-only file in a writable directory goes, as on Unix.
    WriteText(Path("ro"), "x");
    chmod(Path("ro").c_str(), 0444);
    EXPECT_EQ(RemoveFile(Path("ro").c_str()), KX_OK);
    EXPECT_FALSE(IsFile(Path("ro")));

    // A file in a read-only directory cannot be removed.
    mkdir(Path("locked").c_str(), 0755);
    const std::string inside = Path("locked") + "/f";
    WriteText(inside, "x");
    chmod(Path("locked").c_str(), 0555);
    const kxtest::ChildResult r = kxtest::RunUnprivileged([&] { return RemoveFile(inside.c_str()); });
    EXPECT_EQ(r.status, KX_E_DELETE_OR_MOVE);
    ASSERT_EQ(r.messages.size(), 1u);
    EXPECT_EQ(r.messages[0], "kxFileUtils::RemoveFile: error 13 deleting file <" + inside + ">");
    EXPECT_TRUE(IsFile(inside));
}

TEST_F(kxFileUtilsTest, RenameFileAndDirectory) {
    WriteText(Path("a"), "A");
    WriteText(Path("b"), "B");
    ASSERT_EQ(RenameFile(Path("a").c_str(), Path("c").c_str(), false), KX_OK);
    EXPECT_EQ(kxtest::ReadFile(Path("c")), "A");
    // Without replace an existing target is still replaced: rename semantics.
    ASSERT_EQ(RenameFile(Path("c").c_str(), Path("b").c_str(), false), KX_OK);
    EXPECT_EQ(kxtest::ReadFile(Path("b")), "A");
    WriteText(Path("a"), "A2");
    ASSERT_EQ(RenameFile(Path("a").c_str(), Path("b").c_str(), true), KX_OK);
    EXPECT_EQ(kxtest::ReadFile(Path("b")), "A2");

    EXPECT_EQ(RenameFile(Path("missing").c_str(), Path("x").c_str(), false), KX_E_DELETE_OR_MOVE);
    EXPECT_TRUE(log_.Has(KX_E_DELETE_OR_MOVE, "kxFileUtils::RenameFile: error 2 moving file <" +
                                                  Path("missing") + "> to <" + Path("x") + ">"));
    // replace onto a directory: RemoveFile refuses, and its status comes back.
    mkdir(Path("d").c_str(), 0755);
    EXPECT_EQ(RenameFile(Path("b").c_str(), Path("d").c_str(), true), KX_E_BAD_ARGUMENT);
    EXPECT_TRUE(IsFile(Path("b")));
    EXPECT_EQ(RenameFile(nullptr, Path("x").c_str(), false), KX_E_BAD_ARGUMENT);

    mkdir(Path("d/sub").c_str(), 0755);
    ASSERT_EQ(RenameDirectory(Path("d").c_str(), Path("e").c_str(), false), KX_OK);
    EXPECT_TRUE(IsDir(Path("e/sub")));
    mkdir(Path("empty").c_str(), 0755);
    ASSERT_EQ(RenameDirectory(Path("e").c_str(), Path("empty").c_str(), true), KX_OK);
    EXPECT_TRUE(IsDir(Path("empty/sub")));

    // replace cannot empty a non-empty target (see CleanDirectory), so the move fails.
    mkdir(Path("full").c_str(), 0755);
    WriteText(Path("full/keep"), "k");
    EXPECT_EQ(RenameDirectory(Path("empty").c_str(), Path("full").c_str(), true),
              KX_E_DELETE_OR_MOVE);
    EXPECT_TRUE(log_.Has(KX_E_DELETE_OR_MOVE, "kxFileUtils::RenameDirectory: error 39 moving dir <"));
    EXPECT_TRUE(IsFile(Path("full/keep")));
    EXPECT_TRUE(IsDir(Path("empty/sub")));
}

TEST_F(kxFileUtilsTest, UniqueFileNameStampPutsDayOfWeekBetweenMonthAndDay) {
    ClockOverride clock(MondayMorning());
    char out[MAX_PATH + 1];
    ASSERT_EQ(GetUniqueFileName(root_.path().c_str(), "log", out), KX_OK);
    EXPECT_EQ(std::string(out), Path("log200703105040506_007"));

    WriteText(out, "");
    ASSERT_EQ(GetUniqueFileName((root_.path() + "/").c_str(), "log", out), KX_OK);
    EXPECT_EQ(std::string(out), Path("log200703105040506_008")) << "no doubled slash either";
}

TEST_F(kxFileUtilsTest, UniqueFileNameGivesUpAfterThirtyTries) {
    // At 990 ms the candidates run 990..999, then the (fixed) clock is read again: only ten
    // names ever come up, and with all of them taken the thirty tries run out.
    ClockOverride clock(MondayMorning(990));
    for (int ms = 990; ms <= 999; ++ms) {
        WriteText(Path("p200703105040506_" + std::to_string(ms)), "");
    }
    char out[MAX_PATH + 1] = "untouched";
    EXPECT_EQ(GetUniqueFileName(root_.path().c_str(), "p", out), KX_E_NO_UNIQUE_NAME);
    EXPECT_STREQ(out, "untouched");
    remove(Path("p200703105040506_999").c_str());
    ASSERT_EQ(GetUniqueFileName(root_.path().c_str(), "p", out), KX_OK);
    EXPECT_EQ(std::string(out), Path("p200703105040506_999"));
}

TEST_F(kxFileUtilsTest, UniqueFileNameArguments) {
    char out[MAX_PATH + 1];
    EXPECT_EQ(GetUniqueFileName(nullptr, "p", out), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(GetUniqueFileName("/tmp", nullptr, out), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(GetUniqueFileName("/tmp", "p", nullptr), KX_E_BAD_ARGUMENT);
    // The limit is dir + prefix + 22 <= 260.
    const std::string dir = root_.path();
    const std::string fits(MAX_PATH - 22 - dir.size(), 'p');
    ASSERT_EQ(GetUniqueFileName(dir.c_str(), fits.c_str(), out), KX_OK);
    EXPECT_LE(strlen(out), MAX_PATH);
    EXPECT_EQ(GetUniqueFileName(dir.c_str(), (fits + "p").c_str(), out), KX_E_BAD_ARGUMENT);

    // The real clock: a free name of the documented shape.
    ASSERT_EQ(GetUniqueFileName(dir.c_str(), "run", out), KX_OK);
    const std::string name = out;
    ASSERT_EQ(name.rfind(Path("run"), 0), 0u);
    const std::string stamp = name.substr(Path("run").size());
    EXPECT_EQ(stamp.size(), 19u) << stamp;
    EXPECT_EQ(stamp[15], '_');
    EXPECT_FALSE(IsFile(name));
    // A failed existence check is returned as it is.
    WriteText(Path("file"), "");
    EXPECT_EQ(GetUniqueFileName(Path("file").c_str(), "x", out), kStatFailed);
}
