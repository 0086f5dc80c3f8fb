// NFSSandbox: runs the test process in network and mount namespaces of its own, with a private
// loopback, a private /run and /var/lib/nfs, its own port mapper and, on demand, an NFS server
// (nfs-ganesha, VFS back end, version 3 over UDP and TCP, with its lock manager, NLM version 4,
// and the status monitor rpc.statd that the lock manager needs) exporting temporary directories.
//
// Nothing escapes the test process: the servers are its children, die with it (parent-death
// signal) and are stopped by pid when the sandbox ends at exit; the namespaces vanish with the
// process. Test processes run side by side without sharing a port.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "kxTestProcess.h"

namespace kxtest {

class NFSSandbox {
public:
    // The process-wide sandbox, entered (and the port mapper started) on first use.
    static NFSSandbox& Get();

    // False when the sandbox cannot exist here (no privilege for namespaces, port mapper or
    // server not installed); Why() then says what is missing, for GTEST_SKIP.
    bool Usable() const { return m_why.empty(); }
    const std::string& Why() const { return m_why; }

    // True once the sandbox's port mapper answers.
    bool PortMapperUp() const { return m_portMapperUp; }

    // Starts the NFS server once. Its exports, all directories under ExportRoot():
    //   a, a/b (nested in a), data (transfer sizes set to 64 KiB).
    // Returns false with Why() set when the server is not installed (skip), or with Failure()
    // set when it would not come up (a failure to report).
    bool StartNFSServer();
    const std::string& ExportRoot() const { return m_exportRoot; }
    // True when the server's lock manager is registered and the status monitor it needs runs,
    // so that it grants locks; false when rpc.statd is not installed (lock tests skip) or
    // either did not come up.
    bool StatusMonitorUp() const { return m_statd > 0 && m_lockManagerUp; }
    const std::string& Failure() const { return m_failure; }

    // Starts kx_fake_rpc_server for program/version in mode and waits until it is registered.
    // count is handed to the mode; with recordPath, every call the peer receives is appended
    // there (read it back with kxfake::ReadRecord). -1 when the peer did not come up.
    pid_t StartFake(unsigned long program, unsigned long version, const std::string& mode,
                    int count = 0, const std::string& recordPath = "");
    // Stops a fake server by pid (SIGTERM, then SIGKILL) and reaps it.
    void Stop(pid_t pid);

    ~NFSSandbox();
    NFSSandbox(const NFSSandbox&) = delete;
    NFSSandbox& operator=(const NFSSandbox&) = delete;

private:
    NFSSandbox();
    bool Enter();
    bool StartPortMapper();
    void StartStatusMonitor();

    std::string m_why;
    std::string m_failure;
    bool m_portMapperUp = false;
    TempDir m_dir;
    std::string m_exportRoot;
    pid_t m_rpcbind = -1;
    pid_t m_nfsServer = -1;
    pid_t m_statd = -1;
    bool m_lockManagerUp = false;
    bool m_nfsTried = false;
};

// Runs fn in a forked child inside fresh network and mount namespaces of its own (loopback up,
// private /run), with a port mapper there when withPortMapper. Returns fn's result, or
// INT_MIN when the child could not be set up or died.
int InFreshSandbox(bool withPortMapper, int (*fn)());

}  // namespace kxtest
