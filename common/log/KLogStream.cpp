#include "log/KLogStream.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <new>
#include <cwchar>
#include <vector>

#include "base/kxEnv.h"
#include "base/kxLogFormat.h"
#include "log/kxLogProcess.h"
#include "platform/kxWin32.h"

namespace {

// Flushes counted over all streams of the process; every third one touches the file.
std::atomic<uint32_t> g_dwFlushCount{0};

constexpr uint32_t kMaxFileSize = 0x40000000u;  // kMaxSizeKB * 1024

}  // namespace

// ---- construction and release --------------------------------------------------------------

// The named mutex is taken before the file, and so its lock file, is known; the log file's lock
// once the file is open. Both are held until the constructor's work is done or has failed.
class KLogStream::OpenLocks {
public:
    explicit OpenLocks(KLogStream* stream) : m_pStream(stream) {}
    ~OpenLocks() {
        if (m_bLogLock) m_pStream->m_Lock.Unlock();
        if (m_bMutex) m_pStream->m_Mutex.Unlock();
    }
    OpenLocks(const OpenLocks&) = delete;
    OpenLocks& operator=(const OpenLocks&) = delete;

    // LockLogfile while the log's lock is not attached yet: the named mutex.
    long TakeMutex(unsigned long timeoutMs, unsigned long tries) {
        const long status = m_pStream->LockLogfile(timeoutMs, tries);
        m_bMutex = status == KX_OK;
        return status;
    }
    // Attaches to the open file's lock and takes it.
    long TakeLogLock(const char* path, bool writer, unsigned long timeoutMs) {
        KLogLock& lock = m_pStream->m_Lock;
        long status = lock.Open(path, writer, timeoutMs, &m_pStream->m_Mutex);
        if (status == KX_OK) status = lock.Lock(timeoutMs, nullptr);
        m_bLogLock = status == KX_OK;
        return status;
    }

private:
    KLogStream* m_pStream;
    bool m_bMutex = false;
    bool m_bLogLock = false;
};

KLogStream::KLogStream(const char* dir, const char* name, unsigned long sizeKB,
                       unsigned long flushInterval, bool writeStartRec)
    : m_dwFlushInterval(static_cast<uint32_t>(flushInterval)) {
    if (dir == nullptr || *dir == '\0' || name == nullptr || *name == '\0' || sizeKB == 0 ||
        sizeKB > kMaxSizeKB || strlen(dir) + 1 + strlen(name) + 1 > 261)
        return;
    try {
        m_dwSignature = kSignatureConstructing;
        m_lOpenStatus = Open(dir, name, sizeKB, writeStartRec);
    } catch (...) {
        kxLogEventStringA("unhandled exception in KLogStream::KLogStream", KX_E_UNHANDLED_EXCEPTION,
                          kxLogSevError, nullptr);
        m_lOpenStatus = KX_E_UNHANDLED_EXCEPTION;
    }
    if (m_lOpenStatus != KX_OK) {
        ReleaseResources();
        m_dwSignature = kSignatureReset;
    }
}

KLogStream::KLogStream(const char* path) : m_bReadOnly(true) {
    if (path == nullptr || *path == '\0') return;
    try {
        m_dwSignature = kSignatureConstructing;
        m_lOpenStatus = OpenReadOnly(path);
    } catch (...) {
        m_lOpenStatus = KX_E_UNHANDLED_EXCEPTION;
    }
    if (m_lOpenStatus != KX_OK) {
        ReleaseResources();
        m_dwSignature = kSignatureReset;
    }
}

KLogStream::~KLogStream() {
    ReleaseResources();
    m_dwSignature = kSignatureReset;
}

long KLogStream::ReleaseResources() {
    m_Lock.Close();
    m_pImage = nullptr;
    m_dwMappedSize = 0;
    m_File.UnMapFile();
    m_File.CloseHandle();
    return KX_OK;
}

