// The binary log file: a fixed-size ring of variable-length records behind a 28-byte header.
//
// This header is the one definition of the on-disk format, shared by the writer (KLogStream)
// and every reader (kxlogview, tests). docs/log-format.md describes the same bytes for people.
//
// The whole file is mapped into memory and used in place: a KLogFile is the header at the start
// of the mapped image, and its operations reach the records through `this`. Every operation
// trusts the header's size field to be the length of the image behind it; whoever maps a file
// must check that before calling anything else (KLogStream does).
//
// Byte order: fields are 32-bit values in the writer's native order. Every reading operation
// recognises a file of the opposite order by its signature and corrects what it returns; the
// append path works on native files only (a foreign file is for reading).
//
// Convention: operations that can fail return a status, 0 or KX_E_LOG_NO_STREAM (header not
// valid, record too large for the file, start record on a file that holds records). Nothing
// throws. Damaged or overwritten records are never repaired: the walks stop at them.
//
// Thread safety: none of its own. Every append and every walk step must run under the
// stream's cross-process lock, so that a reader never sees a half-written header.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/kxStatus.h"
#include "base/kxLog.h"
#include "base/kxWin32Types.h"

// Type of a record: four ASCII letters when read from a little-endian file.
enum kxLogRecType : uint32_t {
    kxLogRecTypeStringA = 0x41525453,  // "STRA": status, severity, narrow text
    kxLogRecTypeStringW = 0x57525453,  // "STRW": status, severity, 32-bit wide text
    kxLogRecTypeStart = 0x54525453,    // "STRT": first record of a new file, no payload
    kxLogRecTypeResize = 0x5A534552,   // "RESZ": old size in KB, new size in KB
    kxLogRecTypeClear = 0x52454C43,    // "CLER": the records were cleared, no payload
};

constexpr uint32_t kxLogFileSignature = 0xC0A1469C;
constexpr uint32_t kxLogFileVersion = 0x00010002;
constexpr uint32_t kxLogRecSignature = 0x87EE9E9C;
constexpr uint32_t kxLogFileHeaderSize = 28;  // also the offset of the first record position
constexpr uint32_t kxLogRecHeaderSize = 40;
constexpr uint32_t kxLogRecFlagsSystem = 2;    // flags of the records the file writes itself
constexpr uint32_t kxLogTextPayloadPrefix = 8; // status and severity before a text

// Space a record of `size` bytes occupies in the ring: records start on 4-byte boundaries.
constexpr uint32_t KLogRecActualSize(uint32_t size) { return (size + 3) & ~3u; }

// Byte-order helpers for readers of foreign files.
constexpr uint32_t kxLogSwap32(uint32_t v) { return __builtin_bswap32(v); }
constexpr uint32_t kxLogFix32(uint32_t v, bool opposite) { return opposite ? kxLogSwap32(v) : v; }

// The descriptive block of a record (record bytes 8 to 35), handed to readers as one block.
// Plain fields in native order: the block a reader receives is already corrected.
class KLogRecInfo {
public:
    const _FILETIME& GetTimeStamp() const { return m_timeStamp; }
    uint32_t GetProcessId() const { return m_dwProcessId; }
    uint32_t GetThreadId() const { return m_dwThreadId; }
    uint32_t GetRecNum() const { return m_dwRecNum; }
    uint32_t GetFlags() const { return m_dwFlags; }
    kxLogRecType GetType() const { return static_cast<kxLogRecType>(m_dwType); }

    // The number as stored at this moment, read once (for readers re-checking a record).
    uint32_t LoadRecNum() const { return __atomic_load_n(&m_dwRecNum, __ATOMIC_ACQUIRE); }

    void SetTimeStamp(const _FILETIME& t) { m_timeStamp = t; }
    void SetProcessId(uint32_t v) { m_dwProcessId = v; }
    void SetThreadId(uint32_t v) { m_dwThreadId = v; }
    void SetRecNum(uint32_t v) { m_dwRecNum = v; }
    void SetFlags(uint32_t v) { m_dwFlags = v; }
    void SetType(kxLogRecType v) { m_dwType = v; }

private:
    _FILETIME m_timeStamp{0, 0};  // 100-ns ticks since 1601-01-01 UTC, low word first
    uint32_t m_dwProcessId = 0;
    uint32_t m_dwThreadId = 0;    // low 32 bits of pthread_self()
    uint32_t m_dwRecNum = 0;
    uint32_t m_dwFlags = 0;
    uint32_t m_dwType = 0;
};

// One record's 40-byte header, followed in the file by its payload. Getters correct the byte
// order (a record is foreign when its signature reads reversed); setters store native values.
class KLogRec {
public:
    // Signature matches in either byte order.
    bool IsValid() const {
        return m_dwSignature == kxLogRecSignature || m_dwSignature == kxLogSwap32(kxLogRecSignature);
    }
    bool IsOppositeEndian() const { return m_dwSignature != kxLogRecSignature; }

