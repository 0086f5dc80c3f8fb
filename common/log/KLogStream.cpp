#include "log/KLogStream.h"

#include <pthread.h>
#include <sys/mman.h>
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

#include "base/kxLogFormat.h"
#include "log/kxLogProcess.h"
#include "platform/kxWin32.h"

namespace {

// Flushes counted over all streams of the process; every third one touches the file.
std::atomic<uint32_t> g_dwFlushCount{0};

constexpr uint32_t kMaxFileSize = 0x40000000u;  // kMaxSizeKB * 1024

}  // namespace

// ---- construction and release --------------------------------------------------------------

KLogStream::KLogStream() = default;

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
        ReleaseConstructionLocks();
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
        ReleaseConstructionLocks();
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

// Steps of the file-backed constructor. Returns with the locks held on success; on failure the
// caller unlocks and releases.
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
    bool lockObjectExisted = shm_unlink(("/" + mutexName).c_str()) == 0;
    long status = m_Mutex.Create(mutexName.c_str(), false);
    if (status != KX_OK) return status;
    // Another process made the lock object: it has the file in use, so never re-create it.
    lockObjectExisted = lockObjectExisted || errno == ERROR_ALREADY_EXISTS;

    status = LockLogfile(30000, 4);
    if (status != KX_OK) return status;
    m_bMutexHeld = true;

    if (m_File.CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr) != 0 ||
        !m_File.IsOpen())
        return KX_E_FILE_OPEN;
    status = AttachLock(path.c_str(), true, 120000);
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
    if (image == nullptr) return KX_E_LOG_MAP;
    m_pImage = static_cast<KLogFile*>(image);
    m_dwMappedSize = newSize;
    if (m_pImage->SizeInBytes() != newSize) return KX_E_LOG_MAP_SIZE;

    // An append that a dead writer left in the journal describes the old ring when the file
    // was just rebuilt; otherwise it is finished or undone now.
    if (recreate || resize) m_Lock.ClearJournal();
    m_Lock.Repair(m_pImage);
    if (recreate && writeStartRec) m_pImage->WriteStartRec();
    if (resize) m_pImage->WriteResizeRec(oldKB, sizeKB);

    // From here on the stream reports its failures as statuses only: a failure logged from
    // inside an append would come straight back into this stream.
    m_File.SetLogErrors(false);
    m_dwSignature = kSignatureLive;
    TouchLogfile();
    ReleaseConstructionLocks();
    return KX_OK;
}

long KLogStream::AttachLock(const char* path, bool writer, unsigned long timeoutMs) {
    long status = m_Lock.Open(path, writer, timeoutMs, &m_Mutex);
    if (status != KX_OK) return status;
    return m_Lock.Lock(timeoutMs, nullptr);
}

void KLogStream::ReleaseConstructionLocks() {
    m_Lock.Unlock();
    if (m_bMutexHeld) m_Mutex.Unlock();
    m_bMutexHeld = false;
}

long KLogStream::Resize(const std::string& path, uint32_t oldKB, unsigned long newKB) {
    const uint32_t oldSize = oldKB * 1024;
    const uint32_t newSize = static_cast<uint32_t>(newKB * 1024);
    const KLogFile* old = static_cast<const KLogFile*>(
        m_File.MapFile(nullptr, PAGE_READWRITE, 0, oldSize, CreateAuxName(path, "_FMAP").c_str()));
    if (old == nullptr) return KX_E_LOG_MAP;

    // The scratch image: a temporary file beside the log, or memory when it cannot be made.
    const std::string tmpName = path + "_tmp";
    KFile tmp;
    void* scratch = nullptr;
    bool inMemory = false;
    if (tmp.CreateFileA(tmpName.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                        FILE_ATTRIBUTE_TEMPORARY, nullptr) == 0)
        scratch = tmp.MapFile(nullptr, PAGE_READWRITE, 0, newSize, tmpName.c_str());
    if (scratch == nullptr) {
        scratch = VirtualAlloc(nullptr, newSize, MEM_COMMIT, PAGE_READWRITE);
        inMemory = scratch != nullptr;
    }
    long status = KX_OK;
    if (scratch == nullptr) {
        status = KX_E_OUT_OF_MEMORY;
    } else {
        KLogFile* image = new (scratch) KLogFile(newKB);
        // Oldest to newest, each with its own stamp, process, thread, type and flags; when the
        // new file is smaller the ring simply overwrites the oldest. A record too large for the
        // new file is left out.
        for (const KLogRec* rec = old->FirstRec(); rec != nullptr;
             rec = old->NewerRec(rec, rec->GetRecNum())) {
            if (old->RecordAt(old->OffsetOf(rec)) != rec) break;
            image->NewRecord(rec->GetTimeStamp(), rec->GetProcessId(), rec->GetThreadId(),
                             rec->GetType(), rec->GetFlags(), rec->GetPayloadSize(),
                             rec->Payload(), nullptr);
        }
        m_File.UnMapFile();
        if (m_File.SetFilePointer(static_cast<long>(newSize), nullptr, FILE_BEGIN) != newSize ||
            !m_File.SetEndOfFile())
            status = KX_E_FILE_STAT;
        else
            status = WriteWholeFile(scratch, newSize);
    }
    m_File.UnMapFile();
    if (inMemory) VirtualFree(scratch, 0, MEM_RELEASE);
    tmp.CloseHandle();
    DeleteFileA(tmpName.c_str());
    return status;
}