// Steps of the file-backed constructor. On failure the caller releases what was acquired.
long KLogStream::Open(const char* dir, const char* name, unsigned long sizeKB,
                      bool writeStartRec) {
    std::string path = dir;
    const char sep = strchr(dir, '/') != nullptr ? '/' : '\\';
    if (path.back() != sep) path += sep;
    path += name;

    // The named mutex's object is removed as soon as its creator has mapped it, so one still
    // there belongs to a creator that is either a moment from removing it or was killed before
    // it could (and would then hold up every later open of this log). Remove it and make our
    // own: the log's lock, not this mutex, keeps processes apart; only count it as a sign that
    // another process has the file in use.
    const std::string mutexName = CreateAuxName(path, "_MUTEX");
    bool lockObjectExisted = kxEnv::Default()->ShmUnlink(("/" + mutexName).c_str()) == 0;
    long status = m_Mutex.Create(mutexName.c_str(), false);
    if (status != KX_OK) return status;
    // Another process made the lock object: it has the file in use, so never re-create it.
    lockObjectExisted = lockObjectExisted || m_Mutex.AlreadyExisted();

    OpenLocks locks(this);
    status = locks.TakeMutex(30000, 4);
    if (status != KX_OK) return status;

    if (m_File.CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr) != 0 ||
        !m_File.IsOpen())
        return KX_E_FILE_OPEN;
    status = locks.TakeLogLock(path.c_str(), true, 120000);
    if (status != KX_OK) return status;

    // A resize that a killed process left half done is settled before anything else looks at
    // the file.
    bool recovered = false;
    status = RecoverResize(path, &recovered);
    if (status != KX_OK) return status;

    // The file's state is judged only now, under the lock: another process may have created
    // or resized it between our open and our lock.
    struct stat st;
    if (m_File.fstat(&st) != 0) return KX_E_FILE_STAT;
    const uint64_t fileSize = static_cast<uint64_t>(st.st_size);
    const uint32_t newSize = static_cast<uint32_t>(sizeKB * 1024);
    bool recreate = fileSize == 0 || fileSize >= 0x100000000ull || fileSize % 1024 != 0 ||
                    fileSize > kMaxFileSize;
    const bool resize = !recreate && fileSize != newSize;
    const uint32_t oldKB = static_cast<uint32_t>(fileSize / 1024);
    if (!recreate) {
        KLogFile header(0);
        unsigned long got = 0;
        if (m_File.SetFilePointer(0, nullptr, FILE_BEGIN) != 0 ||
            !m_File.ReadFile(&header, sizeof header, &got, nullptr) || got != sizeof header)
            return KX_E_FILE_READ;
        // Appends are native only, so a file of the other byte order is re-created.
        // Offsets off the 4-byte grid could never be appended to.
        recreate = header.IsOppositeEndian() || !header.IsValid(resize ? oldKB : sizeKB) ||
                   header.NextRecOffset() % 4 != 0 || header.LastRecOffset() % 4 != 0;
    }

    if (recreate) {
        // An empty file holds nothing to lose: only a file with contents is protected from a
        // process that is not the lock object's creator.
        if (lockObjectExisted && fileSize != 0) return KX_E_LOG_NO_STREAM;
        KLogFile fresh(sizeKB);
        unsigned long written = 0;
        if (m_File.SetFilePointer(0, nullptr, FILE_BEGIN) != 0 ||
            !m_File.WriteFile(&fresh, sizeof fresh, &written, nullptr) ||
            written != sizeof fresh || !m_File.SetEndOfFile())
            return KX_E_LOG_RECREATE;
    } else if (resize) {
        status = Resize(path, oldKB, sizeKB);
        if (status != KX_OK) return status;
    }

    void* image = m_File.MapFile(nullptr, PAGE_READWRITE, 0, newSize,
                                 CreateAuxName(path, "_FMAP").c_str());
    if (image == nullptr) return KX_E_FILE_MAP;
    m_pImage = static_cast<KLogFile*>(image);
    m_dwMappedSize = newSize;
    if (m_pImage->SizeInBytes() != newSize) return KX_E_LOG_MAP_SIZE;

    // An append that a dead writer left in the journal describes the old ring when the file
    // was just rebuilt; otherwise it is finished or undone now.
    if (recreate || resize || recovered) m_Lock.ClearJournal();
    m_Lock.Repair(m_pImage);
    // A resized image already ends with its "RESZ" record.
    if (recreate && writeStartRec) m_pImage->WriteStartRec();

    // From here on the stream reports its failures as statuses only: a failure logged from
    // inside an append would come straight back into this stream.
    m_File.SetLogErrors(false);
    m_dwSignature = kSignatureLive;
    TouchLogfile();
    return KX_OK;
}

