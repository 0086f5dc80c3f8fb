// A log file of arbitrary bytes on disk, opened the ways programs open one: read whole with
// kxLogReadFile (forward walk and record decoding, as the viewer reads), walked newest first
// through a read-only stream, and opened by a writer at some size (header validation, then the
// file kept, re-created or resized from its records, then an append). Truncated files and
// files of either byte order come from the bytes.
//
// Input: a 4-byte control word (little-endian), then the file.
//   bit 0      set the header's size field to the file's length (in the file's byte order),
//              so that the readers accept it and walk it; otherwise its own field stands
//   bit 1      open it as a writer too, of ((bits 8-13) + 1) KB
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "kxFuzzCheck.h"
#include "log/KLogStream.h"
#include "log/kxLogRead.h"

namespace {

// A directory of this process's own for the file, its lock file and the resize scratch file.
const std::string& Dir() {
    static std::string dir;
    if (dir.empty()) {
        dir = std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") +
              "/kx_fuzz_log_XXXXXX";
        KX_FUZZ_CHECK(mkdtemp(&dir[0]) != nullptr);
        atexit([] { rmdir(Dir().c_str()); });
    }
    return dir;
}

void RemoveAll(const std::string& path) {
    unlink(path.c_str());
    unlink((path + ".lock").c_str());
    unlink((path + "_tmp").c_str());
}

void ReadNewestFirst(const char* path) {
    KLogStream s(path);
    if (!s.IsLive()) {
        KX_FUZZ_CHECK(s.GetOpenStatus() != KX_OK);
        return;
    }
    KLogFile header(0);
    KX_FUZZ_CHECK(s.ReadHeader(&header) == KX_OK);
    std::vector<uint8_t> buf(64);
    const uint32_t most = header.SizeInBytes() / kxLogRecHeaderSize + 1;
    uint32_t steps = 0;
    for (KLogStream::iterator it = s.begin(); !it.IsEnd(); it.PrevRec()) {
        KLogEntry e;
        if (!kxLogReadEntry(s, it, buf, e)) break;
        KX_FUZZ_CHECK(e.offset >= kxLogFileHeaderSize && e.offset < header.SizeInBytes());
        KX_FUZZ_CHECK(++steps <= most);
    }
}

void Write(const std::string& name, unsigned long sizeKB) {
    const std::string path = Dir() + "/" + name;
    {
        KLogStream w(Dir().c_str(), name.c_str(), sizeKB, 0, false);
        if (!w.IsLive()) return;
        KX_FUZZ_CHECK(w.SizeInBytes() == static_cast<long>(sizeKB * 1024));
        static const char kText[] = "appended by the fuzzer";
        KX_FUZZ_CHECK(w.PrintString(kText, 0, kxLogSevError, 0) == KX_OK);
    }
    // Whatever the writer kept, re-created or rebuilt, its append is now the newest record.
    KLogStream r(path.c_str());
    KX_FUZZ_CHECK(r.IsLive());
    std::vector<uint8_t> buf;
    KLogEntry e;
    KX_FUZZ_CHECK(!r.begin().IsEnd() && kxLogReadEntry(r, r.begin(), buf, e));
    KX_FUZZ_CHECK(e.isText && e.text == "appended by the fuzzer");
    std::vector<KLogEntry> all;
    KX_FUZZ_CHECK(kxLogReadFile(path.c_str(), all) == KX_OK);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    uint32_t control;
    memcpy(&control, data, 4);
    std::vector<uint8_t> file(data + 4, data + size);
    if ((control & 1) && file.size() >= kxLogFileHeaderSize) {
        uint32_t signature;
        memcpy(&signature, file.data(), 4);
        const uint32_t stored =
            kxLogFix32(static_cast<uint32_t>(file.size()), signature != kxLogFileSignature);
        memcpy(file.data() + 8, &stored, 4);
    }
    const std::string name = "fuzz.log";
    const std::string path = Dir() + "/" + name;
    RemoveAll(path);
    FILE* f = fopen(path.c_str(), "wb");
    KX_FUZZ_CHECK(f != nullptr);
    KX_FUZZ_CHECK(file.empty() || fwrite(file.data(), 1, file.size(), f) == file.size());
    KX_FUZZ_CHECK(fclose(f) == 0);

    std::vector<KLogEntry> entries;
    const long status = kxLogReadFile(path.c_str(), entries);
    KX_FUZZ_CHECK(status == KX_OK || entries.empty());
    ReadNewestFirst(path.c_str());
    if (control & 2) Write(name, ((control >> 8) & 0x3F) + 1);
    RemoveAll(path);
    return 0;
}
