// KLogStream: one log file (format in log/KLogFile.h) opened for appending and reading by any
// number of processes at once.
//
// The stream opens or creates the file, checks or rebuilds its header, grows or shrinks it to
// the requested size keeping its records, maps it, and serialises every append, clear, flush
// and iterator step with the log file's cross-process lock (log/KLogLock.h): a robust
// process-shared mutex in a lock file beside the log, shared by every process that opens the
// log, related or not; where that cannot serve, an open-file-description lock on the log file
// itself. A writer killed inside the lock never blocks the others: the next one repairs the ring
// and goes on. While it is being opened (before the lock file is known) a stream also holds a
// named KMutex derived from the path, shared by the threads of this process and by processes
// that inherit it across fork; in file-lock mode that mutex also keeps them apart at every step.
// Every operation after construction waits at most about two seconds for the lock, then gives
// up with KX_S_WAIT_TIMEOUT.
//
// A process whose stream maps the file at one size never touches it after another process has
// re-created it at another size: each locked operation first checks the header's size against
// its own mapping and refuses (KX_E_LOG_NO_STREAM) when they differ.
//
// Convention: every operation returns a status (base/kxStatus.h); nothing throws. A stream that
// is not live returns KX_E_LOG_NO_STREAM (writes) or KX_E_NOT_INITIALISED (locks), -1 from
// the header getters, and end iterators.
//
// Thread safety: any thread may use a live stream. The lock is recursive: a thread holding a
// KLogStream::Lock may write or step an iterator on the same stream.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <string>

#include "log/KLogFile.h"
#include "log/KLogLock.h"
#include "base/kxLog.h"
#include "base/kxLogSink.h"
#include "platform/KFile.h"
#include "platform/KMutex.h"

constexpr long KX_E_LOG_TOUCH = kxStatus(0xE0020102);     // setting the file's time failed
constexpr long KX_E_LOG_RECREATE = kxStatus(0xE0020106);  // writing a fresh header failed
constexpr long KX_E_LOG_MAP_SIZE = kxStatus(0xE0020402);  // the mapping is not the file's size

// A sink (base/kxLogSink.h): the logging start-up installs the default stream as the default
// sink. Final, so that the stream's own calls of IsLive and the writers are not virtual calls.
class KLogStream final : public KLogSink {
public:
    static constexpr uint32_t kSignatureLive = 0x7469A48C;
    static constexpr uint32_t kSignatureConstructing = 0x67A47A69;
    static constexpr uint32_t kSignatureReset = 0x6E69A59A;
    static constexpr unsigned long kMaxSizeKB = 0x100000;  // 1 GB

    // Opens or creates dir/name for appending, at sizeKB kilobytes:
    //   - a missing, empty or damaged file (size not a multiple of 1024, 4 GB or more, header
    //     not valid, or written in the other byte order) is re-created empty, with a "STRT"
    //     record when writeStartRec is set;
    //   - a valid file of another size is resized keeping its newest records (renumbered from
    //     1, each with its own stamp) through the scratch file dir/name + "_tmp", followed by a
    //     "RESZ" record. A process killed in the middle of a resize leaves the file at its old
    //     size or the next writer that opens it finishes the resize: no record is lost (see
    //     Resize below for the one exception).
    // Refuses silently (not live) when dir or name is null or empty, sizeKB is 0 or above
    // kMaxSizeKB, or the path would exceed 260 characters. Any failure leaves the stream not
    // live; GetOpenStatus tells why. The mapping is flushed every flushInterval appends
    // (0: only by Flush).
    KLogStream(const char* dir, const char* name, unsigned long sizeKB,
               unsigned long flushInterval, bool writeStartRec);

    // Opens an existing log file for reading only: it is never changed, whatever it holds.
    // Live when the file opens and its header is readable (either byte order) with a size
    // equal to the file's; records are then walked with the iterators. Writes are refused
    // (KX_E_REFUSED).
    explicit KLogStream(const char* path);

