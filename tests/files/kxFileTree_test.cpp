// Directory creation, cleaning, copying and enumeration on real directories. Several tests pin
// the enumeration quirk: KDirectory hands out nothing, so cleaning and copying never reach the
// entries of a directory.

#include <glob.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/kxEnv.h"
#include "files/KDirectory.h"
#include "files/kxFileUtils.h"
#include "kxFilesTestUtil.h"

using namespace kxFileUtils;
using kxtest::IsDir;
using kxtest::IsFile;
using kxtest::WriteText;

namespace {

constexpr long kStatFailed = kxStatus(0xE0020107);

class kxFileTreeTest : public kxtest::FilesTest {
protected:
    // Two files and a sub-directory holding one more.
    void MakeTree(const std::string& top) {
        mkdir(top.c_str(), 0755);
        WriteText(top + "/one.log", "1");
        WriteText(top + "/two.txt", "2");
        mkdir((top + "/sub").c_str(), 0755);
        WriteText(top + "/sub/three.log", "3");
    }
    bool TreeIntact(const std::string& top) {
        return IsFile(top + "/one.log") && IsFile(top + "/two.txt") && IsFile(top + "/sub/three.log");
    }
};

// Every glob fails as a directory that cannot be read does.
class FailingGlob : public kxEnvWrapper {
public:
    int Glob(const char*, int, int (*)(const char*, int), glob_t*) override { return GLOB_ABORTED; }
};

}  // namespace

TEST_F(kxFileTreeTest, CreateDirectoryTreeMakesEveryLevelOnce) {
    bool created = false;
    ASSERT_EQ(CreateDirectoryTree(Path("a/b/c/").c_str(), nullptr, &created), KX_OK);
    EXPECT_TRUE(created && IsDir(Path("a")) && IsDir(Path("a/b/c")));
    ASSERT_EQ(CreateDirectoryTree(Path("a/b/c").c_str(), nullptr, &created), KX_OK);
    EXPECT_FALSE(created);
    EXPECT_EQ(CreateDirectoryTree(nullptr, nullptr, nullptr), KX_E_BAD_ARGUMENT);
    EXPECT_TRUE(log_.Records().empty());

    WriteText(Path("f"), "x");
    EXPECT_EQ(CreateDirectoryTree(Path("f").c_str(), nullptr, &created), KX_E_BAD_ARGUMENT);
    EXPECT_TRUE(log_.Has(KX_E_BAD_ARGUMENT, "kxFileUtils::CreateDirectoryTree: <" + Path("f") +
                                                "> exists but is not a directory"));
    EXPECT_EQ(CreateDirectoryTree(Path("f/x/y").c_str(), nullptr, nullptr), kStatFailed);
}

TEST_F(kxFileTreeTest, CreateDirectoryTreeWithLongNames) {
    std::string deep = root_.path();  // above 260 characters: worked on in a heap buffer
    while (deep.size() <= MAX_PATH + 100) deep += "/" + std::string(60, 'd');
    bool created = false;
    ASSERT_EQ(CreateDirectoryTree(deep.c_str(), nullptr, &created), KX_OK);
    EXPECT_TRUE(created && IsDir(deep));

    std::string tooDeep = deep;  // more than the system takes in one name
    while (tooDeep.size() <= 4200) tooDeep += "/" + std::string(60, 'e');
    EXPECT_EQ(CreateDirectoryTree(tooDeep.c_str(), nullptr, &created), kStatFailed);
    EXPECT_TRUE(log_.Has(kStatFailed, "error 36 checking existence of <"));

    log_.Clear();
    const std::string huge = "/" + std::string(32767, 'h');
    EXPECT_EQ(CreateDirectoryTree(huge.c_str(), nullptr, &created), KX_E_BAD_ARGUMENT);
    EXPECT_TRUE(log_.Has(KX_E_BAD_ARGUMENT, "> too long, 32768 chars"));
    EXPECT_EQ(CreateDirectoryTree(huge.c_str() + 1, nullptr, &created), kStatFailed) << "32767 is allowed";
}

TEST_F(kxFileTreeTest, CreateDirectoryTreeInReadOnlyParentReportsEachLevel) {
    mkdir(Path("ro").c_str(), 0555);
    const std::string target = Path("ro/x/y");
    EXPECT_EQ(kxtest::RunUnprivileged([&] { return CreateDirectoryTree(target.c_str(), nullptr, nullptr); }),
              std::to_string(KX_E_DIRECTORY) +
                  "\nkxFileUtils::CreateDirectoryTree: error 13 creating directory <" + Path("ro/x") +
                  ">'\nkxFileUtils::CreateDirectoryTree: error trying to create parent dir <" +
                  Path("ro/x") + ">");
}

