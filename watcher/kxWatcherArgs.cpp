#include "kxWatcherArgs.h"

#include <cstdlib>

kxWatcherArgs kxScanWatcherArgs(int argc, char** argv) {
    kxWatcherArgs a;
    int i = 1;
    while (i < argc && argv[i] != nullptr && argv[i][0] == '-') {
        const char kind = argv[i][1];
        if (kind == 'd' || kind == 'r') {
            if (i + 1 >= argc || argv[i + 1] == nullptr) {
                a.missingValueFor = kind;
                i = argc;
                break;
            }
            const long value = strtol(argv[i + 1], nullptr, 10);
            if (kind == 'd')
                a.retryDelay = static_cast<uint32_t>(value);
            else
                a.retries = static_cast<int32_t>(value);
            i += 2;
            continue;
        }
        if (kind == 'f') a.foreground = true;
        ++i;
    }
    a.programIndex = i < argc ? i : argc;
    return a;
}