    // Releases the mapping, the file and the locks.
    ~KLogStream() override;
    KLogStream(const KLogStream&) = delete;
    KLogStream& operator=(const KLogStream&) = delete;

    // True only while the stream is fully constructed and not yet released. Safe to call on a
    // null pointer's behalf through IsLive(p).
    bool IsLive() const override { return m_dwSignature == kSignatureLive; }
    static bool IsLive(const KLogStream* s) { return s != nullptr && s->IsLive(); }

    // Text records. Severity 0 while informational messages are off gives
    // KX_S_LOG_INFO_DROPPED; a stream that is not live gives KX_E_LOG_NO_STREAM.
    // Narrow texts are cut to kxLogMaxText bytes (kxLogMaxBigText for vBigMsgPrintf), wide ones
    // to kxLogMaxWideText characters. Otherwise the result of WriteRec.
    long vPrintf(long code, kxLogSev sev, unsigned long flags, const char* format,
                 va_list args) override;
    long vPrintf(long code, kxLogSev sev, unsigned long flags, const wchar_t* format,
                 va_list args) override;
    long vBigMsgPrintf(long code, kxLogSev sev, unsigned long flags, const char* format,
                       va_list args) override;
    long PrintString(const char* text, long code, kxLogSev sev, unsigned long flags) override;
    long PrintString(const wchar_t* text, long code, kxLogSev sev, unsigned long flags);

    // One record stamped now (or with the given stamp), payload copied from data.
    // 0; KX_E_LOG_NO_STREAM (not live, header refused, record larger than the file);
    // KX_E_REFUSED (read-only stream); or the lock's status.
    long WriteRec(const void* data, unsigned long size, kxLogRecType type, unsigned long flags);
    long WriteRec(const void* data, unsigned long size, const _FILETIME& stamp,
                  unsigned long processId, unsigned long threadId, kxLogRecType type,
                  unsigned long flags);
    // Under the lock: forget every record and write "CLER"; flush the mapping to the file.
    long ClearRecs();
    long Flush();

    // Header values (byte order corrected); -1 when not live.
    long SizeInBytes() const;
    long RecordCount() const;
    long WrapCount() const;
    // A consistent copy of the header, taken under the lock. 0; a lock status; or
    // KX_E_LOG_NO_STREAM when the file was re-created at another size since it was mapped.
    long ReadHeader(KLogFile* out) const;
    // The file's name; null when not live.
    const char* GetLogFileName() const;
    // True for a file written on a machine of the other byte order (read-only streams only).
    bool IsOppositeEndian() const;
    // Why construction failed (0 for a live stream, or one that was refused silently).
    long GetOpenStatus() const { return m_lOpenStatus; }

    // A position in the ring: (stream, record, record number). The end iterator is all null.
    // Every step takes the stream's lock, and turns the iterator into the end iterator when the
    // lock fails, the record changed or its neighbour is not numbered one more (one less).
    class iterator_base {
    public:
        iterator_base() = default;
        bool operator==(const iterator_base& o) const {
            return m_pStream == o.m_pStream && m_pRec == o.m_pRec && m_dwRecNum == o.m_dwRecNum;
        }
        bool operator!=(const iterator_base& o) const { return !(*this == o); }
        bool IsEnd() const { return m_pRec == nullptr; }
        // One record newer / older.
        void NextRec();
        void PrevRec();
        // Copies the payload into buf (capacity *size; *size becomes the payload's length)
        // and the corrected descriptive block into info (if given). 0; KX_E_BAD_ARGUMENT when
        // buf is null or too small (info and *size are still filled); KX_E_LOG_NO_STREAM when
        // the record has been overwritten since; or a lock status. Payload words of a foreign
        // file are left as stored (see kxLogFix32).
        long GetRecData(void* buf, unsigned long* size, KLogRecInfo* info) const;
        uint32_t RecNum() const { return m_dwRecNum; }
        // Offset of the record in the file (0 for the end iterator).
        uint32_t RecOffset() const;

