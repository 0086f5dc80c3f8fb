// One run of kxnfs against one server: the browse object, the caller's identity, paths opened
// on the server, and the one-line error messages.
//
// Every message goes to standard error as one line, "kxnfs: " first; text that came from the
// server or the command line is escaped for the terminal first (kxTextEscape.h).
#pragma once

#include <csignal>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kxnfsArgs.h"
#include "nfs/DirEntry.h"
#include "nfs/NFSBrowse.h"

namespace kxnfs {

constexpr int kExitOk = 0;
constexpr int kExitRemote = 1;    // the server failed, refused or could not be reached
constexpr int kExitUsage = 100;
constexpr int kExitLocal = 111;   // a local failure: out of memory, a local file

// Prints "kxnfs: " and the text as one line on standard error.
void Complain(const std::string& text);

// The signal that asked the run to stop (SIGINT, SIGTERM, SIGHUP), 0 while none did. Set by
// the handlers InstallStopHandlers installs; long work checks it between remote calls.
extern volatile sig_atomic_t g_stopSignal;
// Catches SIGINT, SIGTERM and SIGHUP into g_stopSignal (system calls restart), so work can stop
// between remote calls and clean up.
void InstallStopHandlers();
// Ends the process by the signal that stopped it, with its default action, after clean-up.
[[noreturn]] void DieOfStopSignal();

class Session {
public:
    explicit Session(const Arguments& args);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Creates the browse object. 0, or the exit code after the error line was printed.
    int Connect();
    // Drops the browse object and creates a new one (a connection the server closed is not
    // opened again by the RPC layer). 0, or the exit code after the error line.
    int Reconnect();
    // The descriptors open now that were not before the first Connect: the session's
    // connections, which programs the tool starts must not inherit.
    std::vector<int> OwnDescriptors() const;

    kxNFSUtils::NFSBrowse& Browse() { return *m_browse; }
    const Arguments& Args() const { return m_args; }

    // "HOST:PATH" escaped for the terminal.
    std::string Where(const std::string& path) const;
    // Prints "HOST:PATH: <text> (status 0x........)", text defaulting to the status's meaning,
    // and returns the exit code for it: kExitLocal for out of memory, else kExitRemote.
    // Status 0 (a decision of the tool's own) prints the text alone.
    int Fail(const std::string& path, long status, const std::string& text = "") const;
    // Fail with the browse object's last error.
    int FailLast(const std::string& path);

    // The object at path, as LOOKUP finds it (a symbolic link is not followed). Null after the
    // error line; exit is set then.
    std::unique_ptr<kxNFSUtils::DirEntry> Open(const std::string& path, int& exit);
    // As Open, but a symbolic link in the last name is followed (up to 8 in a row; targets are
    // read as paths on the server, relative ones from the link's directory). path becomes the
    // path finally opened. With quietIfMissing, a missing last name prints nothing and sets
    // exit to kMissing.
    std::unique_ptr<kxNFSUtils::DirEntry> OpenFollowing(std::string& path, int& exit,
                                                        bool quietIfMissing = false);
    static constexpr int kMissing = -1;
    // The directory that holds path's last name, which goes to name. Refuses (error line,
    // exit set) an export's root and "/", whose parent is not theirs to change, and a parent
    // that is not a directory.
    std::unique_ptr<kxNFSUtils::DirEntry> OpenParent(const std::string& path, std::string& name,
                                                     int& exit);

    // Gives entry the preferred transfer sizes of the export that holds path, where Open left
    // them zero, so Read and Write cut their requests as the server prefers.
    void FillTransferSizes(const std::string& path, kxNFSUtils::DirEntry& entry);

    // True when path is one of the server's exports.
    bool IsExportRoot(const std::string& path);

    // Fills a new object's record for CreateObject or CreateSymlink: its paths, type, mode,
    // the session's owner and group, and both times now.
    void Describe(const kxNFSUtils::DirEntry& dir, const std::string& name, uint32_t type,
                  uint32_t mode, kxNFSUtils::DirEntry& entry) const;

private:
    class Cancel;

    const Arguments& m_args;
    // The identity new objects are created with: the credentials' user and primary group.
    uint32_t m_uid;
    uint32_t m_gid;
    std::unique_ptr<Cancel> m_cancel;
    std::unique_ptr<kxNFSUtils::NFSBrowse> m_browse;
    std::vector<int> m_inherited;  // descriptors open before the first Connect
    bool m_connected = false;
};

// The directory part of a normalised absolute path ("/a/b" -> "/a", "/a" -> "/").
std::string ParentPath(const std::string& path);
// The last name of a normalised absolute path ("" for "/").
std::string LastName(const std::string& path);
// The current time as a _FILETIME value (100-ns ticks since 1601).
uint64_t FileTimeNow();
// The process's file-creation mask, read without changing it for good.
mode_t CurrentUmask();

}  // namespace kxnfs