// ---- resizing ------------------------------------------------------------------------------

namespace {

void (*g_pResizeHook)(KLogStream::ResizeStep) = nullptr;

void Reached(KLogStream::ResizeStep step) {
    if (g_pResizeHook != nullptr) g_pResizeHook(step);
}

// Forces what was written to `path` to disk; for a directory, the names in it.
bool SyncToDisk(const std::string& path, bool directory) {
    kxEnv* env = kxEnv::Default();
    const int fd = env->Open(path.c_str(), O_RDONLY | O_CLOEXEC | (directory ? O_DIRECTORY : 0), 0);
    if (fd < 0) return false;
    const bool ok = env->Fsync(fd) == 0;
    env->Close(fd);
    return ok;
}

// The directory a log path lies in. A path without '/' was joined with '\', which names a file
// in the current directory here.
std::string DirectoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The new image while a file is resized: the scratch file, mapped, or memory when that file
// cannot be made or mapped. The file is removed when this ends unless it is kept.
class ResizeScratch {
public:
    ResizeScratch(const std::string& name, uint32_t size) : m_sName(name) {
        if (m_File.CreateFileA(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                               CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY, nullptr) == 0)
            m_pImage = m_File.MapFile(nullptr, PAGE_READWRITE, 0, size, name.c_str());
        if (m_pImage == nullptr) {
            Remove();
            m_pImage = VirtualAlloc(nullptr, size, MEM_COMMIT, PAGE_READWRITE);
            m_bInMemory = m_pImage != nullptr;
        }
    }
    ~ResizeScratch() {
        if (m_bInMemory) VirtualFree(m_pImage, 0, MEM_RELEASE);
        if (!m_bKeep) Remove();
    }
    ResizeScratch(const ResizeScratch&) = delete;
    ResizeScratch& operator=(const ResizeScratch&) = delete;

    void* Image() const { return m_pImage; }
    // Puts the file and its name on disk. Nothing to do for memory, which no crash leaves.
    long Flush() {
        if (m_bInMemory) return KX_OK;
        return m_File.FlushViewOfFile(nullptr, 0) && SyncToDisk(DirectoryOf(m_sName), true)
                   ? KX_OK
                   : KX_E_FILE_FLUSH;
    }
    void Keep(bool keep) { m_bKeep = keep; }
    void Remove() {
        if (m_bInMemory) return;
        m_File.UnMapFile();
        if (m_File.IsOpen()) {
            m_File.CloseHandle();
            DeleteFileA(m_sName.c_str());
        }
    }

private:
    std::string m_sName;
    KFile m_File;
    void* m_pImage = nullptr;
    bool m_bInMemory = false;
    bool m_bKeep = false;
};

}  // namespace

void KLogStream::SetResizeHookForTest(void (*hook)(ResizeStep)) {
    g_pResizeHook = hook;
}

long KLogStream::Resize(const std::string& path, uint32_t oldKB, unsigned long newKB) {
    const uint32_t oldSize = oldKB * 1024;
    const uint32_t newSize = static_cast<uint32_t>(newKB * 1024);
    KLogFile* old = static_cast<KLogFile*>(
        m_File.MapFile(nullptr, PAGE_READWRITE, 0, oldSize, CreateAuxName(path, "_FMAP").c_str()));
    if (old == nullptr) return KX_E_FILE_MAP;
    // An append that a dead writer left half done is settled in the old ring: the copy then
    // holds it whole or not at all, and no later holder of the lock replays it on the new one.
    m_Lock.Repair(old);

    ResizeScratch scratch(path + "_tmp", newSize);
    if (scratch.Image() == nullptr) {
        m_File.UnMapFile();
        return KX_E_OUT_OF_MEMORY;
    }
    KLogFile* image = new (scratch.Image()) KLogFile(newKB);
    Reached(ResizeStep::kScratchMade);
    // Oldest to newest, each with its own stamp, process, thread, type and flags; when the
    // new file is smaller the ring simply overwrites the oldest. A record too large for the
    // new file is left out.
    for (const KLogRec* rec = old->FirstRec(); rec != nullptr;
         rec = old->NewerRec(rec, rec->GetRecNum())) {
        if (old->RecordAt(old->OffsetOf(rec)) != rec) break;
        image->NewRecord(rec->GetTimeStamp(), rec->GetProcessId(), rec->GetThreadId(),
                         rec->GetType(), rec->GetFlags(), rec->GetPayloadSize(), rec->Payload(),
                         nullptr);
    }
    image->WriteResizeRec(oldKB, newKB);
    m_File.UnMapFile();
    Reached(ResizeStep::kRecordsCopied);

    long status = scratch.Flush();
    if (status != KX_OK) return status;
    Reached(ResizeStep::kCopyFlushed);
    // From the first byte written over the log file until it is complete on disk, the scratch
    // is the only whole image: a failure keeps it for RecoverResize.
    scratch.Keep(true);
    status = WriteImageInPlace(path, image, newSize);
    if (status != KX_OK) return status;
    scratch.Keep(false);
    scratch.Remove();
    Reached(ResizeStep::kCopyRemoved);
    return KX_OK;
}