    private:
        friend class KLogStream;
        iterator_base(const KLogStream* s, const KLogRec* r)
            : m_pStream(s), m_pRec(r), m_dwRecNum(r->GetRecNum()) {}
        iterator_base(const KLogStream* s, const KLogRec* r, uint32_t number)
            : m_pStream(s), m_pRec(r), m_dwRecNum(number) {}
        void Step(bool newer);
        const KLogStream* m_pStream = nullptr;
        const KLogRec* m_pRec = nullptr;
        uint32_t m_dwRecNum = 0;
    };
    using iterator = iterator_base;

    // The newest record, the oldest surviving record, or end().
    iterator begin() const;
    iterator rbegin() const;
    iterator end() const { return iterator(); }

    // Takes the log file's lock, waiting at most `tries` times timeoutMs in all (before the
    // file is open during construction: the named mutex, up to `tries` waits of timeoutMs). A
    // writer that takes it after a holder died inside an append first repairs the ring.
    // 0; KX_S_WAIT_TIMEOUT; KX_E_NOT_INITIALISED; or the lock's failure status.
    long LockLogfile(unsigned long timeoutMs, unsigned long tries) const;
    long UnlockLogfile() const;
    // Which lock serves this stream (tests and diagnostics).
    KLogLock::Mode GetLockMode() const { return m_Lock.GetMode(); }

    // Sets the file's last-write time to now. 0, or KX_E_LOG_TOUCH.
    long TouchLogfile();
    // Counts one append; every flushInterval appends flushes the mapping, and every third
    // flush of the process (over all streams) touches the file. Called after each append,
    // outside the lock (the flush waits for the disk).
    long CheckFlushLogfile();
    // Flushes the mapping (no lock taken). 0, or KX_E_FILE_FLUSH.
    long FlushLogfile() const;

    // path + suffix, '\' and '/' replaced by '_', upper-cased: the names of the lock and the
    // mapping. `out` must hold strlen(path) + strlen(suffix) + 1 characters.
    static void CreateAuxName(char* out, const char* path, const char* suffix);
    static std::string CreateAuxName(const std::string& path, const char* suffix);

    // Unmaps the image, closes the file; 0.
    long ReleaseResources();

    // Scope guard holding the stream's lock: the way every operation of a live stream takes it,
    // so that each path out of the operation lets it go. Not shared between threads.
    class Lock {
    public:
        // Takes the lock at once when `acquire` is set; IsHeld tells whether that worked (a
        // later AcquireLock tries again and says why not). Inline, with AcquireLock and
        // ReleaseLock: every append takes it.
        explicit Lock(const KLogStream* stream, bool acquire = true) : m_pStream(stream) {
            if (acquire) AcquireLock();
        }
        ~Lock() { ReleaseLock(); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        // 0 at once when held; else needs a live stream (KX_E_NOT_INITIALISED) and
        // LockLogfile(500, 4): 0, KX_S_WAIT_TIMEOUT after about two seconds, or the lock's
        // failure status.
        long AcquireLock() {
            if (m_bHeld) return KX_OK;
            if (!KLogStream::IsLive(m_pStream)) return KX_E_NOT_INITIALISED;
            const long status = m_pStream->LockLogfile(500, 4);
            m_bHeld = status == KX_OK;
            return status;
        }
        void ReleaseLock() {
            if (!m_bHeld) return;
            m_pStream->UnlockLogfile();
            m_bHeld = false;
        }
        bool IsHeld() const { return m_bHeld; }

    private:
        const KLogStream* m_pStream;
        bool m_bHeld = false;
    };

    // Tests only: the points of a resize (see Resize) at which the hook, when set, is called
    // with the lock held, so that a test can kill the process there or hold it up. Process-wide;
    // null removes it.
    enum class ResizeStep {
        kScratchMade,        // the scratch file exists, holding a bare header
        kRecordsCopied,      // the new image is built in the scratch, not yet on disk
        kCopyFlushed,        // the scratch is on disk; the log file is still untouched
        kHeaderRewritten,    // the log file's header describes the new size, its records do not
        kBodyPartlyWritten,  // part of the new records written over the old
        kBodyWritten,        // all of the image written; the file's length not yet set
        kFileComplete,       // the file is the new image, on disk; the scratch not yet removed
        kCopyRemoved,        // done
    };
    static void SetResizeHookForTest(void (*hook)(ResizeStep));

private:
    // Liveness marker. The first data member, so that a stale or foreign pointer is refused
    // before anything else of the object is touched.
    uint32_t m_dwSignature = kSignatureReset;

