#include "kxNFSSandbox.h"

#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <rpc/rpc.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <thread>

// The RPC library keeps a few bytes when clnt_create fails to find a program (a leak inside
// the library, in its host-name path only); the address path the client uses is not covered.
// Suppressions match on the whole stack, which the fast unwinder loses inside the library.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:clnt_create_timed\n";
}
extern "C" const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}
// Present in the coverage build only: the forked sandboxes end with _exit, past its writer.
extern "C" void __gcov_dump() __attribute__((weak));

namespace kxtest {

namespace {

// fork and exec with the child bound to the test process's life; stdout to outFd if >= 0.
pid_t SpawnChild(const std::vector<std::string>& argv, int outFd = -1, int errFd = -1) {
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid != 0) return pid;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(111);
    if (outFd >= 0) dup2(outFd, 1);
    if (errFd >= 0) dup2(errFd, 2);
    const int devnull = open("/dev/null", O_RDONLY);
    if (devnull >= 0) dup2(devnull, 0);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
}

void StopPid(pid_t& pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    if (!WaitFor(pid, std::chrono::seconds(10))) KillAndReap(pid);
    pid = -1;
}

bool Executable(const char* path) {
    return access(path, X_OK) == 0;
}

// The port mapper gives up root for its own user, which clears the parent-death signal: if the
// test process crashes, the port mapper outlives it (harmlessly, in the dead namespace). It
// must not hold the test's output open then, or whoever reads that output waits for ever.
pid_t SpawnPortMapper() {
    const int devnull = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const pid_t pid = SpawnChild({"/usr/sbin/rpcbind", "-f", "-w"}, devnull, devnull);
    if (devnull >= 0) close(devnull);
    return pid;
}

bool LoopbackUp() {
    const int s = socket(AF_INET, SOCK_DGRAM, 0);
    if (s < 0) return false;
    ifreq ifr{};
    strncpy(ifr.ifr_name, "lo", IFNAMSIZ - 1);
    bool ok = ioctl(s, SIOCGIFFLAGS, &ifr) == 0;
    ifr.ifr_flags = static_cast<short>(ifr.ifr_flags | IFF_UP | IFF_RUNNING);
    ok = ok && ioctl(s, SIOCSIFFLAGS, &ifr) == 0;
    close(s);
    return ok;
}

// Enters new network and mount namespaces with a private /run and the loopback up; what went
// wrong otherwise.
std::string EnterNamespaces() {
    if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0)
        return std::string("cannot create network and mount namespaces: ") + strerror(errno) +
               " (the NFS tests need root or CAP_SYS_ADMIN)";
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") != 0)
        return std::string("cannot mount a private /run: ") + strerror(errno);
    if (!LoopbackUp())
        return std::string("cannot bring up the private loopback: ") + strerror(errno);
    return "";
}

// True once the port mapper on loopback maps program/version over TCP, within limitMs.
bool WaitForRegistration(unsigned long program, unsigned long version, int limitMs) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return Eventually([&] { return pmap_getport(&a, program, version, IPPROTO_TCP) != 0; },
                      std::chrono::milliseconds(limitMs));
}

}  // namespace

NFSSandbox& NFSSandbox::Get() {
    static NFSSandbox sandbox;
    return sandbox;
}

NFSSandbox::NFSSandbox() {
    if (Enter()) StartPortMapper();
}

NFSSandbox::~NFSSandbox() {
    StopPid(m_nfsServer);
    StopPid(m_statd);
    StopPid(m_rpcbind);
}

bool NFSSandbox::Enter() {
    if (!Executable("/usr/sbin/rpcbind")) {
        m_why = "rpcbind is not installed (/usr/sbin/rpcbind)";
        return false;
    }
    m_why = EnterNamespaces();
    if (!m_why.empty()) return false;
    mkdir("/var/lib/nfs", 0755);
    if (mount("tmpfs", "/var/lib/nfs", "tmpfs", 0, "mode=0755") != 0) {
        m_why = std::string("cannot mount a private /var/lib/nfs: ") + strerror(errno);
        return false;
    }
    return true;
}

bool NFSSandbox::StartPortMapper() {
    m_rpcbind = SpawnPortMapper();
    // Installed and permitted, yet silent: a real failure, which the tests report.
    m_portMapperUp = m_rpcbind > 0 && WaitForRegistration(100000, 2, 10000);
    return m_portMapperUp;
}