long KLogStream::WriteImageInPlace(const std::string& path, const void* image, uint32_t size) {
    const uint8_t* bytes = static_cast<const uint8_t*>(image);
    auto writeAt = [this, bytes](uint32_t offset, uint32_t count) {
        if (m_File.SetFilePointer(static_cast<long>(offset), nullptr, FILE_BEGIN) != offset)
            return false;
        for (uint32_t done = 0; done < count;) {
            unsigned long n = 0;
            if (!m_File.WriteFile(bytes + offset + done, count - done, &n, nullptr) || n == 0)
                return false;
            done += static_cast<uint32_t>(n);
        }
        return true;
    };
    // The header goes first, in one write, and onto the disk before any record is overwritten:
    // its new size is what tells RecoverResize that the rewrite has begun, and what makes the
    // processes that map the file at the old size refuse it from now on.
    if (!writeAt(0, kxLogFileHeaderSize)) return KX_E_FILE_WRITE;
    if (!SyncToDisk(path, false)) return KX_E_FILE_FLUSH;
    Reached(ResizeStep::kHeaderRewritten);
    constexpr uint32_t kChunk = 256 * 1024;
    for (uint32_t at = kxLogFileHeaderSize; at < size;) {
        const uint32_t n = std::min(kChunk, size - at);
        if (!writeAt(at, n)) return KX_E_FILE_WRITE;
        at += n;
        if (at < size) Reached(ResizeStep::kBodyPartlyWritten);
    }
    Reached(ResizeStep::kBodyWritten);
    if (m_File.SetFilePointer(static_cast<long>(size), nullptr, FILE_BEGIN) != size ||
        !m_File.SetEndOfFile())
        return KX_E_FILE_STAT;
    if (!SyncToDisk(path, false)) return KX_E_FILE_FLUSH;
    Reached(ResizeStep::kFileComplete);
    return KX_OK;
}

long KLogStream::RecoverResize(const std::string& path, bool* rebuilt) {
    *rebuilt = false;
    const std::string copyName = path + "_tmp";
    struct stat st;
    if (kxEnv::Default()->Stat(copyName.c_str(), &st) != 0) return KX_OK;
    const uint64_t copySize = static_cast<uint64_t>(st.st_size);
    KLogFile live(0);
    unsigned long got = 0;
    const bool untouched = m_File.SetFilePointer(0, nullptr, FILE_BEGIN) == 0 &&
                           m_File.ReadFile(&live, sizeof live, &got, nullptr) &&
                           got == sizeof live && live.IsHdrDataValid() &&
                           live.SizeInBytes() != copySize;
    if (!untouched) {
        KFile copy;
        copy.SetLogErrors(false);
        const void* image = nullptr;
        if (copySize != 0 && copySize % 1024 == 0 && copySize <= kMaxFileSize &&
            copy.CreateFileA(copyName.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                             OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr) == 0)
            image = copy.MapFile(nullptr, PAGE_READONLY, 0, static_cast<unsigned long>(copySize),
                                 nullptr);
        const KLogFile* header = static_cast<const KLogFile*>(image);
        // Only a damaged scratch could fail this; the file is then judged as it is.
        if (header != nullptr && !header->IsOppositeEndian() &&
            header->IsValid(static_cast<unsigned long>(copySize / 1024))) {
            const long status = WriteImageInPlace(path, image, static_cast<uint32_t>(copySize));
            if (status != KX_OK) return status;
            *rebuilt = true;
        }
    }
    DeleteFileA(copyName.c_str());
    return KX_OK;
}