    uint32_t GetSignature() const { return Fix(m_dwSignature); }
    uint32_t GetSize() const { return Fix(m_dwSize); }  // 40 + payload, not rounded
    uint32_t GetPrevRecOffset() const { return Fix(m_dwPrevRecOffset); }
    // In a foreign file the 8 timestamp bytes are reversed as one 64-bit value, so the two
    // words change places as well as being byte-reversed: that is how such files are read.
    _FILETIME GetTimeStamp() const;
    uint32_t GetProcessId() const { return Fix(m_info.GetProcessId()); }
    uint32_t GetThreadId() const { return Fix(m_info.GetThreadId()); }
    uint32_t GetRecNum() const { return Fix(m_info.GetRecNum()); }
    uint32_t LoadRecNum() const { return Fix(m_info.LoadRecNum()); }
    uint32_t GetFlags() const { return Fix(m_info.GetFlags()); }
    kxLogRecType GetType() const { return static_cast<kxLogRecType>(Fix(m_info.GetType())); }
    // The descriptive block, corrected.
    KLogRecInfo GetInfo() const;
    uint32_t GetPayloadSize() const { return GetSize() - kxLogRecHeaderSize; }
    const void* Payload() const { return reinterpret_cast<const uint8_t*>(this) + kxLogRecHeaderSize; }
    void* Payload() { return reinterpret_cast<uint8_t*>(this) + kxLogRecHeaderSize; }

    void SetSignature(uint32_t v) { m_dwSignature = v; }
    void SetSize(uint32_t v) { m_dwSize = v; }
    void SetPrevRecOffset(uint32_t v) { m_dwPrevRecOffset = v; }
    void SetInfo(const KLogRecInfo& info) { m_info = info; }
    KLogRecInfo& Info() { return m_info; }

private:
    uint32_t Fix(uint32_t v) const { return kxLogFix32(v, IsOppositeEndian()); }

    uint32_t m_dwSignature;
    uint32_t m_dwSize;
    KLogRecInfo m_info;
    uint32_t m_dwPrevRecOffset;
};

// What an append is about to change, kept where the next holder of the lock finds it (the lock
// file, log/KLogLock.h). A writer that dies inside its append leaves it active, and the next
// holder of the lock finishes or discards that append with KLogFile::RecoverAppend. All fields
// are 32-bit, so that processes of both targets read it alike. Whoever rebuilds the ring clears
// it (the offsets describe one ring).
struct KLogAppendJournal {
    uint32_t active;  // 1 from before the record is written until the header points at it
    uint32_t offset;  // where the record is being written
    uint32_t space;   // bytes it occupies
    uint32_t count;   // the header's record count before the append
    uint32_t wraps;   // the header's wrap count before the append
};
static_assert(sizeof(KLogAppendJournal) == 20, "five 32-bit fields");

// The file header, at offset 0 of the mapped image.
class KLogFile {
public:
    // A fresh header for a file of sizeInKB kilobytes: no records, next record at 28.
    explicit KLogFile(unsigned long sizeInKB);

    bool IsOppositeEndian() const { return m_dwSignature != kxLogFileSignature; }
    // Signature and version match, after byte reversal for a foreign file.
    bool IsHdrDataValid() const;
    // Header valid, its size equals sizeInKB * 1024, 28 <= last record < size and
    // 28 <= next record <= size. A file that never held a record is therefore not valid.
    bool IsValid(unsigned long sizeInKB) const;

    uint32_t Signature() const { return m_dwSignature; }  // as stored
    uint32_t Version() const { return Fix(m_dwVersion); }
    uint32_t SizeInBytes() const { return Fix(m_dwSizeInBytes); }
    uint32_t LastRecOffset() const { return Fix(m_dwLastRecOffset); }
    uint32_t NextRecOffset() const { return Fix(m_dwNextRecOffset); }
    uint32_t RecordCount() const { return Fix(m_dwRecordCount); }
    uint32_t WrapCount() const { return Fix(m_dwWrapCount); }

    // The newest record (image + last record offset; the image start while there is none),
    // null if the header is not valid. Not checked: test it with IsRecordValid.
    const KLogRec* LastRec() const;
    // The oldest surviving record, found by following the previous-offset chain back from the
    // first record position while each step lands on the record numbered one less. Null if the
    // header is not valid or the count is 0. When the first position holds no counted record
    // (damaged, or an append there never completed) the chain is followed back from the
    // newest record instead.
    const KLogRec* FirstRec() const;