bool NFSSandbox::StartNFSServer() {
    if (m_nfsTried) return m_nfsServer > 0;
    m_nfsTried = true;
    const char* ganesha = "/usr/bin/ganesha.nfsd";
    if (!Executable(ganesha)) {
        m_why = "nfs-ganesha is not installed (/usr/bin/ganesha.nfsd)";
        return false;
    }
    if (!m_portMapperUp) {
        m_failure = "the port mapper did not start";
        return false;
    }
    m_exportRoot = m_dir / "export";
    for (const char* d : {"", "/a", "/a/b", "/data"}) mkdir((m_exportRoot + d).c_str(), 0777);

    const std::string conf = m_dir / "ganesha.conf";
    {
        std::ofstream f(conf);
        f << "NFS_CORE_PARAM { Protocols = 3; Enable_NLM = true; Enable_RQUOTA = false; }\n"
             "NFSV4 { Graceless = true; }\n";
        const char* sizes =
            "MaxRead = 65536; MaxWrite = 65536; PrefRead = 65536; PrefWrite = 65536;";
        const std::string paths[] = {"/a", "/a/b", "/data"};
        for (int id = 1; id <= 3; ++id)
            f << "EXPORT { Export_Id = " << id << "; Path = " << m_exportRoot << paths[id - 1]
              << "; Pseudo = /p" << id << "; Access_Type = RW; Squash = No_Root_Squash;"
              << " Protocols = 3; Transports = UDP, TCP; SecType = sys; " << (id == 3 ? sizes : "")
              << " FSAL { Name = VFS; } }\n";
    }
    StartStatusMonitor();
    m_nfsServer = SpawnChild(
        {ganesha, "-F", "-f", conf, "-L", m_dir / "ganesha.log", "-p", m_dir / "ganesha.pid"});
    if (m_nfsServer < 0 || !WaitForRegistration(100005, 3, 20000) ||
        !WaitForRegistration(100003, 3, 20000)) {
        m_failure = "nfs-ganesha did not register MOUNT and NFS; its log:\n" +
                    ReadFile(m_dir / "ganesha.log");
        StopPid(m_nfsServer);
        return false;
    }
    // The lock manager registers after NFS; a lock request before that finds no lock manager.
    m_lockManagerUp = m_statd > 0 && WaitForRegistration(100021, 4, 20000);
    return true;
}

// The lock manager asks the status monitor to watch every client that takes a lock, and
// refuses locks when it cannot reach one. Its state lives in the private /var/lib/nfs.
void NFSSandbox::StartStatusMonitor() {
    const char* statd = "/usr/sbin/rpc.statd";
    if (!Executable(statd)) return;
    for (const char* d : {"/var/lib/nfs/sm", "/var/lib/nfs/sm.bak"}) mkdir(d, 0700);
    m_statd = SpawnChild({statd, "--foreground", "--no-notify"});
    if (m_statd > 0 && !WaitForRegistration(100024, 1, 10000)) StopPid(m_statd);
}

pid_t NFSSandbox::StartFake(unsigned long program, unsigned long version, const std::string& mode,
                            int count, const std::string& recordPath) {
    int pipeFds[2];
    if (pipe(pipeFds) != 0) return -1;
    const pid_t pid = SpawnChild({ProgramDir() + "/kx_fake_rpc_server", std::to_string(program),
                                  std::to_string(version), mode, std::to_string(count), recordPath},
                                 pipeFds[1]);
    close(pipeFds[1]);
    char line[16] = {};
    const ssize_t n = read(pipeFds[0], line, sizeof line - 1);
    close(pipeFds[0]);
    if (n < 5 || strncmp(line, "ready", 5) != 0) {
        pid_t failed = pid;
        StopPid(failed);
        return -1;
    }
    return pid;
}

void NFSSandbox::Stop(pid_t pid) {
    StopPid(pid);
}

int InFreshSandbox(bool withPortMapper, int (*fn)()) {
    int fds[2];
    if (pipe(fds) != 0) return INT32_MIN;
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        int result = INT32_MIN;
        pid_t rpcbind = -1;
        if (EnterNamespaces().empty()) {
            if (withPortMapper) {
                rpcbind = SpawnPortMapper();
                if (!WaitForRegistration(100000, 2, 10000)) StopPid(rpcbind);
            }
            if (!withPortMapper || rpcbind > 0) result = fn();
        }
        StopPid(rpcbind);
        if (write(fds[1], &result, sizeof result) != sizeof result) _exit(1);
        if (__gcov_dump != nullptr) __gcov_dump();  // _exit skips the coverage build's own
        _exit(0);
    }
    close(fds[1]);
    int result = INT32_MIN;
    if (pid < 0 || read(fds[0], &result, sizeof result) != sizeof result) result = INT32_MIN;
    close(fds[0]);
    if (pid > 0) waitpid(pid, nullptr, 0);
    return result;
}

}  // namespace kxtest
