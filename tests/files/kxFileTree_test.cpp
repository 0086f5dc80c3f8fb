// Directory creation, cleaning, copying and enumeration on real directories. Several tests pin
// the enumeration quirk: KDirectory hands out nothing, so cleaning and copying never reach the
// entries of a directory.

#include <gtest/gtest.h>
#include <glob.h>
#include <sys/stat.h>

#include <cstring>
#include <string>

#include "files/KDirectory.h"
#include "files/kxFileUtils.h"
#include "kxFilesTestUtil.h"
#include "kxTestProcess.h"

using namespace kxFileUtils;
using kxtest::IsDir;
using kxtest::IsFile;
using kxtest::WriteText;

namespace {

constexpr long kStatFailed = kxStatus(0xE0020107);

class kxFileTreeTest : public ::testing::Test {
protected:
    void SetUp() override { chmod(root_.path().c_str(), 0777); }
    std::string Path(const std::string& name) const { return root_ / name; }

    // A small tree: two files and a sub-directory holding one more.
    void MakeTree(const std::string& top) {
        mkdir(top.c_str(), 0755);
        WriteText(top + "/one.log", "1");
        WriteText(top + "/two.txt", "2");
        mkdir((top + "/sub").c_str(), 0755);
        WriteText(top + "/sub/three.log", "3");
    }
    bool TreeIntact(const std::string& top) {
        return IsFile(top + "/one.log") && IsFile(top + "/two.txt") &&
               IsFile(top + "/sub/three.log");
    }

    kxtest::TempDir root_;
    kxtest::LogCapture log_;
};

int g_globCalls = 0;
int FailingGlob(const char*, int, int (*)(const char*, int), glob_t*) {
    ++g_globCalls;
    return GLOB_ABORTED;
}

}  // namespace

