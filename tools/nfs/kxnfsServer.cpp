// exports and ping: the server as a whole.
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <vector>

#include "kxTextEscape.h"
#include "kxnfsCommands.h"
#include "kxnfsFormat.h"
#include "nfs/kxNFSStatusText.h"

using namespace kxNFSUtils;

namespace kxnfs {

int RunExports(Session& s) {
    NFSBrowse& browse = s.Browse();
    const std::string& host = s.Args().host;
    const bool json = s.Args().json;
    std::vector<ExportInfo> list;
    const bool ok = browse.Exports(list);
    if (list.empty()) {
        Complain(kxtools::TerminalText(host, false) + ": the server lists no exports");
        return kExitRemote;
    }
    if (!json) printf("%-40s %12s %12s %12s\n", "EXPORT", "SIZE", "FREE", "AVAILABLE");
    for (const ExportInfo& e : list) {
        const bool usable = e.type == kDirEntryDirectory;
        if (json) {
            printf("{\"host\":%s,\"export\":%s,\"mounted\":%s", JsonString(host).c_str(),
                   JsonString(e.serverPath).c_str(), usable ? "true" : "false");
            if (usable)
                printf(",\"total\":%" PRIu64 ",\"free\":%" PRIu64 ",\"available\":%" PRIu64
                       ",\"readPreferred\":%u,\"writePreferred\":%u,\"maxTransfer\":%u,"
                       "\"nameMax\":%u",
                       e.totalBytes, e.freeBytes, e.availableBytes, e.readPreferred,
                       e.writePreferred, e.maxTransfer, e.nameMax);
            printf("}\n");
        } else if (usable) {
            printf("%-40s %12s %12s %12s\n", kxtools::TerminalText(e.serverPath, false).c_str(),
                   HumanBytes(e.totalBytes).c_str(), HumanBytes(e.freeBytes).c_str(),
                   HumanBytes(e.availableBytes).c_str());
        } else {
            printf("%-40s %12s\n", kxtools::TerminalText(e.serverPath, false).c_str(),
                   "(cannot mount)");
        }
    }
    if (ok) return kExitOk;
    const long status = browse.GetLastObjectError();
    char line[160];
    snprintf(line, sizeof line, ": some exports could not be described: %s (status 0x%08X)",
             kxNFSStatusText(status), kxStatusBits(status));
    Complain(kxtools::TerminalText(host, false) + line);
    return kExitRemote;
}

int RunPing(Session& s) {
    const auto start = std::chrono::steady_clock::now();
    const bool ok = s.Browse().Verify();
    const double ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
            .count();
    const std::string host = kxtools::TerminalText(s.Args().host, false);
    char figures[64];
    snprintf(figures, sizeof figures, "%.3f ms", ms);
    if (!ok) {
        Complain(host + ": no answer from MOUNT or NFS (" + figures + ")");
        return kExitRemote;
    }
    printf("%s: MOUNT and NFS answer, round trip %s\n", host.c_str(), figures);
    return kExitOk;
}

}  // namespace kxnfs