    // Construction's locks, let go in reverse order however construction ends.
    class OpenLocks;

    long Open(const char* dir, const char* name, unsigned long sizeKB, bool writeStartRec);
    long OpenReadOnly(const char* path);
    // A file on another machine (KFile's remote handle): its whole-file lock through the
    // server's lock manager, tried for up to timeoutMs. 0, KX_S_WAIT_TIMEOUT, or its failure.
    long LockRemoteFile(unsigned long timeoutMs);
    // Rewrites the open file at `path`, valid at oldKB, as a ring of newKB keeping its newest
    // records and ending with "RESZ"; leaves it unmapped. Called with the lock held. 0;
    // KX_E_FILE_MAP; KX_E_OUT_OF_MEMORY; KX_E_FILE_FLUSH when the scratch cannot be put on
    // disk (the file is then untouched); KX_E_FILE_WRITE, KX_E_FILE_STAT or KX_E_FILE_FLUSH
    // when the file cannot be rewritten (the next writer to open it finishes the job).
    //
    // Crash safety: the new image is built complete in the scratch file path + "_tmp" and
    // flushed to disk, with the directory, before the first byte of the log file changes; the
    // log file is then rewritten in place, header first, and the scratch removed once the file
    // is on disk again. A process killed at any point (or a machine that stops, on a file
    // system that keeps what was flushed) leaves either the old file untouched or a complete
    // scratch that the next writer to open the file puts in place (RecoverResize); until then
    // a read-only stream may refuse the file. In place rather than by renaming a new file over
    // the log: processes that have the log open keep its inode mapped, and its file lock is
    // held on that inode, so they see the new header's size and refuse the file (see the top
    // of this file) instead of appending to a file nobody reads any more. The one exception:
    // when the scratch file cannot be made or mapped (a directory this process may not write,
    // no space), the image is built in memory and a crash while the file is rewritten loses
    // its records.
    long Resize(const std::string& path, uint32_t oldKB, unsigned long newKB);
    // Under the lock, before the open file at `path` is judged: settles a resize that a killed
    // process left behind. When the file's header already describes the scratch's size (its
    // rewrite had begun), the scratch, which is then complete, is written over it; otherwise
    // the file was never touched and the scratch, complete or not, is dropped. *rebuilt tells
    // whether the file was rewritten. 0, or a write status (the scratch is then kept).
    long RecoverResize(const std::string& path, bool* rebuilt);
    // Writes a whole image of `size` bytes over the open file at `path` in place, header
    // first, then sets the file's length and flushes it to disk. 0, KX_E_FILE_WRITE,
    // KX_E_FILE_STAT or KX_E_FILE_FLUSH.
    long WriteImageInPlace(const std::string& path, const void* image, uint32_t size);
    // The image, if its header still describes the file this stream mapped.
    KLogFile* Image() const;
    long WriteText(long code, kxLogSev sev, unsigned long flags, kxLogRecType type,
                   void* payload, unsigned long textBytes);

    mutable KFile m_File;
    KLogFile* m_pImage = nullptr;
    std::atomic<uint32_t> m_dwWritesSinceFlush{0};
    uint32_t m_dwFlushInterval = 0;
    // Logging off: the stream reports its own failures as statuses, never through itself.
    KMutex m_Mutex{false};
    mutable KLogLock m_Lock;
    bool m_bFileBacked = true;  // always: streams are file mappings on this platform
    bool m_bReadOnly = false;
    uint32_t m_dwMappedSize = 0;
    long m_lOpenStatus = 0;
};
