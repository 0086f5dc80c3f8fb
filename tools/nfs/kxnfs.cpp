// kxnfs: an NFS version 3 client on the command line, in user space, without a kernel mount.
// See PrintUsage (kxnfsArgs.cpp) and the manual in README.md for the commands and exit codes.
#include <new>

#include "kxTextEscape.h"
#include "nfs/kxNFSTransfer.h"
#include "kxnfsArgs.h"
#include "kxnfsCommands.h"

using namespace kxnfs;

namespace {

int Run(Session& s) {
    switch (s.Args().command) {
    case Command::Exports: return RunExports(s);
    case Command::Ping: return RunPing(s);
    case Command::Ls: return RunLs(s);
    case Command::Stat: return RunStat(s);
    case Command::Cat: return RunCat(s);
    case Command::Get: return RunGet(s);
    case Command::Put: return RunPut(s);
    case Command::Mkdir: return RunMkdir(s);
    case Command::Rmdir: return RunRmdir(s);
    case Command::Rm: return RunRm(s);
    case Command::Mv: return RunMv(s);
    case Command::Symlink: return RunSymlink(s);
    case Command::Readlink: return RunReadlink(s);
    case Command::Lock: return RunLock(s);
    }
    return kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
    Arguments args;
    std::string error;
    switch (ParseArguments(argc, argv, args, error)) {
    case ParseResult::Help: PrintUsage(stdout); return kExitOk;
    case ParseResult::Usage:
        Complain(kxtools::TerminalText(error, false));
        PrintUsage(stderr);
        return kExitUsage;
    case ParseResult::Run: break;
    }
    // The library's switch is process-wide; this program moves one file at a time.
    kxNFSUtils::g_NFSUtils_UseScatterGather = args.pipelined;
    try {
        InstallStopHandlers();
        Session session(args);
        const int connected = session.Connect();
        if (connected != kExitOk) return connected;
        const int status = Run(session);
        if (fflush(stdout) != 0 || ferror(stdout)) {
            Complain("standard output could not be written");
            return status == kExitOk ? kExitLocal : status;
        }
        return status;
    } catch (const std::bad_alloc&) {
        Complain("out of memory");
        return kExitLocal;
    }
}
