#include "kxnfsSession.h"

#include <dirent.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "base/KBuffer.h"
#include "kxTextEscape.h"
#include "nfs/kxNFSStatusText.h"
#include "platform/kxNetUtils.h"

using namespace kxNFSUtils;

namespace kxnfs {

volatile sig_atomic_t g_stopSignal = 0;

namespace {

constexpr int kMaxSymlinkHops = 8;

void OnStopSignal(int sig) { g_stopSignal = sig; }

// Why the browse object could not be made, in the words a user needs.
const char* ConnectFailure(long rc) {
    if (rc == KX_E_HOST_NOT_FOUND || rc == KX_E_RPC_UNKNOWN_HOST) return "unknown host";
    if (rc == KX_E_NFS_NO_PORTMAPPER) return "the server's port mapper does not answer";
    if (rc == KX_E_RPC_PROG_UNAVAILABLE) return "MOUNT or NFS version 3 is not registered";
    if (rc == KX_E_REFUSED) return "the export list could not be read";
    if (rc == KX_E_OUT_OF_MEMORY) return "out of memory";
    if (rc == KX_E_RPC_AUTH) return "the credentials could not be made";
    return "cannot reach the server";
}

}  // namespace

class Session::Cancel final : public CancelledIf {
public:
    bool Cancelled() override { return g_stopSignal != 0; }
};

void Complain(const std::string& text) {
    fflush(stdout);
    fprintf(stderr, "kxnfs: %s\n", text.c_str());
}

void InstallStopHandlers() {
    struct sigaction sa {};
    sa.sa_handler = OnStopSignal;
    sa.sa_flags = SA_RESTART;
    sigemptyset(&sa.sa_mask);
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaction(sig, &sa, nullptr);
}

void DieOfStopSignal() {
    const int sig = g_stopSignal != 0 ? g_stopSignal : SIGTERM;
    fflush(stdout);
    signal(sig, SIG_DFL);
    raise(sig);
    _exit(128 + sig);
}

std::string ParentPath(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 ? "/" : path.substr(0, slash);
}

std::string LastName(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

uint64_t FileTimeNow() {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 10000000u +
           static_cast<uint64_t>(now.tv_nsec) / 100u + 116444736000000000ull;
}

mode_t CurrentUmask() {
    const mode_t mask = umask(022);
    umask(mask);
    return mask;
}

Session::Session(const Arguments& args)
    : m_args(args),
      m_uid(args.haveUid ? args.uid : static_cast<uint32_t>(getuid())),
      m_gid(args.gids.empty() ? static_cast<uint32_t>(getgid()) : args.gids[0]),
      m_cancel(new Cancel) {}

Session::~Session() = default;

namespace {

std::vector<int> OpenDescriptors() {
    std::vector<int> fds;
    DIR* d = opendir("/proc/self/fd");
    if (d == nullptr) return fds;
    const int own = dirfd(d);
    while (const dirent* e = readdir(d)) {
        const int fd = atoi(e->d_name);
        if (e->d_name[0] != '.' && fd != own) fds.push_back(fd);
    }
    closedir(d);
    return fds;
}

}  // namespace

std::vector<int> Session::OwnDescriptors() const {
    std::vector<int> own;
    for (int fd : OpenDescriptors())
        if (std::find(m_inherited.begin(), m_inherited.end(), fd) == m_inherited.end())
            own.push_back(fd);
    return own;
}

int Session::Reconnect() {
    m_browse.reset();
    return Connect();
}

int Session::Connect() {
    if (!m_connected) {
        m_inherited = OpenDescriptors();
        m_connected = true;
    }
    // The ids travel as 32-bit patterns: 4294967295 is passed as -1 and sent as 0xFFFFFFFF.
    std::vector<int> gids;
    if (m_args.gids.empty()) gids.push_back(static_cast<int>(m_gid));
    for (uint32_t g : m_args.gids) gids.push_back(static_cast<int>(g));
    NFSBrowse* made = nullptr;
    const long rc = CreateNFSBrowse(made, m_args.host, static_cast<int>(m_uid), gids,
                                    m_cancel.get(), m_args.protocol);
    if (rc == KX_OK) {
        m_browse.reset(made);
        return kExitOk;
    }
    if (g_stopSignal != 0) DieOfStopSignal();
    char status[32];
    snprintf(status, sizeof status, " (status 0x%08X)", kxStatusBits(rc));
    Complain(kxtools::TerminalText(m_args.host, false) + ": " + ConnectFailure(rc) + status);
    return rc == KX_E_OUT_OF_MEMORY ? kExitLocal : kExitRemote;
}

std::string Session::Where(const std::string& path) const {
    return kxtools::TerminalText(m_args.host + ":" + path, false);
}

int Session::Fail(const std::string& path, long status, const std::string& text) const {
    std::string line = Where(path) + ": " + (text.empty() ? kxNFSStatusText(status) : text);
    if (status != 0) {
        char code[32];
        snprintf(code, sizeof code, " (status 0x%08X)", kxStatusBits(status));
        line += code;
    }
    Complain(line);
    return status == KX_E_OUT_OF_MEMORY ? kExitLocal : kExitRemote;
}

int Session::FailLast(const std::string& path) {
    if (g_stopSignal != 0) DieOfStopSignal();
    const long status = m_browse->GetLastObjectError();
    return Fail(path, status, status == 0 ? "failed, and the client gave no reason" : "");
}

std::unique_ptr<DirEntry> Session::Open(const std::string& path, int& exit) {
    std::unique_ptr<DirEntry> entry(m_browse->Open(path, false, false));
    if (!entry) exit = FailLast(path);
    return entry;
}

std::unique_ptr<DirEntry> Session::OpenFollowing(std::string& path, int& exit,
                                                 bool quietIfMissing) {
    for (int hops = 0;; ++hops) {
        std::unique_ptr<DirEntry> entry(m_browse->Open(path, false, false));
        if (!entry) {
            if (quietIfMissing && g_stopSignal == 0 &&
                m_browse->GetLastObjectError() == KX_E_NFS_NOENT) {
                exit = kMissing;
                return nullptr;
            }
            exit = FailLast(path);
            return nullptr;
        }
        if (entry->type != kDirEntrySymlink) return entry;
        if (hops == kMaxSymlinkHops) {
            exit = Fail(path, 0, "too many levels of symbolic links");
            return nullptr;
        }
        KBuffer target;
        if (!m_browse->ReadSymlink(*entry, target)) {
            exit = FailLast(path);
            return nullptr;
        }
        std::string text(reinterpret_cast<const char*>(target.GetPtr()), target.GetBytesUsed());
        while (!text.empty() && text.back() == '\0') text.pop_back();
        if (text.empty()) {
            exit = Fail(path, 0, "symbolic link with an empty target");
            return nullptr;
        }
        path = NormalisePath(text[0] == '/' ? text : ParentPath(path) + "/" + text);
    }
}

std::unique_ptr<DirEntry> Session::OpenParent(const std::string& path, std::string& name,
                                              int& exit) {
    if (path == "/" || IsExportRoot(path)) {
        exit = Fail(path, 0, "is the root of an export, which cannot be replaced or removed");
        return nullptr;
    }
    name = LastName(path);
    const std::string parentPath = ParentPath(path);
    std::unique_ptr<DirEntry> dir = Open(parentPath, exit);
    if (dir && dir->type != kDirEntryDirectory) {
        exit = Fail(parentPath, KX_E_NFS_WRONG_TYPE, "not a directory");
        dir.reset();
    }
    return dir;
}

void Session::FillTransferSizes(const std::string& path, DirEntry& entry) {
    if (entry.readPreferred != 0 && entry.writePreferred != 0) return;
    ExportInfo info;
    if (!m_browse->FindMountPoint(path, info)) return;
    if (entry.readPreferred == 0) entry.readPreferred = info.readPreferred;
    if (entry.writePreferred == 0) entry.writePreferred = info.writePreferred;
}

bool Session::IsExportRoot(const std::string& path) {
    std::vector<std::string> exports;
    m_browse->ExportPaths(exports);
    for (const std::string& e : exports)
        if (!e.empty() && e[0] == '/' && NormalisePath(e) == path) return true;
    return false;
}

void Session::Describe(const DirEntry& dir, const std::string& name, uint32_t type,
                       uint32_t mode, DirEntry& entry) const {
    const std::string& base = dir.serverPath;
    entry.serverPath = base + (!base.empty() && base.back() == '/' ? "" : "/") + name;
    entry.path = entry.serverPath;
    entry.type = type;
    entry.mode = mode;
    entry.uid = m_uid;
    entry.gid = m_gid;
    entry.size = 0;
    entry.accessTime = entry.writeTime = FileTimeNow();
}

}  // namespace kxnfs
