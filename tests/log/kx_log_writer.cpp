// Test helper: a process that writes records to a log file, holds its lock, dies in the middle
// of an append, or just starts and ends (so that the logging start-up runs).
//
//   kx_log_writer write DIR NAME SIZEKB COUNT TAG [OPT...]  COUNT records "TAG <i>", status i
//   kx_log_writer forever DIR NAME SIZEKB TAG [OPT...]      records "TAG <i>" until killed
//   kx_log_writer hold FILE MS MARKER                      the log's lock for MS ms; MARKER made
//                                                          once held
//   kx_log_writer die-in-append FILE                       takes the lock, half writes a record
//                                                          over the oldest ones and kills itself
//   kx_log_writer probe TEXT                               one message through the default stream
//   kx_log_writer read FILE MS [OPT...]                    reads the whole file again and again
//                                                          for MS ms, checking that record numbers
//                                                          run on; prints the passes made
//
// Options of write, forever and read: --foreign-abi plays a process of the other target (its
// mutex layout does not match the lock file's); --as-nobody drops root to uid/gid 65534 first.
//
// Exit status: 0 done, 2 the stream did not open, 3 a write (read) failed, 100 usage.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "log/KLogLock.h"
#include "log/KLogStream.h"
#include "base/kxLog.h"
#include "log/kxLogRead.h"

namespace {

bool ApplyOptions(int argc, char** argv, int first) {
    for (int i = first; i < argc; ++i) {
        if (strcmp(argv[i], "--foreign-abi") == 0) {
            kxLogLockSetAbiForTest(kxLogLockAbi() ^ 0x00FF0000u);
        } else if (strcmp(argv[i], "--as-nobody") == 0) {
            if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return false;
        } else {
            return false;
        }
    }
    return true;
}

int Write(const char* dir, const char* name, unsigned long kb, long count, const char* tag) {
    KLogStream stream(dir, name, kb, 16384, true);
    if (!stream.IsLive()) {
        fprintf(stderr, "open failed: 0x%08X\n", kxStatusBits(stream.GetOpenStatus()));
        return 2;
    }
    char text[64];
    for (long i = 1; count < 0 || i <= count; ++i) {
        snprintf(text, sizeof text, "%s %ld", tag, i);
        long status = stream.PrintString(text, i, kxLogSevProgress, 0);
        if (status != KX_OK) {
            fprintf(stderr, "write %ld failed: 0x%08X\n", i, kxStatusBits(status));
            return 3;
        }
    }
    return 0;
}

int Hold(const char* file, long ms, const char* marker) {
    KLogStream stream(file);
    if (!stream.IsLive() || stream.LockLogfile(500, 4) != KX_OK) return 2;
    close(open(marker, O_WRONLY | O_CREAT, 0600));
    usleep(static_cast<useconds_t>(ms) * 1000);
    return 0;
}

// What a writer killed inside an append leaves: the journal active, and the start of a large
// record written over the oldest records at the next position, never counted.
int DieInAppend(const char* file) {
    KMutex local(false);
    if (local.Create() != KX_OK) return 2;
    KLogLock lock;
    if (lock.Open(file, true, 2000, &local) != KX_OK || lock.Journal() == nullptr ||
        lock.Lock(2000, nullptr) != KX_OK)
        return 2;
    const int fd = open(file, O_RDWR);
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0) return 2;
    void* map =
        mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (map == MAP_FAILED) return 2;
    KLogFile* image = static_cast<KLogFile*>(map);
    KLogAppendJournal* j = lock.Journal();
    uint32_t offset = image->NextRecOffset();
    const uint32_t space = 400;
    if (offset + space > image->SizeInBytes()) offset = kxLogFileHeaderSize;
    j->offset = offset;
    j->space = space;
    j->count = image->RecordCount();
    j->wraps = image->WrapCount();
    j->active = 1;
    // A plausible record header in front, then garbage where old records were.
    uint8_t* at = static_cast<uint8_t*>(map) + offset;
    KLogRec* rec = reinterpret_cast<KLogRec*>(at);
    rec->Info().SetRecNum(image->RecordCount() + 1);
    rec->SetSignature(kxLogRecSignature);
    rec->SetSize(space);
    memset(at + kxLogRecHeaderSize, 'Z', space / 2);
    kill(getpid(), SIGKILL);
    return 0;
}

// Whole passes over the file; a pass that found nothing or stopped early is not counted as
// good. Succeeds when some pass was good and none saw numbers that do not run on.
int Read(const char* file, long ms) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    long passes = 0, good = 0;
    while (std::chrono::steady_clock::now() < end) {
        std::vector<KLogEntry> e;
        ++passes;
        if (kxLogReadFile(file, e) != KX_OK || e.empty()) continue;
        for (size_t i = 1; i < e.size(); ++i) {
            if (e[i].info.GetRecNum() != e[i - 1].info.GetRecNum() + 1) {
                fprintf(stderr, "numbers jump from %u to %u\n", e[i - 1].info.GetRecNum(),
                        e[i].info.GetRecNum());
                return 3;
            }
        }
        ++good;
    }
    printf("%ld passes, %ld good\n", passes, good);
    return good > 0 ? 0 : 3;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 7 && strcmp(argv[1], "write") == 0 && ApplyOptions(argc, argv, 7))
        return Write(argv[2], argv[3], strtoul(argv[4], nullptr, 0), atol(argv[5]), argv[6]);
    if (argc >= 6 && strcmp(argv[1], "forever") == 0 && ApplyOptions(argc, argv, 6))
        return Write(argv[2], argv[3], strtoul(argv[4], nullptr, 0), -1, argv[5]);
    if (argc >= 4 && strcmp(argv[1], "read") == 0 && ApplyOptions(argc, argv, 4))
        return Read(argv[2], atol(argv[3]));
    if (argc == 5 && strcmp(argv[1], "hold") == 0) return Hold(argv[2], atol(argv[3]), argv[4]);
    if (argc == 3 && strcmp(argv[1], "die-in-append") == 0) return DieInAppend(argv[2]);
    if (argc == 3 && strcmp(argv[1], "probe") == 0) {
        kxLogPrintfA(0, kxLogSevWarning, "%s", argv[2]);
        return 0;
    }
    fprintf(stderr, "usage: kx_log_writer write|forever|hold|die-in-append|probe ...\n");
    return 100;
}