    // False unless 28 <= offset <= size; then as below for the record there.
    bool IsRecordValid(unsigned long offset) const;
    // Signature correct (either order), offset + size < file size and previous offset < file
    // size. Pass offset 0 to test the record's size alone. Strictly less on purpose, kept for
    // compatibility: a record whose unrounded end falls exactly on the end of the file is judged
    // invalid here, although NewRecord may write it (the walks below still reach it).
    bool IsRecordValid(const KLogRec* rec, unsigned long offset) const;

    // Byte offset of a record inside this image.
    uint32_t OffsetOf(const KLogRec* rec) const {
        return static_cast<uint32_t>(reinterpret_cast<const uint8_t*>(rec) -
                                     reinterpret_cast<const uint8_t*>(this));
    }
    // The record at `offset` if its whole header and payload lie inside the file, it starts on
    // a 4-byte boundary at or after the first record position and its signature is right in
    // either order; else null. Safe on any bytes at all.
    const KLogRec* RecordAt(uint32_t offset) const;

    // Walk steps. `number` is the record number the caller remembers for `rec`; a step returns
    // the neighbour or null when the walk ends (the record changed, is damaged, or its
    // neighbour is not numbered exactly one more or one less).
    // Newer: the record after `rec` is the one that follows it by size, or the one at the first
    // record position when writing wrapped there. Both candidates are tried: the tail of the
    // ring may still hold a stale record left from an earlier round, which must not end a walk.
    // The walk never goes past the record numbered as the header's count (the newest).
    const KLogRec* NewerRec(const KLogRec* rec, uint32_t number) const;
    const KLogRec* OlderRec(const KLogRec* rec, uint32_t number) const;

    // Appends a record stamped now with this process and thread.
    long NewRecord(kxLogRecType type, unsigned long flags, unsigned long payloadSize,
                   void** payload);
    // Appends a record and hands back its payload address for the caller to fill while it
    // still holds the lock. Wraps to the first record position when the record does not fit
    // before the end of the file (it may end exactly there). 0, or KX_E_LOG_NO_STREAM when the
    // header is not valid or native, or the record could never fit. First repairs the header
    // left by a writer that died in the middle of an append.
    long NewRecord(const _FILETIME& stamp, unsigned long processId, unsigned long threadId,
                   kxLogRecType type, unsigned long flags, unsigned long payloadSize,
                   void** payload);
    // The same with the payload copied from data (payloadSize bytes) before the record is
    // counted: a writer killed at any point leaves either the whole record or none of it.
    // With a journal, the append is recorded there first (see KLogAppendJournal).
    long NewRecord(const _FILETIME& stamp, unsigned long processId, unsigned long threadId,
                   kxLogRecType type, unsigned long flags, unsigned long payloadSize,
                   const void* data, KLogAppendJournal* journal);
    // Finishes or discards the append a journal describes, if it is still active: a record
    // that was counted is linked into the header; one that was not is wiped (its bytes
    // zeroed, so that no half-written header can be taken for a record) and the wrap count
    // restored. The journal is then inactive. Call under the lock, on a native image.
    void RecoverAppend(KLogAppendJournal& journal);

    // "STRT", flags 2; refused unless the header is valid and the file holds no record.
    long WriteStartRec();
    // "RESZ", flags 2, payload the old and the new size in KB.
    long WriteResizeRec(unsigned long oldKB, unsigned long newKB);
    // Forgets every record (counters back to their initial values), then writes "CLER".
    long ClearRecs();

private:
    uint32_t Fix(uint32_t v) const { return kxLogFix32(v, IsOppositeEndian()); }
    const uint8_t* Image() const { return reinterpret_cast<const uint8_t*>(this); }
    // Completes the header after a writer died between counting its record and advancing the
    // offsets, so that the numbers stay contiguous for the walks. Called under the lock.
    void RecoverInterruptedAppend();
    long Append(const _FILETIME& stamp, unsigned long processId, unsigned long threadId,
                kxLogRecType type, unsigned long flags, unsigned long payloadSize,
                const void* data, KLogAppendJournal* journal, void** payload);
    // The candidate neighbour, if it carries the wanted number.
    const KLogRec* Numbered(uint32_t offset, uint32_t number) const;

    uint32_t m_dwSignature;
    uint32_t m_dwVersion;
    uint32_t m_dwSizeInBytes;
    uint32_t m_dwLastRecOffset;
    uint32_t m_dwNextRecOffset;
    uint32_t m_dwRecordCount;
    uint32_t m_dwWrapCount;
};

// Layouts are the file format itself; the same on both targets.
static_assert(sizeof(KLogRecInfo) == 28, "record info block is bytes 8..35 of a record");
static_assert(sizeof(KLogRec) == kxLogRecHeaderSize, "record header is 40 bytes");
static_assert(sizeof(KLogFile) == kxLogFileHeaderSize, "file header is 28 bytes");
#if KX_TARGET_32BIT
static_assert(alignof(KLogRec) == 4 && alignof(KLogFile) == 4, "packed 32-bit fields");
#endif
