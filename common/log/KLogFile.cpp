#include "log/KLogFile.h"

#include <pthread.h>
#include <unistd.h>

#include "platform/kxWin32.h"

_FILETIME KLogRec::GetTimeStamp() const {
    const _FILETIME& raw = m_info.GetTimeStamp();
    if (!IsOppositeEndian()) return raw;
    return _FILETIME{kxLogSwap32(raw.dwHighDateTime), kxLogSwap32(raw.dwLowDateTime)};
}

KLogRecInfo KLogRec::GetInfo() const {
    KLogRecInfo info;
    info.SetTimeStamp(GetTimeStamp());
    info.SetProcessId(GetProcessId());
    info.SetThreadId(GetThreadId());
    info.SetRecNum(GetRecNum());
    info.SetFlags(GetFlags());
    info.SetType(GetType());
    return info;
}

KLogFile::KLogFile(unsigned long sizeInKB)
    : m_dwSignature(kxLogFileSignature),
      m_dwVersion(kxLogFileVersion),
      m_dwSizeInBytes(static_cast<uint32_t>(sizeInKB * 1024)),
      m_dwLastRecOffset(0),
      m_dwNextRecOffset(kxLogFileHeaderSize),
      m_dwRecordCount(0),
      m_dwWrapCount(0) {}

bool KLogFile::IsHdrDataValid() const {
    return (m_dwSignature == kxLogFileSignature ||
            m_dwSignature == kxLogSwap32(kxLogFileSignature)) &&
           Version() == kxLogFileVersion;
}

bool KLogFile::IsValid(unsigned long sizeInKB) const {
    if (!IsHdrDataValid()) return false;
    const uint64_t size = SizeInBytes();
    if (static_cast<uint64_t>(sizeInKB) * 1024 != size) return false;
    const uint32_t last = LastRecOffset(), next = NextRecOffset();
    return last >= kxLogFileHeaderSize && last < size && next >= kxLogFileHeaderSize &&
           next <= size;
}

const KLogRec* KLogFile::LastRec() const {
    if (!IsHdrDataValid()) return nullptr;
    return reinterpret_cast<const KLogRec*>(Image() + LastRecOffset());
}

const KLogRec* KLogFile::FirstRec() const {
    if (!IsHdrDataValid() || RecordCount() == 0) return nullptr;
    const KLogRec* rec = RecordAt(kxLogFileHeaderSize);
    if (rec == nullptr) return nullptr;
    // Each step lands on a record numbered one less, so the chain cannot loop.
    while (rec->GetPrevRecOffset() != 0) {
        const KLogRec* older = Numbered(rec->GetPrevRecOffset(), rec->GetRecNum() - 1);
        if (older == nullptr) break;
        rec = older;
    }
    return rec;
}

bool KLogFile::IsRecordValid(unsigned long offset) const {
    if (static_cast<int32_t>(offset) < 0 || offset > 0xFFFFFFFFul) return false;
    if (offset < kxLogFileHeaderSize || offset > SizeInBytes()) return false;
    // The header must lie inside the file (and be aligned) before any of it is read.
    if (offset % 4 != 0 || offset + kxLogRecHeaderSize > SizeInBytes()) return false;
    return IsRecordValid(reinterpret_cast<const KLogRec*>(Image() + offset), offset);
}

bool KLogFile::IsRecordValid(const KLogRec* rec, unsigned long offset) const {
    if (rec == nullptr || rec->GetSignature() != kxLogRecSignature) return false;
    const uint64_t size = SizeInBytes();
    return static_cast<uint64_t>(offset) + rec->GetSize() < size && rec->GetPrevRecOffset() < size;
}

const KLogRec* KLogFile::RecordAt(uint32_t offset) const {
    const uint64_t size = SizeInBytes();
    if (offset < kxLogFileHeaderSize || offset % 4 != 0 ||
        static_cast<uint64_t>(offset) + kxLogRecHeaderSize > size)
        return nullptr;
    const KLogRec* rec = reinterpret_cast<const KLogRec*>(Image() + offset);
    if (!rec->IsValid() || rec->GetSize() < kxLogRecHeaderSize ||
        static_cast<uint64_t>(offset) + rec->GetSize() > size)
        return nullptr;
    return rec;
}

const KLogRec* KLogFile::Numbered(uint32_t offset, uint32_t number) const {
    const KLogRec* rec = RecordAt(offset);
    return rec != nullptr && rec->GetRecNum() == number ? rec : nullptr;
}

const KLogRec* KLogFile::NewerRec(const KLogRec* rec, uint32_t number) const {
    // Nothing is newer than the newest record: after a clear, records left from before it may
    // carry the very numbers the new ones have reached.
    if (!IsRecordValid(rec, 0) || rec->GetRecNum() != number || number >= RecordCount())
        return nullptr;
    const uint32_t offset = OffsetOf(rec);
    const uint64_t bySize = static_cast<uint64_t>(offset) + KLogRecActualSize(rec->GetSize());
    if (bySize < SizeInBytes()) {
        if (const KLogRec* next = Numbered(static_cast<uint32_t>(bySize), number + 1)) return next;
    }
    return Numbered(kxLogFileHeaderSize, number + 1);
}

