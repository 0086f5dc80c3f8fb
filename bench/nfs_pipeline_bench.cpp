// NFS transfer throughput: get and put of one file through the library's sequential path and
// its pipelined path (g_NFSUtils_UseScatterGather), beside nfs-cp (libnfs-utils, an
// independent user-space client) on the same server, export and file in the same run.
//
// Each get reads the remote file into a local file, each put writes a local file to a new
// remote one, through a fresh browse object per transfer (as `kxnfs get` and `put` do; nfs-cp
// mounts per run too). Pieces are what one Read or Write call moves: 4 MiB is kxnfs's piece;
// 32 MiB lets the pipeline stay full across pieces.
// Counters per transfer: client_cpu_s (this process, or nfs-cp) and server_cpu_s (nfs-ganesha)
// beside the wall time, and machine_idle, the share of the machine's cores idle meanwhile:
// near 0 means the cores were the limit (other load on the machine counts too).
// The kinds take turns, one transfer each per round; after the runs a table gives each kind's
// median and the ratio of medians nfs-cp time / library time (above 1: faster).
//
// Needs root: the program enters network and mount namespaces of its own (loopback only, a
// tmpfs holding the export and the local files) with its own rpcbind and nfs-ganesha (export
// MaxRead, MaxWrite, PrefRead, PrefWrite 1 MiB), stopped by pid at the end. Without them it
// says why and exits 0. KX_NFS_BENCH_MIB sets the file size (default 256).
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <net/if.h>
#include <rpc/pmap_clnt.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "nfs/NFSBrowse.h"
#include "nfs/kxNFSTransfer.h"

using namespace kxNFSUtils;