TEST_F(kxFileTreeTest, CreateDirectoryTreeMakesEveryLevelOnce) {
    bool created = false;
    const std::string deep = Path("a/b/c/");
    ASSERT_EQ(CreateDirectoryTree(deep.c_str(), nullptr, &created), KX_OK);
    EXPECT_TRUE(created);
    EXPECT_TRUE(IsDir(Path("a")) && IsDir(Path("a/b")) && IsDir(Path("a/b/c")));
    ASSERT_EQ(CreateDirectoryTree(deep.c_str(), nullptr, &created), KX_OK);
    EXPECT_FALSE(created);

    // Runs of slashes count as one, trailing ones are dropped.
    ASSERT_EQ(CreateDirectoryTree(Path("x//y///z//").c_str(), nullptr, &created), KX_OK);
    EXPECT_TRUE(created);
    EXPECT_TRUE(IsDir(Path("x/y/z")));

    created = true;
    EXPECT_EQ(CreateDirectoryTree("", nullptr, &created), KX_OK);
    EXPECT_FALSE(created);
    EXPECT_EQ(CreateDirectoryTree(nullptr, nullptr, nullptr), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(CreateDirectoryTree("/", nullptr, nullptr), KX_OK);
    EXPECT_TRUE(log_.Records().empty());
}

TEST_F(kxFileTreeTest, CreateDirectoryTreeRefusesFilesInTheWay) {
    WriteText(Path("f"), "x");
    bool created = true;
    EXPECT_EQ(CreateDirectoryTree(Path("f").c_str(), nullptr, &created), KX_E_BAD_ARGUMENT);
    EXPECT_FALSE(created);
    EXPECT_TRUE(log_.Has(KX_E_BAD_ARGUMENT, "kxFileUtils::CreateDirectoryTree: <" + Path("f") +
                                                "> exists but is not a directory"));
    // Below a file, the existence check itself fails (not a directory, error 20).
    EXPECT_EQ(CreateDirectoryTree(Path("f/x/y").c_str(), nullptr, nullptr), kStatFailed);
    EXPECT_FALSE(IsDir(Path("f/x")));
}

TEST_F(kxFileTreeTest, CreateDirectoryTreeWithLongNames) {
    // Above 260 characters the name is worked on in a heap buffer.
    std::string deep = root_.path();
    while (deep.size() <= MAX_PATH + 100) deep += "/" + std::string(60, 'd');
    bool created = false;
    ASSERT_EQ(CreateDirectoryTree(deep.c_str(), nullptr, &created), KX_OK);
    EXPECT_TRUE(created);
    EXPECT_TRUE(IsDir(deep));

    // Beyond what the system takes in one name, the existence check reports it (error 36).
    std::string tooDeep = deep;
    while (tooDeep.size() <= 4200) tooDeep += "/" + std::string(60, 'e');
    EXPECT_EQ(CreateDirectoryTree(tooDeep.c_str(), nullptr, &created), kStatFailed);
    EXPECT_TRUE(log_.Has(kStatFailed, "error 36 checking existence of <"));

    // Beyond 32767 characters the name is refused before anything is touched.
    log_.Clear();
    const std::string huge = "/" + std::string(32767, 'h');
    EXPECT_EQ(CreateDirectoryTree(huge.c_str(), nullptr, &created), KX_E_BAD_ARGUMENT);
    ASSERT_EQ(log_.Records().size(), 1u);
    EXPECT_EQ(log_.Records()[0].text, "kxFileUtils::CreateDirectoryTree: DirName <" +
                                          huge.substr(0, 100) + "> too long, 32768 chars");
    const std::string limit = "/" + std::string(32766, 'h');
    EXPECT_NE(CreateDirectoryTree(limit.c_str(), nullptr, &created), KX_E_BAD_ARGUMENT);
}

TEST_F(kxFileTreeTest, CreateDirectoryTreeInReadOnlyParentReportsEachLevel) {
    mkdir(Path("ro").c_str(), 0555);
    const std::string target = Path("ro/x/y");
    const kxtest::ChildResult r =
        kxtest::RunUnprivileged([&] { return CreateDirectoryTree(target.c_str(), nullptr, nullptr); });
    EXPECT_EQ(r.status, KX_E_DIRECTORY);
    ASSERT_EQ(r.messages.size(), 2u);
    EXPECT_EQ(r.messages[0], "kxFileUtils::CreateDirectoryTree: error 13 creating directory <" +
                                 Path("ro/x") + ">'");
    EXPECT_EQ(r.messages[1], "kxFileUtils::CreateDirectoryTree: error trying to create parent dir <" +
                                 Path("ro/x") + ">");
    EXPECT_FALSE(IsDir(Path("ro/x")));
}

TEST_F(kxFileTreeTest, CleanDirectoryRemovesOnlyEmptyDirectories) {
    EXPECT_EQ(CleanDirectory(Path("missing").c_str(), true, true, nullptr), KX_OK);
    EXPECT_TRUE(log_.Records().empty());

    mkdir(Path("empty").c_str(), 0755);
    ASSERT_EQ(CleanDirectory(Path("empty").c_str(), false, true, nullptr), KX_OK);
    EXPECT_TRUE(IsDir(Path("empty")));
    EXPECT_TRUE(log_.Has(kxStatus(0x60FFFF01), "kxFileUtils::CleanDirectory: cleaning directory <" +
                                                   Path("empty") + "> with file spec <*>"));
    ASSERT_EQ(CleanDirectory(Path("empty").c_str(), true, true, "*.log"), KX_OK);
    EXPECT_FALSE(IsDir(Path("empty")));
    EXPECT_TRUE(log_.Has(kxStatus(0x60FFFF01), "deleting directory <" + Path("empty") +
                                                   "> with file spec <*.log>"));
    EXPECT_EQ(log_.Records().back().sev, kxLogSevProgress);

    WriteText(Path("f"), "x");
    EXPECT_EQ(CleanDirectory(Path("f").c_str(), true, true, nullptr), KX_E_BAD_ARGUMENT);
    EXPECT_TRUE(log_.Has(KX_E_BAD_ARGUMENT, "<" + Path("f") + "> is not a directory"));
    EXPECT_TRUE(IsFile(Path("f")));
}

TEST_F(kxFileTreeTest, CleanDirectoryNeverEmptiesANonEmptyTree) {
    // Enumeration ends at the first match without handing it out, so no entry is ever seen:
    // cleaning leaves everything, deleting fails on the non-empty directory. Deliberate.
    MakeTree(Path("t"));
    EXPECT_EQ(CleanDirectory(Path("t").c_str(), false, true, nullptr), KX_OK);
    EXPECT_TRUE(TreeIntact(Path("t")));
    EXPECT_EQ(CleanDirectory(Path("t").c_str(), false, false, "*.log"), KX_OK);
    EXPECT_TRUE(TreeIntact(Path("t")));

    EXPECT_EQ(CleanDirectory(Path("t").c_str(), true, true, nullptr), KX_E_DIRECTORY);
    EXPECT_TRUE(log_.Has(KX_E_DIRECTORY, "kxFileUtils::CleanDirectory: error 39 deleting directory <" +
                                             Path("t") + ">"));
    EXPECT_TRUE(TreeIntact(Path("t")));
    EXPECT_FALSE(log_.Has(KX_E_DELETE_OR_MOVE, "")) << "no entry was ever tried";
}

TEST_F(kxFileTreeTest, CleanDirectoryOfReadOnlyDirectory) {
    // An empty read-only directory inside a writable one can be removed; the parent's
    // permissions are what count.
    mkdir(Path("parent").c_str(), 0755);
    chmod(Path("parent").c_str(), 0777);  // past the umask
    mkdir(Path("parent/ro").c_str(), 0555);
    const std::string ro = Path("parent/ro");
    kxtest::ChildResult r =
        kxtest::RunUnprivileged([&] { return CleanDirectory(ro.c_str(), true, true, nullptr); });
    EXPECT_EQ(r.status, KX_OK);
    EXPECT_FALSE(IsDir(ro));

    // An empty directory inside a read-only one cannot.
    mkdir(Path("locked").c_str(), 0755);
    mkdir(Path("locked/inner").c_str(), 0755);
    chmod(Path("locked").c_str(), 0555);
    const std::string inner = Path("locked/inner");
    r = kxtest::RunUnprivileged([&] { return CleanDirectory(inner.c_str(), true, true, nullptr); });
    EXPECT_EQ(r.status, KX_E_DIRECTORY);
    ASSERT_FALSE(r.messages.empty());
    EXPECT_EQ(r.messages.back(),
              "kxFileUtils::CleanDirectory: error 13 deleting directory <" + inner + ">");
    EXPECT_TRUE(IsDir(inner));
}

TEST_F(kxFileTreeTest, CopyDirectoryTreeCopiesTheTopDirectoryOnly) {
    // Deliberate: the enumeration quirk means no file or sub-directory is ever copied.
    MakeTree(Path("src"));
    const std::string dst = Path("new/parent/dst");
    ASSERT_EQ(CopyDirectoryTree(Path("src").c_str(), dst.c_str(), nullptr, true), KX_OK);
    EXPECT_TRUE(IsDir(dst));
    EXPECT_FALSE(IsFile(dst + "/one.log"));
    EXPECT_FALSE(IsDir(dst + "/sub"));
    EXPECT_TRUE(TreeIntact(Path("src")));
    ASSERT_EQ(CopyDirectoryTree(Path("src").c_str(), dst.c_str(), nullptr, false), KX_OK);

    // A missing source copies nothing and is not an error.
    ASSERT_EQ(CopyDirectoryTree(Path("nosrc").c_str(), Path("dst2").c_str(), nullptr, true), KX_OK);
    EXPECT_TRUE(IsDir(Path("dst2")));

    WriteText(Path("blocker"), "x");
    EXPECT_EQ(CopyDirectoryTree(Path("src").c_str(), Path("blocker").c_str(), nullptr, true),
              KX_E_BAD_ARGUMENT);
    EXPECT_TRUE(log_.Has(KX_E_BAD_ARGUMENT,
                         "kxFileUtils::CopyDirectoryTree: error creating destination directory"));
    EXPECT_EQ(CopyDirectoryTree(nullptr, Path("x").c_str(), nullptr, true), KX_E_BAD_ARGUMENT);
}

TEST_F(kxFileTreeTest, DirectoryEnumerationEndsAtFirstMatch) {
    MakeTree(Path("t"));
    KDirectory directory;
    directory.Init((Path("t") + "/*").c_str());
    _WIN32_FIND_DATAA data;
    memset(&data, 0xCC, sizeof data);
    EXPECT_FALSE(directory.GetNext(&data, "caller"));
    // The record of the refused description is cleared.
    const _WIN32_FIND_DATAA zero = {};
    EXPECT_EQ(memcmp(&data, &zero, sizeof data), 0);
    EXPECT_FALSE(directory.GetNext(&data, "caller"));
    EXPECT_EQ(directory.GetCount(), 0);
    EXPECT_EQ(directory.GetPattern(), Path("t") + "/*");

    // No match is silent, as is an unset pattern.
    directory.Init((Path("t") + "/*.none").c_str());
    EXPECT_FALSE(directory.GetNext(&data, nullptr));
    directory.Init(nullptr);
    EXPECT_EQ(directory.GetPattern(), "");
    EXPECT_FALSE(directory.GetNext(&data, nullptr));
    EXPECT_FALSE(directory.GetNext(nullptr, nullptr));
    EXPECT_TRUE(log_.Records().empty());
}

TEST_F(kxFileTreeTest, DirectoryEnumerationLogsPatternErrorsOncePerInit) {
    g_globCalls = 0;
    KDirectory::s_glob = &FailingGlob;
    KDirectory directory;
    _WIN32_FIND_DATAA data;
    directory.Init("/some/*");
    EXPECT_FALSE(directory.GetNext(&data, ""));
    EXPECT_FALSE(directory.GetNext(&data, ""));
    directory.Init("/other/*");
    EXPECT_FALSE(directory.GetNext(&data, "kxFileUtils::CleanDirectory"));
    KDirectory::s_glob = &::glob;

    EXPECT_EQ(g_globCalls, 2);
    const auto records = log_.Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].code, KX_E_PATTERN_MATCH);
    EXPECT_EQ(records[0].text, "KDirectory::GetNext: error 2 matching file pattern </some/*>");
    EXPECT_EQ(records[1].text,
              "kxFileUtils::CleanDirectory: error 2 matching file pattern </other/*>");
}
