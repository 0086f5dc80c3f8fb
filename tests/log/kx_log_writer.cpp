// Test helper: a process that writes records to a log file, holds its lock, or just starts and
// ends (so that the logging start-up runs).
//
//   kx_log_writer write DIR NAME SIZEKB COUNT TAG   COUNT records "TAG <i>", i = 1..COUNT
//   kx_log_writer forever DIR NAME SIZEKB TAG       records "TAG <i>" until killed
//   kx_log_writer hold FILE MS MARKER              file lock for MS ms; MARKER made once held
//   kx_log_writer probe TEXT                       one message through the default stream
//
// Exit status: 0 done, 2 the stream did not open, 3 a write failed, 100 usage.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "log/KLogStream.h"
#include "log/kxLog.h"

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

int Hold(const char* file, long ms, const char* marker) {
    int fd = open(file, O_RDWR);
    struct flock lock;
    memset(&lock, 0, sizeof lock);
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fd < 0 || fcntl(fd, F_OFD_SETLKW, &lock) != 0) return 2;
    close(open(marker, O_WRONLY | O_CREAT, 0600));
    usleep(static_cast<useconds_t>(ms) * 1000);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 7 && strcmp(argv[1], "write") == 0)
        return Write(argv[2], argv[3], strtoul(argv[4], nullptr, 0), atol(argv[5]), argv[6]);
    if (argc == 6 && strcmp(argv[1], "forever") == 0)
        return Write(argv[2], argv[3], strtoul(argv[4], nullptr, 0), -1, argv[5]);
    if (argc == 5 && strcmp(argv[1], "hold") == 0) return Hold(argv[2], atol(argv[3]), argv[4]);
    if (argc == 3 && strcmp(argv[1], "probe") == 0) {
        kxLogPrintfA(0, kxLogSevWarning, "%s", argv[2]);
        return 0;
    }
    fprintf(stderr, "usage: kx_log_writer write|forever|hold|probe ...\n");
    return 100;
}
