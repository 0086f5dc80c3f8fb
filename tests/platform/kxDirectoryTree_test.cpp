// The directory-tree walk shared by the log start-up and the file utilities, driven through a
// recording subclass on a real directory.
#include "platform/kxDirectoryTree.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "base/kxStatus.h"
#include "kxTestProcess.h"

namespace {

bool IsDir(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Separates levels at "/" and "\"; records what the walk asks and reports.
class RecordingTree : public kxDirectoryTree {
public:
    RecordingTree() : kxDirectoryTree("/\\") {}
    std::vector<std::string> examined, parents;
    std::string hidden;  // a level that is reported missing although it exists (a racing creator)

private:
    long Examine(const char* level, bool& missing) override {
        examined.push_back(level);
        missing = level == hidden || !IsDir(level);
        return KX_OK;
    }
    long CreateFailed(const char* level, int error) override {
        parents.push_back(std::string("failed ") + level + " " + std::to_string(error));
        return KX_E_BAD_ARGUMENT;
    }
    void ParentFailed(long, const char* parent) override { parents.push_back(parent); }
};

long Make(RecordingTree& tree, std::string& name, bool* created) {
    return tree.Make(&name[0], name.size(), nullptr, created);
}

TEST(kxDirectoryTree, WalksUpToWhatExistsThenCreatesDownAndRestoresTheName) {
    kxtest::TempDir dir;
    RecordingTree tree;
    std::string name = dir / "a\\\\b//c";  // runs of either separator count as one
    const std::string given = name;
    bool created = false;
    ASSERT_EQ(KX_OK, Make(tree, name, &created));
    EXPECT_TRUE(created);
    EXPECT_EQ(given, name) << "every cut separator put back as it was";
    EXPECT_TRUE(IsDir(dir / "a") && IsDir(given));
    EXPECT_EQ((std::vector<std::string>{given, dir / "a\\\\b", dir / "a", dir.path()}),
              tree.examined);

    // A level another process made between the check and mkdir is success, not made here.
    RecordingTree racing;
    std::string existing = dir / "a";
    racing.hidden = existing;
    EXPECT_EQ(KX_OK, Make(racing, existing, &created));
    EXPECT_FALSE(created);
}

TEST(kxDirectoryTree, AFailedLevelIsReportedByEveryLevelBelowIt) {
    kxtest::TempDir dir;
    const std::string file = dir / "f";
    std::ofstream(file) << "";
    RecordingTree tree;
    // "f" is a file, so making it a directory fails with EEXIST; each level below says so.
    std::string name = file + "/x\\y/z";
    const std::string given = name;
    bool created = true;
    EXPECT_EQ(KX_E_BAD_ARGUMENT, Make(tree, name, &created));
    EXPECT_FALSE(created);
    EXPECT_EQ(given, name);
    EXPECT_EQ((std::vector<std::string>{"failed " + file + " 17", file, file + "/x",
                                        file + "/x\\y"}),
              tree.parents);
}

}  // namespace
