#include "log/KLogFile.h"

#include <pthread.h>

#include <cstring>
#include <initializer_list>

#include "log/kxLogProcess.h"
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
    // A record numbered past the count at the first position is an append that never
    // completed (or was wiped); the newest record leads back to the oldest just as well.
    if (rec == nullptr || rec->GetRecNum() == 0 || rec->GetRecNum() > RecordCount()) {
        rec = Numbered(LastRecOffset(), RecordCount());
        if (rec == nullptr) return nullptr;
    }
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
    return NewRecord(now, kxLogProcessId(), static_cast<unsigned long>(pthread_self()), type,
                     flags, payloadSize, payload);
}

long KLogFile::NewRecord(const _FILETIME& stamp, unsigned long processId, unsigned long threadId,
                         kxLogRecType type, unsigned long flags, unsigned long payloadSize,
                         void** payload) {
    return Append(stamp, processId, threadId, type, flags, payloadSize, nullptr, nullptr, payload);
}

long KLogFile::NewRecord(const _FILETIME& stamp, unsigned long processId, unsigned long threadId,
                         kxLogRecType type, unsigned long flags, unsigned long payloadSize,
                         const void* data, KLogAppendJournal* journal) {
    return Append(stamp, processId, threadId, type, flags, payloadSize, data, journal, nullptr);
}

// The stores below are made in the order written: what matters is the state that another
// process finds after this one was killed at any instruction, and a killed process leaves
// exactly the stores it had made so far. Only the compiler could reorder them.
#define KX_LOG_ORDER() __atomic_signal_fence(__ATOMIC_SEQ_CST)

long KLogFile::Append(const _FILETIME& stamp, unsigned long processId, unsigned long threadId,
                      kxLogRecType type, unsigned long flags, unsigned long payloadSize,
                      const void* data, KLogAppendJournal* journal, void** payload) {
    // Appending trusts the header it updates: only a sound native one is written to.
    if (!IsHdrDataValid() || IsOppositeEndian()) return KX_E_LOG_NO_STREAM;
    const uint32_t fileSize = m_dwSizeInBytes;
    if (m_dwNextRecOffset < kxLogFileHeaderSize || m_dwNextRecOffset > fileSize ||
        m_dwNextRecOffset % 4 != 0 || payloadSize > fileSize)
        return KX_E_LOG_NO_STREAM;
    RecoverInterruptedAppend();
    const uint32_t size = static_cast<uint32_t>(payloadSize) + kxLogRecHeaderSize;
    const uint32_t space = KLogRecActualSize(size);
    uint32_t offset = m_dwNextRecOffset;
    const bool wraps = static_cast<uint64_t>(offset) + space > fileSize;
    if (wraps) {
        if (static_cast<uint64_t>(space) + kxLogFileHeaderSize > fileSize) return KX_E_LOG_NO_STREAM;
        offset = kxLogFileHeaderSize;
    }
    const uint32_t number = m_dwRecordCount + 1;
    if (journal != nullptr) {
        journal->offset = offset;
        journal->space = space;
        journal->count = m_dwRecordCount;
        journal->wraps = m_dwWrapCount;
        KX_LOG_ORDER();
        journal->active = 1;
        KX_LOG_ORDER();
    }
    KLogRec* rec = reinterpret_cast<KLogRec*>(reinterpret_cast<uint8_t*>(this) + offset);
    // The number first: from now on no walk takes whatever lay here for an older record. The
    // whole record, payload included, is written before the header counts it, so a writer
    // killed half-way leaves a record that no walk reaches (numbered past the count).
    KLogRecInfo& info = rec->Info();
    info.SetRecNum(number);
    KX_LOG_ORDER();
    rec->SetSignature(kxLogRecSignature);
    rec->SetSize(size);
    rec->SetPrevRecOffset(m_dwLastRecOffset);
    info.SetProcessId(static_cast<uint32_t>(processId));
    info.SetThreadId(static_cast<uint32_t>(threadId));
    info.SetFlags(static_cast<uint32_t>(flags));
    info.SetType(type);
    info.SetTimeStamp(stamp);
    if (data != nullptr && payloadSize != 0) memcpy(rec->Payload(), data, payloadSize);
    KX_LOG_ORDER();
    if (wraps) ++m_dwWrapCount;
    m_dwRecordCount = number;
    KX_LOG_ORDER();
    m_dwLastRecOffset = offset;
    KX_LOG_ORDER();
    m_dwNextRecOffset = offset + space;
    if (journal != nullptr) {
        KX_LOG_ORDER();
        journal->active = 0;
    }
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
    // Killed after counting its record but before pointing at it: the record is complete (it
    // was written first) at the next offset, or at the first position when it wrapped.
    for (uint32_t at : {m_dwNextRecOffset, kxLogFileHeaderSize}) {
        const KLogRec* pending = RecordAt(at);
        if (pending != nullptr && pending->GetRecNum() == count &&
            pending->GetPrevRecOffset() == m_dwLastRecOffset && at != m_dwLastRecOffset) {
            m_dwLastRecOffset = at;
            m_dwNextRecOffset = at + KLogRecActualSize(pending->GetSize());
            return;
        }
    }
}

void KLogFile::RecoverAppend(KLogAppendJournal& journal) {
    if (journal.active == 0) return;
    const uint32_t fileSize = m_dwSizeInBytes;
    // Offsets that do not fit this file describe nothing here.
    if (IsHdrDataValid() && !IsOppositeEndian() && journal.offset >= kxLogFileHeaderSize &&
        journal.offset % 4 == 0 && static_cast<uint64_t>(journal.offset) + journal.space <= fileSize) {
        if (m_dwRecordCount == journal.count) {
            // Never counted: nothing points at it. Wipe it, and with it whatever it had half
            // overwritten.
            memset(reinterpret_cast<uint8_t*>(this) + journal.offset, 0, journal.space);
            m_dwWrapCount = journal.wraps;
        } else if (m_dwRecordCount == journal.count + 1) {
            RecoverInterruptedAppend();
        }
    }
    KX_LOG_ORDER();
    journal.active = 0;
}

long KLogFile::WriteStartRec() {
    if (!IsHdrDataValid() || RecordCount() != 0) return KX_E_LOG_NO_STREAM;
    return NewRecord(kxLogRecTypeStart, kxLogRecFlagsSystem, 0, nullptr);
}

long KLogFile::WriteResizeRec(unsigned long oldKB, unsigned long newKB) {
    if (!IsHdrDataValid()) return KX_E_LOG_NO_STREAM;
    const uint32_t sizes[2] = {static_cast<uint32_t>(oldKB), static_cast<uint32_t>(newKB)};
    _FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return NewRecord(now, kxLogProcessId(), static_cast<unsigned long>(pthread_self()),
                     kxLogRecTypeResize, kxLogRecFlagsSystem, sizeof sizes, sizes, nullptr);
}

long KLogFile::ClearRecs() {
    if (!IsHdrDataValid() || IsOppositeEndian()) return KX_E_LOG_NO_STREAM;
    m_dwLastRecOffset = 0;
    m_dwNextRecOffset = kxLogFileHeaderSize;
    m_dwRecordCount = 0;
    m_dwWrapCount = 0;
    return NewRecord(kxLogRecTypeClear, kxLogRecFlagsSystem, 0, nullptr);
}