long KLogStream::OpenReadOnly(const char* path) {
    long status = m_Mutex.Create();
    if (status != KX_OK) return status;
    OpenLocks locks(this);
    status = locks.TakeMutex(500, 4);
    if (status != KX_OK) return status;
    m_File.SetLogErrors(false);
    const unsigned long opened = m_File.CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr,
                                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (opened != 0) return static_cast<long>(static_cast<int32_t>(opened));
    // A file on another machine has no lock file this machine could share with its writers,
    // and its image below is a private copy read once: the server's lock manager holds the
    // file while the copy is made, and the walks need only this process's mutex.
    const bool remote = m_File.IsRemote();
    status = remote ? LockRemoteFile(2000) : locks.TakeLogLock(path, false, 2000);
    if (status != KX_OK) return status;
    struct stat st;
    if (m_File.fstat(&st) != 0) return KX_E_FILE_STAT;
    KLogFile header(0);
    unsigned long got = 0;
    if (!m_File.ReadFile(&header, sizeof header, &got, nullptr) || got != sizeof header)
        return KX_E_FILE_READ;
    const uint64_t size = header.SizeInBytes();
    // The walks trust the header's size, so it must be exactly what gets mapped.
    if (!header.IsHdrDataValid() || size != static_cast<uint64_t>(st.st_size) ||
        size < kxLogFileHeaderSize + kxLogRecHeaderSize || size > kMaxFileSize)
        return KX_E_LOG_NO_STREAM;
    void* image = m_File.MapFile(nullptr, PAGE_READONLY, 0, static_cast<unsigned long>(size),
                                 CreateAuxName(path, "_FMAP").c_str());
    if (image == nullptr) return KX_E_FILE_MAP;
    m_pImage = static_cast<KLogFile*>(image);
    m_dwMappedSize = static_cast<uint32_t>(size);
    if (remote) m_File.UnlockFile();
    m_dwSignature = kSignatureLive;
    return KX_OK;
}

long KLogStream::LockRemoteFile(unsigned long timeoutMs) {
    // Each try is a round trip to the server: a few tries 20 ms apart, not a tight poll.
    const struct timespec pause{0, 20000000};
    for (unsigned long waited = 0;; waited += 20) {
        const long status = m_File.TryLockFile(false);
        if (status != KX_S_WAIT_TIMEOUT || waited >= timeoutMs) return status;
        kxEnv::Default()->NanoSleep(&pause, nullptr);
    }
}

// ---- locking -----------------------------------------------------------------------------

long KLogStream::LockLogfile(unsigned long timeoutMs, unsigned long tries) const {
    if (m_dwSignature != kSignatureLive && m_dwSignature != kSignatureConstructing)
        return KX_E_NOT_INITIALISED;
    if (tries == 0) return KX_S_WAIT_TIMEOUT;
    if (m_Lock.GetMode() == KLogLock::Mode::kNone) {
        long status = KX_S_WAIT_TIMEOUT;
        for (unsigned long i = 0; i < tries && status == KX_S_WAIT_TIMEOUT; ++i)
            status = m_Mutex.Lock(timeoutMs);
        return status;
    }
    return m_Lock.Lock(timeoutMs * tries, m_bReadOnly ? nullptr : Image());
}

long KLogStream::UnlockLogfile() const {
    if (m_dwSignature != kSignatureLive && m_dwSignature != kSignatureConstructing)
        return KX_E_NOT_INITIALISED;
    if (m_Lock.GetMode() == KLogLock::Mode::kNone) return m_Mutex.Unlock();
    m_Lock.Unlock();
    return KX_OK;
}

KLogFile* KLogStream::Image() const {
    if (m_pImage == nullptr || m_pImage->SizeInBytes() != m_dwMappedSize) return nullptr;
    return m_pImage;
}

// ---- writing -----------------------------------------------------------------------------

long KLogStream::WriteRec(const void* data, unsigned long size, kxLogRecType type,
                          unsigned long flags) {
    _FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return WriteRec(data, size, now, kxLogProcessId(),
                    static_cast<unsigned long>(pthread_self()), type, flags);
}