const KLogRec* KLogFile::OlderRec(const KLogRec* rec, uint32_t number) const {
    if (!IsRecordValid(rec, 0) || rec->GetRecNum() != number || rec->GetPrevRecOffset() == 0)
        return nullptr;
    return Numbered(rec->GetPrevRecOffset(), number - 1);
}

long KLogFile::NewRecord(kxLogRecType type, unsigned long flags, unsigned long payloadSize,
                         void** payload) {
    _FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return NewRecord(now, static_cast<unsigned long>(getpid()),
                     static_cast<unsigned long>(pthread_self()), type, flags, payloadSize,
                     payload);
}

long KLogFile::NewRecord(const _FILETIME& stamp, unsigned long processId, unsigned long threadId,
                         kxLogRecType type, unsigned long flags, unsigned long payloadSize,
                         void** payload) {
    // Appending trusts the header it updates: only a sound native one is written to.
    if (!IsHdrDataValid() || IsOppositeEndian()) return KX_E_LOG_NO_STREAM;
    const uint32_t fileSize = m_dwSizeInBytes;
    if (m_dwNextRecOffset < kxLogFileHeaderSize || m_dwNextRecOffset > fileSize ||
        m_dwNextRecOffset % 4 != 0 || payloadSize > fileSize)
        return KX_E_LOG_NO_STREAM;
    RecoverInterruptedAppend();
    const uint32_t size = static_cast<uint32_t>(payloadSize) + kxLogRecHeaderSize;
    const uint32_t space = KLogRecActualSize(size);
    if (static_cast<uint64_t>(m_dwNextRecOffset) + space > fileSize) {
        if (static_cast<uint64_t>(space) + kxLogFileHeaderSize > fileSize) return KX_E_LOG_NO_STREAM;
        m_dwNextRecOffset = kxLogFileHeaderSize;
        ++m_dwWrapCount;
    }
    const uint32_t offset = m_dwNextRecOffset;
    KLogRec* rec = reinterpret_cast<KLogRec*>(reinterpret_cast<uint8_t*>(this) + offset);
    // The record is complete before the header points at it, so that a writer killed half-way
    // leaves a state RecoverInterruptedAppend can finish or undo.
    rec->SetSignature(kxLogRecSignature);
    rec->SetSize(size);
    rec->SetPrevRecOffset(m_dwLastRecOffset);
    KLogRecInfo& info = rec->Info();
    info.SetProcessId(static_cast<uint32_t>(processId));
    info.SetThreadId(static_cast<uint32_t>(threadId));
    info.SetRecNum(m_dwRecordCount + 1);
    info.SetFlags(static_cast<uint32_t>(flags));
    info.SetType(type);
    info.SetTimeStamp(stamp);
    ++m_dwRecordCount;
    m_dwLastRecOffset = offset;
    m_dwNextRecOffset = offset + space;
    if (payload != nullptr) *payload = rec->Payload();
    return KX_OK;
}

void KLogFile::RecoverInterruptedAppend() {
    const uint32_t count = m_dwRecordCount;
    if (count == 0) return;
    const KLogRec* last = RecordAt(m_dwLastRecOffset);
    if (last != nullptr && last->GetRecNum() == count) {
        // Killed after pointing at its record but before advancing the next offset. (A next
        // offset of 28 is a wrap that was under way: the next append starts there anyway.)
        const uint32_t after = m_dwLastRecOffset + KLogRecActualSize(last->GetSize());
        if (m_dwNextRecOffset != after && m_dwNextRecOffset != kxLogFileHeaderSize &&
            after <= m_dwSizeInBytes)
            m_dwNextRecOffset = after;
        return;
    }
    // Killed after counting its record but before pointing at it: the record is complete at
    // the next offset (it was written first), so finish the append.
    const KLogRec* pending = RecordAt(m_dwNextRecOffset);
    if (pending != nullptr && pending->GetRecNum() == count &&
        pending->GetPrevRecOffset() == m_dwLastRecOffset) {
        m_dwLastRecOffset = m_dwNextRecOffset;
        m_dwNextRecOffset += KLogRecActualSize(pending->GetSize());
    }
}

long KLogFile::WriteStartRec() {
    if (!IsHdrDataValid() || RecordCount() != 0) return KX_E_LOG_NO_STREAM;
    return NewRecord(kxLogRecTypeStart, kxLogRecFlagsSystem, 0, nullptr);
}

long KLogFile::WriteResizeRec(unsigned long oldKB, unsigned long newKB) {
    if (!IsHdrDataValid()) return KX_E_LOG_NO_STREAM;
    void* payload = nullptr;
    long status = NewRecord(kxLogRecTypeResize, kxLogRecFlagsSystem, 8, &payload);
    if (status == KX_OK) {
        uint32_t* sizes = static_cast<uint32_t*>(payload);
        sizes[0] = static_cast<uint32_t>(oldKB);
        sizes[1] = static_cast<uint32_t>(newKB);
    }
    return status;
}

long KLogFile::ClearRecs() {
    if (!IsHdrDataValid() || IsOppositeEndian()) return KX_E_LOG_NO_STREAM;
    m_dwLastRecOffset = 0;
    m_dwNextRecOffset = kxLogFileHeaderSize;
    m_dwRecordCount = 0;
    m_dwWrapCount = 0;
    return NewRecord(kxLogRecTypeClear, kxLogRecFlagsSystem, 0, nullptr);
}
