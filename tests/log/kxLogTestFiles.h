// Small readers of log files and directories for the log suites.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "log/kxLogRead.h"

namespace kxtest {

// The records of a file, oldest first: texts as they are, resize records as "<RESZ old new>",
// other system records as "<TYPE>". A file that does not read fails the test.
inline std::vector<std::string> LogTexts(const std::string& path) {
    std::vector<KLogEntry> entries;
    EXPECT_EQ(KX_OK, kxLogReadFile(path.c_str(), entries)) << path;
    std::vector<std::string> out;
    for (const KLogEntry& e : entries) {
        if (e.isText)
            out.push_back(e.text);
        else if (e.info.GetType() == kxLogRecTypeResize)
            out.push_back("<RESZ " + std::to_string(e.oldKB) + " " + std::to_string(e.newKB) + ">");
        else
            out.push_back("<" + kxLogRecTypeName(e.info.GetType()) + ">");
    }
    return out;
}

// -1 when the file does not exist.
inline off_t FileSize(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

// The names in a directory, sorted.
inline std::vector<std::string> Names(const std::string& dir) {
    std::vector<std::string> out;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        out.push_back(entry.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace kxtest