long KLogStream::WriteRec(const void* data, unsigned long size, const _FILETIME& stamp,
                          unsigned long processId, unsigned long threadId, kxLogRecType type,
                          unsigned long flags) {
    if (!IsLive()) return KX_E_LOG_NO_STREAM;
    if (m_bReadOnly) return KX_E_REFUSED;
    long status;
    {
        Lock lock(this, false);
        status = lock.AcquireLock();
        if (status != KX_OK) return status;
        KLogFile* image = Image();
        status = image != nullptr ? image->NewRecord(stamp, processId, threadId, type, flags,
                                                     size, data, m_Lock.Journal())
                                  : KX_E_LOG_NO_STREAM;
    }
    // Flushing writes the pages out synchronously: the other writers need not wait for it.
    if (status == KX_OK) CheckFlushLogfile();
    return status;
}

long KLogStream::WriteText(long code, kxLogSev sev, unsigned long flags, kxLogRecType type,
                           void* payload, unsigned long textBytes) {
    int32_t prefix[2] = {static_cast<int32_t>(code), static_cast<int32_t>(sev)};
    memcpy(payload, prefix, sizeof prefix);
    return WriteRec(payload, kxLogTextPayloadPrefix + textBytes, type, flags);
}

long KLogStream::vPrintf(long code, kxLogSev sev, unsigned long flags, const char* format,
                         va_list args) {
    if (sev == kxLogSevInfo && !g_LogInfoMessages) return KX_S_LOG_INFO_DROPPED;
    if (!IsLive()) return KX_E_LOG_NO_STREAM;
    char buf[kxLogTextPayloadPrefix + kxLogMaxText + 1];
    int n = kxLogFormat(buf + kxLogTextPayloadPrefix, kxLogMaxText + 1, format ? format : "", args);
    if (n == -1) n = kxLogMaxText;
    const unsigned long len = std::min<unsigned long>(n < 0 ? 0 : n, kxLogMaxText);
    return WriteText(code, sev, flags, kxLogRecTypeStringA, buf, len);
}

long KLogStream::vBigMsgPrintf(long code, kxLogSev sev, unsigned long flags, const char* format,
                               va_list args) {
    if (sev == kxLogSevInfo && !g_LogInfoMessages) return KX_S_LOG_INFO_DROPPED;
    if (!IsLive()) return KX_E_LOG_NO_STREAM;
    std::vector<char> buf(kxLogTextPayloadPrefix + kxLogMaxBigText + 1);
    int n = kxLogFormat(buf.data() + kxLogTextPayloadPrefix, kxLogMaxBigText + 1,
                        format ? format : "", args);
    if (n == -1) n = kxLogMaxBigText;
    const unsigned long len = std::min<unsigned long>(n < 0 ? 0 : n, kxLogMaxBigText);
    return WriteText(code, sev, flags, kxLogRecTypeStringA, buf.data(), len);
}

long KLogStream::vPrintf(long code, kxLogSev sev, unsigned long flags, const wchar_t* format,
                         va_list args) {
    if (sev == kxLogSevInfo && !g_LogInfoMessages) return KX_S_LOG_INFO_DROPPED;
    if (!IsLive()) return KX_E_LOG_NO_STREAM;
    constexpr size_t kPrefixChars = kxLogTextPayloadPrefix / sizeof(wchar_t);
    static_assert(sizeof(wchar_t) == 4, "wide records hold 32-bit characters");
    wchar_t buf[kPrefixChars + kxLogMaxWideText + 1];
    buf[kPrefixChars] = L'\0';
    int n = vswprintf(buf + kPrefixChars, kxLogMaxWideText + 1, format ? format : L"", args);
    // -1 is also what a text longer than the buffer gives: keep what was formatted.
    if (n < 0) n = static_cast<int>(wcsnlen(buf + kPrefixChars, kxLogMaxWideText));
    const unsigned long len = std::min<unsigned long>(n, kxLogMaxWideText);
    return WriteText(code, sev, flags, kxLogRecTypeStringW, buf, len * sizeof(wchar_t));
}

