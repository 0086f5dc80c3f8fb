// Command-line scanning of the Watcher: [-d seconds] [-r retries] [-f] program [arguments...]
#pragma once

#include <cstdint>

struct kxWatcherArgs {
    int32_t retries = 10;        // highest start counter at which another start is still made
    uint32_t retryDelay = 5;     // seconds of pause before a restart
    bool foreground = false;     // true: do not daemonize
    int programIndex = 1;        // index in argv of the watched program's path (may be argc)
    char missingValueFor = 0;    // 'd' or 'r' when that switch ended the line without a value
};

// Scans argv from argv[1] while the argument starts with '-':
//  - only the second character counts ("-fast" is -f; "-d5" does not carry its value);
//  - -d and -r take the next argument whatever it looks like (strtol, base 10; junk gives 0);
//  - any other switch, "--" included, is skipped silently;
//  - the first argument not starting with '-' is the watched program.
// Never reads past argv[argc]. A -d or -r that is the last argument has no value: scanning
// stops there and missingValueFor names the switch, so that the caller can refuse the command
// line instead of guessing.
kxWatcherArgs kxScanWatcherArgs(int argc, char** argv);
