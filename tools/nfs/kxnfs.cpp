// kxnfs: talks to an NFS version 3 server from user space, without a kernel mount.
//
//   kxnfs [-t|-u] [-j] [-U uid] [-G gid,...] exports HOST
//   kxnfs [-t|-u] [-U uid] [-G gid,...] ping HOST
//
// Exit status: 0 success, 1 the server could not be reached or refused, 100 usage,
// 111 a local failure (out of memory).
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "nfs/NFSBrowse.h"
#include "nfs/kxNetUtils.h"

using namespace kxNFSUtils;

namespace {

constexpr int kExitRemote = 1;
constexpr int kExitUsage = 100;
constexpr int kExitSystem = 111;

int Usage(const char* why) {
    if (why != nullptr) fprintf(stderr, "kxnfs: %s\n", why);
    fprintf(stderr,
            "usage: kxnfs [options] exports HOST   list the exports with sizes and free space\n"
            "       kxnfs [options] ping HOST      check that MOUNT and NFS answer\n"
            "options:\n"
            "  -t         TCP only (default: TCP, falling back to UDP)\n"
            "  -u         UDP only\n"
            "  -j         exports: one JSON object per line\n"
            "  -U uid     user id sent to the server (default: yours)\n"
            "  -G g1,g2   group ids, the first being the primary one (default: your group)\n"
            "exit status: 0 success, 1 server unreachable or refused, 100 usage, 111 local error\n");
    return kExitUsage;
}

std::string Human(uint64_t bytes) {
    const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
    double v = static_cast<double>(bytes);
    int u = 0;
    while (v >= 1024 && u < 5) {
        v /= 1024;
        ++u;
    }
    char buf[32];
    snprintf(buf, sizeof buf, u == 0 ? "%.0f %s" : "%.1f %s", v, units[u]);
    return buf;
}

std::string JsonString(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char buf[8];
            snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

bool ParseGroups(const char* text, std::vector<int>& gids) {
    gids.clear();
    std::string s = text;
    size_t at = 0;
    while (at <= s.size()) {
        const size_t comma = s.find(',', at);
        const std::string item = s.substr(at, comma == std::string::npos ? std::string::npos : comma - at);
        char* end = nullptr;
        const long g = strtol(item.c_str(), &end, 10);
        if (item.empty() || *end != '\0' || g < 0) return false;
        gids.push_back(static_cast<int>(g));
        if (comma == std::string::npos) break;
        at = comma + 1;
    }
    return !gids.empty();
}

int Exports(NFSBrowse& browse, const std::string& host, bool json) {
    std::vector<ExportInfo> list;
    const bool ok = browse.Exports(list);
    if (list.empty()) {
        fprintf(stderr, "kxnfs: %s lists no exports\n", host.c_str());
        return kExitRemote;
    }
    if (!json) printf("%-40s %12s %12s %12s\n", "EXPORT", "SIZE", "FREE", "AVAILABLE");
    for (const ExportInfo& e : list) {
        const bool usable = e.type == kDirEntryDirectory;
        if (json) {
            printf("{\"host\":%s,\"export\":%s,\"mounted\":%s", JsonString(host).c_str(),
                   JsonString(e.serverPath).c_str(), usable ? "true" : "false");
            if (usable)
                printf(",\"total\":%llu,\"free\":%llu,\"available\":%llu,\"readPreferred\":%u,"
                       "\"writePreferred\":%u,\"maxTransfer\":%u,\"nameMax\":%u",
                       static_cast<unsigned long long>(e.totalBytes),
                       static_cast<unsigned long long>(e.freeBytes),
                       static_cast<unsigned long long>(e.availableBytes), e.readPreferred,
                       e.writePreferred, e.maxTransfer, e.nameMax);
            printf("}\n");
        } else if (usable) {
            printf("%-40s %12s %12s %12s\n", e.serverPath.c_str(), Human(e.totalBytes).c_str(),
                   Human(e.freeBytes).c_str(), Human(e.availableBytes).c_str());
        } else {
            printf("%-40s %12s\n", e.serverPath.c_str(), "(cannot mount)");
        }
    }
    if (!ok)
        fprintf(stderr, "kxnfs: some exports could not be described (status 0x%08X)\n",
                static_cast<unsigned>(browse.GetLastObjectError()));
    return ok ? 0 : kExitRemote;
}

int Ping(NFSBrowse& browse, const std::string& host) {
    const auto start = std::chrono::steady_clock::now();
    const bool ok = browse.Verify();
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() -
                                                                start).count();
    if (!ok) {
        printf("%s: no answer from MOUNT or NFS (%.3f ms)\n", host.c_str(), ms);
        return kExitRemote;
    }
    printf("%s: MOUNT and NFS answer, round trip %.3f ms\n", host.c_str(), ms);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    eUseProtocol protocol = eUseTCPThenUDP;
    bool json = false;
    int uid = static_cast<int>(getuid());
    std::vector<int> gids{static_cast<int>(getgid())};
    int opt;
    while ((opt = getopt(argc, argv, "tujU:G:h")) != -1) {
        switch (opt) {
        case 't': protocol = eUseTCP; break;
        case 'u': protocol = eUseUDP; break;
        case 'j': json = true; break;
        case 'U': {
            char* end = nullptr;
            const long v = strtol(optarg, &end, 10);
            if (*optarg == '\0' || *end != '\0' || v < 0) return Usage("-U takes a number");
            uid = static_cast<int>(v);
            break;
        }
        case 'G':
            if (!ParseGroups(optarg, gids)) return Usage("-G takes numbers separated by commas");
            break;
        case 'h': Usage(nullptr); return 0;
        default: return Usage(nullptr);
        }
    }
    if (argc - optind != 2) return Usage("a command and a host are needed");
    const std::string command = argv[optind];
    const std::string host = argv[optind + 1];
    if (command != "exports" && command != "ping") return Usage("unknown command");

    NFSBrowse* made = nullptr;
    const long rc = CreateNFSBrowse(made, host, uid, gids, nullptr, protocol);
    if (rc != KX_OK) {
        const char* why = "cannot reach the server";
        if (rc == KX_E_HOST_NOT_FOUND) why = "unknown host";
        else if (rc == KX_E_NFS_NO_PORTMAPPER) why = "the server's port mapper does not answer";
        else if (rc == KX_E_RPC_PROG_UNAVAILABLE) why = "MOUNT or NFS version 3 is not registered";
        else if (rc == KX_E_REFUSED) why = "the export list could not be read";
        else if (rc == KX_E_OUT_OF_MEMORY) why = "out of memory";
        fprintf(stderr, "kxnfs: %s: %s (status 0x%08X)\n", host.c_str(), why,
                static_cast<unsigned>(rc));
        return rc == KX_E_OUT_OF_MEMORY ? kExitSystem : kExitRemote;
    }
    std::unique_ptr<NFSBrowse> browse(made);
    return command == "exports" ? Exports(*browse, host, json) : Ping(*browse, host);
}