long KLogStream::WriteWholeFile(const void* image, uint32_t size) {
    if (m_File.SetFilePointer(0, nullptr, FILE_BEGIN) != 0) return KX_E_FILE_STAT;
    const uint8_t* p = static_cast<const uint8_t*>(image);
    for (uint32_t done = 0; done < size;) {
        unsigned long n = 0;
        if (!m_File.WriteFile(p + done, size - done, &n, nullptr) || n == 0) return KX_E_FILE_WRITE;
        done += static_cast<uint32_t>(n);
    }
    return KX_OK;
}

long KLogStream::OpenReadOnly(const char* path) {
    long status = m_Mutex.Create();
    if (status != KX_OK) return status;
    status = LockLogfile(500, 4);
    if (status != KX_OK) return status;
    m_bMutexHeld = true;
    m_File.SetLogErrors(false);
    const unsigned long opened = m_File.CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr,
                                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (opened != 0) return static_cast<long>(static_cast<int32_t>(opened));
    // A file on another machine has no lock file this machine could share with its writers,
    // and its image below is a private copy read once: the server's lock manager holds the
    // file while the copy is made, and the walks need only this process's mutex.
    const bool remote = m_File.IsRemote();
    status = remote ? LockRemoteFile(2000) : AttachLock(path, false, 2000);
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
    if (image == nullptr) return KX_E_LOG_MAP;
    m_pImage = static_cast<KLogFile*>(image);
    m_dwMappedSize = static_cast<uint32_t>(size);
    if (remote) m_File.UnlockFile();
    m_dwSignature = kSignatureLive;
    ReleaseConstructionLocks();
    return KX_OK;
}

long KLogStream::LockRemoteFile(unsigned long timeoutMs) {
    // Each try is a round trip to the server: a few tries 20 ms apart, not a tight poll.
    const struct timespec pause{0, 20000000};
    for (unsigned long waited = 0;; waited += 20) {
        const long status = m_File.TryLockFile(false);
        if (status != KX_S_WAIT_TIMEOUT || waited >= timeoutMs) return status;
        nanosleep(&pause, nullptr);
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

KLogStream::Lock::Lock(const KLogStream* stream, bool acquire) : m_pStream(stream) {
    if (acquire) AcquireLock();
}

long KLogStream::Lock::AcquireLock() {
    if (m_bHeld) return KX_OK;
    if (!KLogStream::IsLive(m_pStream)) return KX_E_NOT_INITIALISED;
    const long status = m_pStream->LockLogfile(500, 4);
    m_bHeld = status == KX_OK;
    return status;
}

void KLogStream::Lock::ReleaseLock() {
    if (!m_bHeld) return;
    m_pStream->UnlockLogfile();
    m_bHeld = false;
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
    long status = LockLogfile(500, 4);
    if (status != KX_OK) return status;
    KLogFile* image = Image();
    status = image != nullptr ? image->NewRecord(stamp, processId, threadId, type, flags, size,
                                                 data, m_Lock.Journal())
                              : KX_E_LOG_NO_STREAM;
    UnlockLogfile();
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
    long status = LockLogfile(500, 4);
    if (status != KX_OK) return status;
    KLogFile* image = Image();
    status = image != nullptr ? image->ClearRecs() : KX_E_LOG_NO_STREAM;
    UnlockLogfile();
    return status;
}

long KLogStream::Flush() {
    if (!IsLive()) return KX_E_LOG_NO_STREAM;
    long status = LockLogfile(500, 4);
    if (status != KX_OK) return status;
    status = FlushLogfile();
    UnlockLogfile();
    return status;
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
    long status = LockLogfile(500, 4);
    if (status != KX_OK) return status;
    const KLogFile* image = Image();
    if (image != nullptr) memcpy(static_cast<void*>(out), image, sizeof *out);
    UnlockLogfile();
    return image != nullptr ? KX_OK : KX_E_LOG_NO_STREAM;
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
    if (!IsLive() || LockLogfile(500, 4) != KX_OK) return it;
    if (const KLogFile* image = Image()) {
        const KLogRec* rec = image->LastRec();
        if (rec != nullptr && image->RecordAt(image->LastRecOffset()) == rec &&
            image->IsRecordValid(rec, 0))
            it = iterator(this, rec);
    }
    UnlockLogfile();
    return it;
}

KLogStream::iterator KLogStream::rbegin() const {
    iterator it;
    if (!IsLive() || LockLogfile(500, 4) != KX_OK) return it;
    if (const KLogFile* image = Image()) {
        const KLogRec* rec = image->FirstRec();
        if (rec != nullptr && image->IsRecordValid(rec, 0)) it = iterator(this, rec);
    }
    UnlockLogfile();
    return it;
}

void KLogStream::iterator_base::NextRec() { Step(true); }
void KLogStream::iterator_base::PrevRec() { Step(false); }

void KLogStream::iterator_base::Step(bool newer) {
    if (m_pRec == nullptr) return;
    const KLogStream* s = m_pStream;
    const KLogRec* next = nullptr;
    if (KLogStream::IsLive(s) && s->LockLogfile(500, 4) == KX_OK) {
        if (const KLogFile* image = s->Image())
            next = newer ? image->NewerRec(m_pRec, m_dwRecNum) : image->OlderRec(m_pRec, m_dwRecNum);
        s->UnlockLogfile();
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
    long status = m_pStream->LockLogfile(500, 4);
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
    m_pStream->UnlockLogfile();
    return status;
}