namespace {

constexpr uint32_t kMiB = 1u << 20;

struct Bench {
    std::string why;  // empty when usable
    std::string work, exportDir, localDir;
    uint64_t size = 0;
    pid_t rpcbind = -1, ganesha = -1;
    // Wall time of every transfer, by kind.
    std::map<std::string, std::vector<double>> seconds;
} g;

pid_t Spawn(const std::vector<std::string>& argv) {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int null = open("/dev/null", O_RDWR);
    dup2(null, 0);
    dup2(null, 1);
    dup2(null, 2);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
}

void Stop(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    for (int i = 0; i < 100; ++i) {
        if (waitpid(pid, nullptr, WNOHANG) == pid) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

bool Registered(unsigned long program, int seconds) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    for (int i = 0; i < seconds * 10; ++i) {
        if (pmap_getport(&a, program, program == 100000 ? 2 : 3, IPPROTO_TCP) != 0) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
}

bool LoopbackUp() {
    const int s = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq ifr{};
    strncpy(ifr.ifr_name, "lo", IFNAMSIZ - 1);
    bool ok = s >= 0 && ioctl(s, SIOCGIFFLAGS, &ifr) == 0;
    ifr.ifr_flags = static_cast<short>(ifr.ifr_flags | IFF_UP | IFF_RUNNING);
    ok = ok && ioctl(s, SIOCSIFFLAGS, &ifr) == 0;
    if (s >= 0) close(s);
    return ok;
}

bool WriteFile(const std::string& path, const std::vector<char>& bytes) {
    std::ofstream f(path, std::ios::binary);
    f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(f);
}

bool SameFile(const std::string& a, const std::string& b) {
    FILE* fa = fopen(a.c_str(), "rb");
    FILE* fb = fopen(b.c_str(), "rb");
    bool same = fa != nullptr && fb != nullptr;
    std::vector<char> ba(kMiB), bb(kMiB);
    while (same) {
        const size_t na = fread(ba.data(), 1, ba.size(), fa);
        const size_t nb = fread(bb.data(), 1, bb.size(), fb);
        same = na == nb && memcmp(ba.data(), bb.data(), na) == 0;
        if (na == 0) break;
    }
    if (fa != nullptr) fclose(fa);
    if (fb != nullptr) fclose(fb);
    return same;
}

// Sets up the namespaces, the server and the file; g.why says what is missing.
void SetUp() {
    for (const char* p : {"/usr/sbin/rpcbind", "/usr/bin/ganesha.nfsd", "/usr/bin/nfs-cp"})
        if (access(p, X_OK) != 0) {
            g.why = std::string(p) + " is not installed (scripts/setup-deps.sh --all)";
            return;
        }
    if (geteuid() != 0) {
        g.why = "needs root for its own network and mount namespaces";
        return;
    }
    const char* mib = getenv("KX_NFS_BENCH_MIB");
    g.size = uint64_t{static_cast<uint32_t>(mib ? atoi(mib) : 256)} * kMiB;
    char work[] = "/tmp/kx-nfs-pipeline-bench.XXXXXX";
    if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") != 0 || !LoopbackUp() ||
        mkdtemp(work) == nullptr) {
        g.why = std::string("cannot make the sandbox: ") + strerror(errno);
        return;
    }
    mkdir("/var/lib/nfs", 0755);
    mount("tmpfs", "/var/lib/nfs", "tmpfs", 0, "mode=0755");
    g.work = work;
    const std::string size = "size=" + std::to_string(g.size * 5 / kMiB + 256) + "m";
    mount("tmpfs", work, "tmpfs", 0, size.c_str());
    g.exportDir = g.work + "/export";
    g.localDir = g.work + "/local";
    mkdir(g.exportDir.c_str(), 0777);
    mkdir(g.localDir.c_str(), 0777);

    g.rpcbind = Spawn({"/usr/sbin/rpcbind", "-f", "-w"});
    if (!Registered(100000, 10)) {
        g.why = "rpcbind did not start";
        return;
    }
    const std::string conf = g.work + "/ganesha.conf";
    std::ofstream(conf) << "NFS_CORE_PARAM { Protocols = 3; Enable_NLM = false; "
                           "Enable_RQUOTA = false; }\nNFSV4 { Graceless = true; }\n"
                           "EXPORT { Export_Id = 1; Path = "
                        << g.exportDir
                        << "; Pseudo = /bench; Access_Type = RW; Squash = No_Root_Squash; "
                           "Protocols = 3; Transports = TCP; SecType = sys; MaxRead = 1048576; "
                           "MaxWrite = 1048576; PrefRead = 1048576; PrefWrite = 1048576; "
                           "FSAL { Name = VFS; } }\n";
    g.ganesha = Spawn({"/usr/bin/ganesha.nfsd", "-F", "-f", conf, "-L", g.work + "/ganesha.log",
                       "-p", g.work + "/ganesha.pid"});
    if (!Registered(100005, 30) || !Registered(100003, 30)) {
        g.why = "nfs-ganesha did not register";
        return;
    }
    std::vector<char> bytes(g.size);
    std::mt19937 gen(1);
    for (size_t i = 0; i + 4 <= bytes.size(); i += 4) {
        const uint32_t v = gen();
        memcpy(&bytes[i], &v, 4);
    }
    if (!WriteFile(g.exportDir + "/source", bytes) || !WriteFile(g.localDir + "/source", bytes))
        g.why = "cannot write the source file";
}

void TearDown() {
    Stop(g.ganesha);
    Stop(g.rpcbind);
    if (!g.work.empty()) {
        umount2(g.work.c_str(), MNT_DETACH);
        rmdir(g.work.c_str());
    }
}

double CpuSeconds(int who) {
    rusage u{};
    getrusage(who, &u);
    return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
           static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

double ServerCpuSeconds() {
    std::ifstream f("/proc/" + std::to_string(g.ganesha) + "/stat");
    std::string line;
    std::getline(f, line);
    const size_t close = line.rfind(')');
    if (close == std::string::npos) return 0;
    std::vector<std::string> fields;
    std::string field;
    for (char c : line.substr(close + 2)) {
        if (c == ' ') {
            fields.push_back(field);
            field.clear();
        } else {
            field += c;
        }
    }
    // utime and stime are fields 14 and 15 of the line, 12 and 13 after the name.
    if (fields.size() < 13) return 0;
    return static_cast<double>(std::stoull(fields[11]) + std::stoull(fields[12])) /
           static_cast<double>(sysconf(_SC_CLK_TCK));
}

std::unique_ptr<NFSBrowse> Connect() {
    NFSBrowse* b = nullptr;
    if (CreateNFSBrowse(b, std::string("127.0.0.1"), 0, {0}, nullptr, eUseTCP) != 0)
        return nullptr;
    return std::unique_ptr<NFSBrowse>(b);
}

// Removes a file of the export through the server, whose caches a local unlink would leave
// pointing at the old file.
bool RemoveRemote(const std::string& name) {
    auto browse = Connect();
    if (!browse) return false;
    std::unique_ptr<DirEntry> dir(browse->Open(g.exportDir, false, false));
    std::unique_ptr<DirEntry> file(browse->Open(g.exportDir + "/" + name, false, false));
    return dir && (!file || browse->DeleteObject(*dir, *file));
}

// Idle and total jiffies of the whole machine (/proc/stat): whether the cores were the limit.
std::pair<double, double> MachineTicks() {
    std::ifstream f("/proc/stat");
    std::string cpu;
    double v[8] = {};
    f >> cpu >> v[0] >> v[1] >> v[2] >> v[3] >> v[4] >> v[5] >> v[6] >> v[7];
    double total = 0;
    for (double x : v) total += x;
    return {v[3] + v[4], total};  // idle + iowait
}

// Times one kind of transfer: wall time per transfer, CPU counters, MiB/s. Each transfer's
// result is compared with the source afterwards, outside the timing.
template <typename Transfer>
void Measure(benchmark::State& state, const char* name, int cpuWho, bool get,
             Transfer transfer) {
    if (!g.why.empty()) {
        state.SkipWithError(g.why.c_str());
        return;
    }
    double client = 0, server = 0, wall = 0, idle = 0, ticks = 0;
    for (auto _ : state) {
        // Targets are made afresh each time, outside the timing (freeing the last copy's pages
        // costs as much as a part of the transfer).
        unlink((g.localDir + "/got").c_str());
        if (!RemoveRemote("put")) {
            state.SkipWithError("cannot remove the last put's file");
            return;
        }
        const double c0 = CpuSeconds(cpuWho), s0 = ServerCpuSeconds();
        const auto m0 = MachineTicks();
        const auto t0 = std::chrono::steady_clock::now();
        if (!transfer()) {
            state.SkipWithError("transfer failed");
            return;
        }
        wall += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        client += CpuSeconds(cpuWho) - c0;
        server += ServerCpuSeconds() - s0;
        const auto m1 = MachineTicks();
        idle += m1.first - m0.first;
        ticks += m1.second - m0.second;
        if (!SameFile(g.localDir + "/source", get ? g.localDir + "/got" : g.exportDir + "/put")) {
            state.SkipWithError("the copy differs from the source");
            return;
        }
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["client_cpu_s"] = client / n;
    state.counters["server_cpu_s"] = server / n;
    // Share of both cores left idle while the transfers ran (by anything on the machine).
    state.counters["machine_idle"] = ticks > 0 ? idle / ticks : 0;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(g.size));
    g.seconds[name].push_back(wall / n);
}

bool LibraryGet(bool pipelined, uint32_t piece) {
    g_NFSUtils_UseScatterGather = pipelined;
    auto browse = Connect();
    if (!browse) return false;
    std::unique_ptr<DirEntry> file(browse->Open(g.exportDir + "/source", false, false));
    const std::string target = g.localDir + "/got";
    const int fd = open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (!file || fd < 0) return false;
    std::vector<char> buffer(piece);
    uint64_t at = 0;
    bool ok = true;
    while (at < file->size && ok) {
        const unsigned long n =
            browse->Read(*file, buffer.data(), static_cast<long long>(at), piece);
        ok = n != 0 && write(fd, buffer.data(), n) == static_cast<ssize_t>(n);
        at += n;
    }
    close(fd);
    return ok;
}

bool LibraryPut(bool pipelined, uint32_t piece) {
    g_NFSUtils_UseScatterGather = pipelined;
    const std::string target = g.exportDir + "/put";
    auto browse = Connect();
    if (!browse) return false;
    std::unique_ptr<DirEntry> file(browse->Open(target, true, false));
    const int fd = open((g.localDir + "/source").c_str(), O_RDONLY);
    if (!file || fd < 0) return false;
    std::vector<char> buffer(piece);
    uint64_t at = 0;
    bool ok = true;
    for (ssize_t n; ok && (n = read(fd, buffer.data(), piece)) > 0;) {
        ok = browse->Write(*file, buffer.data(), static_cast<long long>(at),
                           static_cast<unsigned long>(n)) == static_cast<unsigned long>(n);
        at += static_cast<uint64_t>(n);
    }
    close(fd);
    return ok;
}

bool NfsCp(const std::string& from, const std::string& to) {
    const pid_t pid = Spawn({"/usr/bin/nfs-cp", from, to});
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string Url(const std::string& name) {
    return "nfs://127.0.0.1" + g.exportDir + "/" + name + "?version=3";
}

struct Kind {
    const char* name;
    int cpuWho;
    bool get;
    bool (*transfer)();
};

const Kind kKinds[] = {
    {"Get_NfsCp", RUSAGE_CHILDREN, true, [] { return NfsCp(Url("source"), g.localDir + "/got"); }},
    {"Get_Sequential_4MiB", RUSAGE_SELF, true, [] { return LibraryGet(false, 4 * kMiB); }},
    {"Get_Pipelined_4MiB", RUSAGE_SELF, true, [] { return LibraryGet(true, 4 * kMiB); }},
    {"Get_Pipelined_32MiB", RUSAGE_SELF, true, [] { return LibraryGet(true, 32 * kMiB); }},
    {"Put_NfsCp", RUSAGE_CHILDREN, false,
     [] { return NfsCp(g.localDir + "/source", Url("put")); }},
    {"Put_Sequential_4MiB", RUSAGE_SELF, false, [] { return LibraryPut(false, 4 * kMiB); }},
    {"Put_Pipelined_4MiB", RUSAGE_SELF, false, [] { return LibraryPut(true, 4 * kMiB); }},
    {"Put_Pipelined_32MiB", RUSAGE_SELF, false, [] { return LibraryPut(true, 32 * kMiB); }},
};

// One transfer of every kind per round, the kinds taking turns: a drift of the machine's load
// over the run touches every client alike. KX_NFS_BENCH_ROUNDS sets the rounds (default 5).
void Register() {
    const char* rounds = getenv("KX_NFS_BENCH_ROUNDS");
    const int n = rounds != nullptr ? atoi(rounds) : 5;
    for (int r = 1; r <= n; ++r) {
        for (const Kind& k : kKinds) {
            const std::string name = std::string(k.name) + "/round:" + std::to_string(r);
            benchmark::RegisterBenchmark(name.c_str(), [&k](benchmark::State& s) {
                Measure(s, k.name, k.cpuWho, k.get, k.transfer);
            })->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
        }
    }
}

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

void PrintRatios() {
    if (g.seconds.empty()) return;
    printf("\nmedian seconds per transfer; ratio = nfs-cp time / library time (above 1: faster)\n");
    for (const std::string dir : {"Get", "Put"}) {
        const auto base = g.seconds.find(dir + "_NfsCp");
        if (base == g.seconds.end()) continue;
        printf("  %-24s %8.3f\n", base->first.c_str(), Median(base->second));
        for (const auto& [name, times] : g.seconds)
            if (name.rfind(dir, 0) == 0 && name != base->first)
                printf("  %-24s %8.3f %6.2f\n", name.c_str(), Median(times),
                       Median(base->second) / Median(times));
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    SetUp();
    if (!g.why.empty()) {
        printf("nfs_pipeline_bench: skipped: %s\n", g.why.c_str());
    } else {
        Register();
        benchmark::RunSpecifiedBenchmarks();
    }
    PrintRatios();
    TearDown();
    benchmark::Shutdown();
    return 0;
}