TEST_F(kxFileTreeTest, CleanDirectoryRemovesOnlyEmptyDirectories) {
    EXPECT_EQ(CleanDirectory(Path("missing").c_str(), true, true, nullptr), KX_OK);
    mkdir(Path("empty").c_str(), 0755);
    ASSERT_EQ(CleanDirectory(Path("empty").c_str(), false, true, nullptr), KX_OK);
    EXPECT_TRUE(IsDir(Path("empty")));
    ASSERT_EQ(CleanDirectory(Path("empty").c_str(), true, true, "*.log"), KX_OK);
    EXPECT_FALSE(IsDir(Path("empty")));
    EXPECT_TRUE(log_.Has(kxStatus(0x60FFFF01), "deleting directory <" + Path("empty") +
                                                   "> with file spec <*.log>"));

    // Enumeration hands out nothing, so a non-empty tree is never touched: cleaning "works",
    // deleting fails on the non-empty directory. Deliberate.
    MakeTree(Path("t"));
    EXPECT_EQ(CleanDirectory(Path("t").c_str(), false, false, "*.log"), KX_OK);
    EXPECT_EQ(CleanDirectory(Path("t").c_str(), true, true, nullptr), KX_E_DIRECTORY);
    EXPECT_TRUE(log_.Has(KX_E_DIRECTORY, "kxFileUtils::CleanDirectory: error 39 deleting directory <" +
                                             Path("t") + ">"));
    EXPECT_TRUE(TreeIntact(Path("t")));

    WriteText(Path("f"), "x");
    EXPECT_EQ(CleanDirectory(Path("f").c_str(), true, true, nullptr), KX_E_BAD_ARGUMENT);
    EXPECT_TRUE(log_.Has(KX_E_BAD_ARGUMENT, "<" + Path("f") + "> is not a directory"));
}

TEST_F(kxFileTreeTest, CopyDirectoryTreeCopiesTheTopDirectoryOnly) {
    // Deliberate: the enumeration quirk means no file or sub-directory is ever copied.
    MakeTree(Path("src"));
    const std::string dst = Path("new/parent/dst");
    ASSERT_EQ(CopyDirectoryTree(Path("src").c_str(), dst.c_str(), nullptr, true), KX_OK);
    EXPECT_TRUE(IsDir(dst));
    EXPECT_FALSE(IsFile(dst + "/one.log") || IsDir(dst + "/sub"));
    EXPECT_TRUE(TreeIntact(Path("src")));

    WriteText(Path("blocker"), "x");
    EXPECT_EQ(CopyDirectoryTree(Path("src").c_str(), Path("blocker").c_str(), nullptr, true),
              KX_E_BAD_ARGUMENT);
    EXPECT_TRUE(log_.Has(KX_E_BAD_ARGUMENT, "kxFileUtils::CopyDirectoryTree: error creating destination directory"));
}

TEST_F(kxFileTreeTest, DirectoryEnumerationEndsAtFirstMatch) {
    MakeTree(Path("t"));
    KDirectory directory;
    directory.Init((Path("t") + "/*").c_str());
    _WIN32_FIND_DATAA data;
    memset(&data, 0xCC, sizeof data);
    EXPECT_FALSE(directory.GetNext(&data, "caller"));
    const _WIN32_FIND_DATAA zero = {};
    EXPECT_EQ(memcmp(&data, &zero, sizeof data), 0) << "the refused description is cleared";
    EXPECT_FALSE(directory.GetNext(&data, "caller"));
    EXPECT_EQ(directory.GetCount(), 0);
    directory.Init((Path("t") + "/*.none").c_str());  // no match: silent
    EXPECT_FALSE(directory.GetNext(&data, nullptr));
    EXPECT_TRUE(log_.Records().empty());

    // Other glob failures are logged once per Init, under the caller's name.
    FailingGlob env;
    KDirectory failing(&env);
    failing.Init("/some/*");
    EXPECT_FALSE(failing.GetNext(&data, ""));
    EXPECT_FALSE(failing.GetNext(&data, ""));
    failing.Init("/other/*");
    EXPECT_FALSE(failing.GetNext(&data, "kxFileUtils::CleanDirectory"));
    const auto records = log_.Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].code, KX_E_PATTERN_MATCH);
    EXPECT_EQ(records[0].text, "KDirectory::GetNext: error 2 matching file pattern </some/*>");
    EXPECT_EQ(records[1].text, "kxFileUtils::CleanDirectory: error 2 matching file pattern </other/*>");
}
