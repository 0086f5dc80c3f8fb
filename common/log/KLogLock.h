// KLogLock: the cross-process lock of one log file, shared by every process that writes or reads
// it, whether related or not.
//
// The lock is a robust, process-shared, recursive pthread mutex in a small lock file beside the
// log file (the log file's name followed by ".lock"; layout in docs/log-format.md). Taking and
// releasing it costs no system call unless another process holds it. A process killed while it
// holds the lock leaves the mutex to the next taker (EOWNERDEAD), which repairs the ring from the
// append journal kept in the lock file and marks the mutex consistent.
//
// Where the lock file cannot serve, the lock falls back to an open-file-description write lock
// (`F_OFD_SETLK`) on the log file's bytes [0, kxLogFileLockEnd) around every operation, read
// locks for readers:
//   - no lock file can be made or mapped (a read-only directory, a file system that cannot map
//     it): the file lock alone. Such a process also holds, for as long as it has the log open,
//     a read lock on the log file's byte kxLogFileLockEnd ("file-lock user present"), taken
//     before its last look for the lock file, so that a process which later creates the lock
//     file sees it and switches the log to file-lock mode (below);
//   - a lock file made by a process of the other target (a 64-bit mutex read by a 32-bit process,
//     or the reverse: the mutex layouts differ), or a mutex left unrecoverable: the process sets
//     the lock file's file-lock flag, waits for the mutex's current holder (if any) to let go, and
//     from then on takes the file lock. While the flag is set every process takes the file lock
//     as well as the mutex, so users of either kind exclude each other. A process that takes the
//     mutex and finds no file-lock user present clears the flag again;
//   - a writer that can read the lock file but not write it: the file lock if the flag is
//     already set; otherwise it cannot tell the mutex users that it is there, and the stream is
//     refused (KX_E_LOG_LOCK_FILE) rather than risk the ring;
//   - a reader (read-only stream) that cannot write the lock file: the file read lock only. It
//     never blocks a writer that uses the mutex, and it never writes; its walks check every
//     record they reach, so at worst they stop early or copy a record being overwritten.
// Readers never create the lock file.
//
// The lock file is created by the first writer and initialised under a file lock on itself, its
// signature written last; whoever finds no signature takes that lock and looks again, so that
// exactly one process initialises it, also when many start at once or one dies half way. Never
// delete a lock file while any process has its log open: later processes would make a new one
// and no longer exclude the earlier ones.
//
// Convention: statuses (base/kxStatus.h). Thread safety: Lock and Unlock from any thread;
// Open and Close by the owner only, while no other thread uses the object.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "base/kxEnv.h"
#include "base/kxStatus.h"
#include "log/KLogFile.h"
#include "log/kxLogErrno.h"

class KMutex;

// The log file's bytes that the file lock covers, and the one after them that file-lock users
// hold a read lock on while they have the log open (far past the largest log file).
constexpr int64_t kxLogFileLockEnd = 0x7FFFFFF0;

// The lock file's contents: 32-bit fields read alike by both targets, then the mutex in the
// layout of the target that made the file (named by abi). What every lock and append touches
// (flag, journal, mutex) shares one 64-byte cache line, so that handing the lock to a process
// on another processor moves as little as possible.
struct KLogLockShared {
    static constexpr uint32_t kSignature = 0x4B434F4C;  // "LOCK" in a little-endian file
    static constexpr uint32_t kVersion = 1;
    static constexpr uint32_t kMutexOffset = 88;
    static constexpr uint32_t kFileSize = 4096;

    uint32_t signature;
    uint32_t version;
    uint32_t abi;  // kxLogLockAbi() of the process that made the file
    uint32_t reserved[13];
    uint32_t fileLockMode;  // at 64. 1: every process takes the file lock too
    KLogAppendJournal journal;
    pthread_mutex_t mutex;  // at kMutexOffset; its first 32-bit word is the kernel futex word
};

// The mutex layout of this target: the size of a pointer and of pthread_mutex_t.
uint32_t kxLogLockAbi();
// Tests only: the value this process writes and expects in the abi field, to play a process of
// the other target. 0 restores kxLogLockAbi(). Set before any log is opened.
void kxLogLockSetAbiForTest(uint32_t abi);

class KLogLock {
public:
    enum class Mode { kNone, kMutex, kFileLock };

    // env: the system calls of this lock (see base/kxEnv.h); null means kxEnv::Default() now.
    explicit KLogLock(kxEnv* env = nullptr) : m_pEnv(kxEnv::Or(env)) {}
    ~KLogLock() { Close(); }
    KLogLock(const KLogLock&) = delete;
    KLogLock& operator=(const KLogLock&) = delete;

    // Attaches to the lock of the log file at logPath, which must exist. A writer creates the
    // lock file when there is none. `local` (not owned, must outlive this object) keeps the
    // threads and forked children of this process apart in file-lock mode. 0, and GetMode()
    // tells which lock is in use; KX_E_FILE_OPEN when the log file itself cannot be opened;
    // KX_E_LOG_LOCK_FILE (writers, see above); or KX_S_WAIT_TIMEOUT when the mutex could not be
    // had within timeoutMs.
    long Open(const char* logPath, bool writer, unsigned long timeoutMs, KMutex* local);
    void Close();
    Mode GetMode() const { return m_mode.load(std::memory_order_relaxed); }

    // Takes the lock, waiting at most timeoutMs for each lock it takes. Recursive: a thread that
    // holds it may take it again and must release it as often. image, when given, is the mapped
    // ring that an append interrupted by a dead holder is repaired in (writers only). 0,
    // KX_S_WAIT_TIMEOUT, or KX_E_FILE_LOCK when the file lock call itself fails. In file-lock
    // mode the caller must already exclude the other threads of its process (the file lock
    // belongs to the open file, not to a thread).
    long Lock(unsigned long timeoutMs, KLogFile* image);
    void Unlock();

    // The journal appends record themselves in, while this process holds the lock in mutex
    // mode (or has the lock file mapped for writing in file-lock mode); else null.
    KLogAppendJournal* Journal() const { return m_pJournal; }
    // Forgets an interrupted append: call under the lock after the ring was rebuilt.
    void ClearJournal();
    // Finishes or undoes the append a dead holder left in the journal (writers, under the
    // lock; Lock does it when given the image).
    void Repair(KLogFile* image);

private:
    enum class Found { kUsable, kForeign, kReadOnly, kMissing, kUnusable };
    Found Attach(bool mayCreate);
    void Unmap();
    bool Prepare(int fd, bool mayInitialise);
    long SettleFileLockFlag(unsigned long timeoutMs);
    long StartFileLockMode(unsigned long timeoutMs);
    bool FileLockUserPresent() const;
    long LockMutex(unsigned long timeoutMs);
    long LockFileRange(unsigned long timeoutMs) const;
    void UnlockFileRange() const;

    kxEnv* const m_pEnv;
    std::atomic<Mode> m_mode{Mode::kNone};
    bool m_bWriter = false;
    KMutex* m_pLocal = nullptr;
    int m_fdLog = -1;  // the log file, for the file locks
    KLogLockShared* m_pShared = nullptr;
    KLogAppendJournal* m_pJournal = nullptr;
    std::string m_sLockPath;
    // Changed only by the holder of the lock: how deep it holds it, and whether it took the
    // file lock at the outermost level.
    uint32_t m_dwDepth = 0;
    bool m_bFileLockHeld = false;
};