long KLogStream::PrintString(const char* text, long code, kxLogSev sev, unsigned long flags) {
    if (sev == kxLogSevInfo && !g_LogInfoMessages) return KX_S_LOG_INFO_DROPPED;
    if (!IsLive()) return KX_E_LOG_NO_STREAM;
    if (text == nullptr) text = "";
    char buf[kxLogTextPayloadPrefix + kxLogMaxText];
    const size_t len = strnlen(text, kxLogMaxText);
    memcpy(buf + kxLogTextPayloadPrefix, text, len);
    return WriteText(code, sev, flags, kxLogRecTypeStringA, buf, len);
}

long KLogStream::PrintString(const wchar_t* text, long code, kxLogSev sev, unsigned long flags) {
    if (sev == kxLogSevInfo && !g_LogInfoMessages) return KX_S_LOG_INFO_DROPPED;
    if (!IsLive()) return KX_E_LOG_NO_STREAM;
    if (text == nullptr) text = L"";
    uint8_t buf[kxLogTextPayloadPrefix + kxLogMaxWideText * sizeof(wchar_t)];
    const size_t bytes = wcsnlen(text, kxLogMaxWideText) * sizeof(wchar_t);
    memcpy(buf + kxLogTextPayloadPrefix, text, bytes);
    return WriteText(code, sev, flags, kxLogRecTypeStringW, buf, bytes);
}

long KLogStream::ClearRecs() {
    if (!IsLive()) return KX_E_LOG_NO_STREAM;
    if (m_bReadOnly) return KX_E_REFUSED;
    Lock lock(this, false);
    const long status = lock.AcquireLock();
    if (status != KX_OK) return status;
    KLogFile* image = Image();
    return image != nullptr ? image->ClearRecs() : KX_E_LOG_NO_STREAM;
}

long KLogStream::Flush() {
    if (!IsLive()) return KX_E_LOG_NO_STREAM;
    Lock lock(this, false);
    const long status = lock.AcquireLock();
    return status != KX_OK ? status : FlushLogfile();
}

long KLogStream::FlushLogfile() const {
    return m_File.FlushViewOfFile(nullptr, 0) ? KX_OK : KX_E_FILE_FLUSH;
}

long KLogStream::CheckFlushLogfile() {
    if (!m_bFileBacked || m_dwFlushInterval == 0) return KX_OK;
    if (m_dwWritesSinceFlush.fetch_add(1, std::memory_order_relaxed) + 1 < m_dwFlushInterval)
        return KX_OK;
    m_dwWritesSinceFlush.store(0, std::memory_order_relaxed);
    long status = FlushLogfile();
    if (++g_dwFlushCount % 3 == 0) TouchLogfile();
    return status;
}

long KLogStream::TouchLogfile() {
    if (!m_bFileBacked || m_bReadOnly || !m_File.IsOpen()) return KX_OK;
    _FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return m_File.SetFileTime(nullptr, nullptr, &now) ? KX_OK : KX_E_LOG_TOUCH;
}

// ---- header and names --------------------------------------------------------------------

long KLogStream::SizeInBytes() const {
    return IsLive() && m_pImage ? static_cast<long>(m_pImage->SizeInBytes()) : -1;
}

long KLogStream::RecordCount() const {
    return IsLive() && m_pImage ? static_cast<long>(m_pImage->RecordCount()) : -1;
}

long KLogStream::WrapCount() const {
    return IsLive() && m_pImage ? static_cast<long>(m_pImage->WrapCount()) : -1;
}

bool KLogStream::IsOppositeEndian() const {
    return IsLive() && m_pImage != nullptr && m_pImage->IsOppositeEndian();
}

long KLogStream::ReadHeader(KLogFile* out) const {
    if (!IsLive() || out == nullptr) return KX_E_LOG_NO_STREAM;
    Lock lock(this, false);
    const long status = lock.AcquireLock();
    if (status != KX_OK) return status;
    const KLogFile* image = Image();
    if (image == nullptr) return KX_E_LOG_NO_STREAM;
    memcpy(static_cast<void*>(out), image, sizeof *out);
    return KX_OK;
}

const char* KLogStream::GetLogFileName() const {
    return IsLive() ? m_File.GetFileName() : nullptr;
}

void KLogStream::CreateAuxName(char* out, const char* path, const char* suffix) {
    char* p = out;
    for (const char* src : {path, suffix}) {
        for (; src != nullptr && *src != '\0'; ++src) {
            const char c = (*src == '\\' || *src == '/') ? '_' : *src;
            *p++ = static_cast<char>(toupper(static_cast<unsigned char>(c)));
        }
    }
    *p = '\0';
}

