// The main of a fuzz target in the ordinary builds, which have no libFuzzer: runs
// LLVMFuzzerTestOneInput once over every file named on the command line and every file of every
// directory named there (names starting with "." skipped), in name order. Each input is handed
// over in a heap block of exactly its size, as libFuzzer does, so a sanitizer build catches a
// read past its end.
//
// Exit status: 0 when every input ran (a failing one aborts the process with the target's
// message); 1 when a path cannot be read or no input was found at all, so that a corpus lost
// from the tree fails the test instead of passing it empty.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "kxFuzzCheck.h"

namespace {

bool Collect(const std::string& path, std::vector<std::string>& files) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return false;
    if (!S_ISDIR(st.st_mode)) {
        files.push_back(path);
        return true;
    }
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr) return false;
    std::vector<std::string> found;
    while (const dirent* e = readdir(dir)) {
        if (e->d_name[0] == '.') continue;
        found.push_back(path + "/" + e->d_name);
    }
    closedir(dir);
    std::sort(found.begin(), found.end());
    for (const std::string& f : found)
        if (stat(f.c_str(), &st) == 0 && S_ISREG(st.st_mode)) files.push_back(f);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        if (!Collect(argv[i], files)) {
            fprintf(stderr, "%s: cannot read %s\n", argv[0], argv[i]);
            return 1;
        }
    }
    if (files.empty()) {
        fprintf(stderr, "%s: no input found\n", argv[0]);
        return 1;
    }
    for (const std::string& f : files) {
        std::ifstream in(f, std::ios::binary);
        if (!in) {
            fprintf(stderr, "%s: cannot read %s\n", argv[0], f.c_str());
            return 1;
        }
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in),
                                      std::istreambuf_iterator<char>()};
        fprintf(stderr, "input %s (%zu bytes)\n", f.c_str(), bytes.size());
        std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), exact.get());
        LLVMFuzzerTestOneInput(exact.get(), bytes.size());
    }
    fprintf(stderr, "%s: replayed %zu inputs\n", argv[0], files.size());
    return 0;
}
