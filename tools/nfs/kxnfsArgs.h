// The command line of kxnfs, parsed without side effects: no output, no global state, so a
// test or a fuzzer can drive it in-process with any argument vector.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "nfs/NFSBrowse.h"

namespace kxnfs {

enum class Command {
    Exports, Ping, Ls, Stat, Cat, Get, Put, Mkdir, Rmdir, Rm, Mv, Symlink, Readlink, Lock
};

struct Arguments {
    // Global options (before the command).
    kxNFSUtils::eUseProtocol protocol = kxNFSUtils::eUseTCPThenUDP;
    bool json = false;
    // get, put and cat keep several requests in flight over TCP unless -S asks for one at a
    // time (the library's sequential transfer); the bytes moved are the same either way.
    bool pipelined = true;
    // Ids are 32-bit on the wire; a value above 2^31 - 1 is sent as its 32-bit pattern.
    bool haveUid = false;
    uint32_t uid = 0;
    std::vector<uint32_t> gids;  // empty: the caller's group; else gids[0] is the primary one

    Command command = Command::Ping;
    std::string host;
    // The remote path of every command but exports and ping: absolute, normalised ("." and
    // empty names dropped, ".." taken lexically, never above "/"), no trailing "/" but for "/".
    std::string path;
    std::string local;      // get and put: the local file ("-" for put: standard input)
    std::string name;       // mv: the new name (one name, no "/"); ln -s: the link's target
    bool longFormat = false;  // ls -l
    bool all = false;         // ls -a
    bool exclusive = true;    // lock: -x (default) or -s
    std::vector<std::string> program;  // lock: the command and its arguments
};

enum class ParseResult {
    Run,    // args is complete
    Help,   // -h or --help: print the usage to standard output, exit 0
    Usage,  // error holds one line saying what is wrong
};

// Parses argv[1..argc-1]. argv[0] is ignored and may be null.
ParseResult ParseArguments(int argc, const char* const* argv, Arguments& args,
                           std::string& error);

// Splits "HOST:PATH" at its first colon. False (with error set) when there is no colon, the
// host is empty, or PATH does not start with "/"; PATH comes back normalised as described at
// Arguments::path.
bool ParseRemote(const std::string& text, std::string& host, std::string& path,
                 std::string& error);

// The lexical form of an absolute path described at Arguments::path.
std::string NormalisePath(const std::string& path);

// The usage text.
void PrintUsage(FILE* out);

}  // namespace kxnfs
