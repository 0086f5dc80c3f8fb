// Test helper: a process that writes records to a log file, dies in the middle of an append,
// or just starts and ends (so that the logging start-up runs).
//
//   kx_log_writer write DIR NAME SIZEKB COUNT TAG [--foreign-abi]
//                                             COUNT records "TAG <i>" with status i; a negative
//                                             COUNT writes until killed. --foreign-abi plays a
//                                             process of the other target (its mutex layout does
//                                             not match the lock file's)
//   kx_log_writer die-in-append FILE          takes the lock, half writes a record over the
//                                             oldest ones and kills itself
//   kx_log_writer probe TEXT                  one message through the default stream
//
// Exit status: 0 done, 2 the stream did not open, 3 a write failed, 100 usage.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "log/KLogLock.h"
#include "log/KLogStream.h"
#include "base/kxLog.h"

namespace {

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

// What a writer killed inside an append leaves: the journal active, and the start of a large
// record written over the oldest records at the next position, never counted; when it wrapped,
// the header's wrap count is already raised (an append raises it just before the count).
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
    if (offset == kxLogFileHeaderSize) ++static_cast<uint32_t*>(map)[6];  // the wrap count
    kill(getpid(), SIGKILL);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if ((argc == 7 || (argc == 8 && strcmp(argv[7], "--foreign-abi") == 0)) &&
        strcmp(argv[1], "write") == 0) {
        if (argc == 8) kxLogLockSetAbiForTest(kxLogLockAbi() ^ 0x00FF0000u);
        return Write(argv[2], argv[3], strtoul(argv[4], nullptr, 0), atol(argv[5]), argv[6]);
    }
    if (argc == 3 && strcmp(argv[1], "die-in-append") == 0) return DieInAppend(argv[2]);
    if (argc == 3 && strcmp(argv[1], "probe") == 0) {
        kxLogPrintfA(0, kxLogSevWarning, "%s", argv[2]);
        return 0;
    }
    fprintf(stderr, "usage: kx_log_writer write|die-in-append|probe ...\n");
    return 100;
}
