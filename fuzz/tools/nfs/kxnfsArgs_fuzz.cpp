// kxnfs's command line from arbitrary argument vectors: the parser must accept only what its
// contract describes (a host without ':', absolute normalised paths, at most 16 groups), explain
// every refusal, and give the same answer when run again on the same object.
//
// Input: the arguments after the program's name, separated by zero bytes (at most 64).
#include <cstring>
#include <string>
#include <vector>

#include "kxFuzzCheck.h"
#include "kxnfsArgs.h"

namespace {

bool Normalised(const std::string& path) {
    if (path.empty() || path[0] != '/') return false;
    if (path != "/" && path.back() == '/') return false;
    for (const char* bad : {"//", "/./", "/../"})
        if (path.find(bad) != std::string::npos) return false;
    for (const char* end : {"/.", "/.."})
        if (path.size() >= strlen(end) &&
            path.compare(path.size() - strlen(end), std::string::npos, end) == 0)
            return false;
    return kxnfs::NormalisePath(path) == path;
}

bool Same(const kxnfs::Arguments& a, const kxnfs::Arguments& b) {
    return a.protocol == b.protocol && a.json == b.json && a.haveUid == b.haveUid &&
           a.uid == b.uid && a.gids == b.gids && a.command == b.command && a.host == b.host &&
           a.path == b.path && a.local == b.local && a.name == b.name &&
           a.longFormat == b.longFormat && a.all == b.all && a.exclusive == b.exclusive &&
           a.program == b.program;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<std::string> words;
    if (!kxFuzzWords(data, size, 64, words)) return 0;
    std::vector<const char*> argv{"kxnfs"};
    for (const std::string& w : words) argv.push_back(w.c_str());

    kxnfs::Arguments args;
    std::string error;
    const kxnfs::ParseResult result =
        kxnfs::ParseArguments(static_cast<int>(argv.size()), argv.data(), args, error);
    if (result == kxnfs::ParseResult::Usage) KX_FUZZ_CHECK(!error.empty());
    if (result == kxnfs::ParseResult::Run) {
        KX_FUZZ_CHECK(error.empty());
        KX_FUZZ_CHECK(!args.host.empty() && args.host.find(':') == std::string::npos);
        KX_FUZZ_CHECK(args.gids.size() <= 16);
        if (args.command != kxnfs::Command::Exports && args.command != kxnfs::Command::Ping)
            KX_FUZZ_CHECK(Normalised(args.path));
        if (args.command == kxnfs::Command::Lock) KX_FUZZ_CHECK(!args.program.empty());
    }
    // A second parse into the same object starts afresh.
    kxnfs::Arguments again = args;
    std::string error2;
    KX_FUZZ_CHECK(
        kxnfs::ParseArguments(static_cast<int>(argv.size()), argv.data(), again, error2) == result);
    KX_FUZZ_CHECK(Same(args, again) && error == error2);

    for (const std::string& w : words) {
        std::string host, path, why;
        if (kxnfs::ParseRemote(w, host, path, why)) {
            KX_FUZZ_CHECK(!host.empty() && Normalised(path));
        } else {
            KX_FUZZ_CHECK(!why.empty());
        }
    }
    return 0;
}