std::string KLogStream::CreateAuxName(const std::string& path, const char* suffix) {
    std::string out(path.size() + strlen(suffix) + 1, '\0');
    CreateAuxName(&out[0], path.c_str(), suffix);
    out.resize(strlen(out.c_str()));
    return out;
}

// ---- iteration ---------------------------------------------------------------------------

KLogStream::iterator KLogStream::begin() const {
    iterator it;
    if (!IsLive()) return it;
    Lock lock(this);
    if (!lock.IsHeld()) return it;
    if (const KLogFile* image = Image()) {
        const KLogRec* rec = image->LastRec();
        if (rec != nullptr && image->RecordAt(image->LastRecOffset()) == rec &&
            image->IsRecordValid(rec, 0))
            it = iterator(this, rec);
    }
    return it;
}

KLogStream::iterator KLogStream::rbegin() const {
    iterator it;
    if (!IsLive()) return it;
    Lock lock(this);
    if (!lock.IsHeld()) return it;
    if (const KLogFile* image = Image()) {
        const KLogRec* rec = image->FirstRec();
        if (rec != nullptr && image->IsRecordValid(rec, 0)) it = iterator(this, rec);
    }
    return it;
}

void KLogStream::iterator_base::NextRec() { Step(true); }
void KLogStream::iterator_base::PrevRec() { Step(false); }

void KLogStream::iterator_base::Step(bool newer) {
    if (m_pRec == nullptr) return;
    const KLogStream* s = m_pStream;
    const KLogRec* next = nullptr;
    {
        Lock lock(s);
        const KLogFile* image = lock.IsHeld() ? s->Image() : nullptr;
        if (image != nullptr)
            next = newer ? image->NewerRec(m_pRec, m_dwRecNum) : image->OlderRec(m_pRec, m_dwRecNum);
    }
    // The number the walk accepted, not the record's number read again: a reader without the
    // writers' lock may find the record already overwritten, and GetRecData must then notice.
    const uint32_t number = newer ? m_dwRecNum + 1 : m_dwRecNum - 1;
    *this = next != nullptr ? iterator_base(s, next, number) : iterator_base();
}

uint32_t KLogStream::iterator_base::RecOffset() const {
    return m_pRec != nullptr && m_pStream != nullptr && m_pStream->m_pImage != nullptr
               ? m_pStream->m_pImage->OffsetOf(m_pRec)
               : 0;
}

long KLogStream::iterator_base::GetRecData(void* buf, unsigned long* size, KLogRecInfo* info) const {
    if (m_pRec == nullptr || !KLogStream::IsLive(m_pStream)) return KX_E_LOG_NO_STREAM;
    Lock lock(m_pStream, false);
    long status = lock.AcquireLock();
    if (status != KX_OK) return status;
    // The header is read once and judged as read: a reader that cannot take the writers' lock
    // (log/KLogLock.h) may see the record change under it, and must still never copy from
    // outside the file. Its number is read again after the copy: an append that began to
    // overwrite the record writes its number first.
    const KLogFile* image = m_pStream->Image();
    KLogRec head;
    const uint32_t offset = image != nullptr ? image->OffsetOf(m_pRec) : 0;
    if (image != nullptr) memcpy(static_cast<void*>(&head), m_pRec, sizeof head);
    if (image == nullptr || image->RecordAt(offset) != m_pRec || !head.IsValid() ||
        head.GetRecNum() != m_dwRecNum || head.GetSize() < kxLogRecHeaderSize ||
        static_cast<uint64_t>(offset) + head.GetSize() > image->SizeInBytes()) {
        status = KX_E_LOG_NO_STREAM;
    } else {
        const unsigned long n = head.GetPayloadSize();
        if (info != nullptr) *info = head.GetInfo();
        if (buf == nullptr || size == nullptr || *size < n) {
            status = KX_E_BAD_ARGUMENT;
        } else {
            memcpy(buf, m_pRec->Payload(), n);
        }
        if (size != nullptr) *size = n;
        __atomic_thread_fence(__ATOMIC_ACQUIRE);
        if (m_pRec->LoadRecNum() != m_dwRecNum) status = KX_E_LOG_NO_STREAM;
    }
    return status;
}
