// The log file's image as a writer or reader maps it, from arbitrary bytes: header validation,
// the walks in both directions from both ends, record decoding as the viewer does it, and
// appends (with the repair of an interrupted one) on whatever a valid header leads to. Both
// byte orders come from the bytes themselves (the signature decides).
//
// Input: a 4-byte control word (little-endian), then the image.
//   bit 0      set the header's size field to the image's length (in the image's byte order),
//              as if the file had been mapped whole; otherwise an image whose size field
//              differs is only validated, as the streams refuse to walk it
//   bit 1      append a record afterwards (native images)
//   bit 2      first repair an append a dead writer left in the journal (below)
//   bit 3      that journal's count is one less than the header's (the record was counted)
//   bits 8-15  the appended payload's length, and the journal's space in 4-byte units
//   bits 16-31 the journal's offset in 4-byte units
#include <cstring>
#include <memory>
#include <vector>

#include "kxFuzzCheck.h"
#include "kxTextEscape.h"
#include "log/KLogFile.h"
#include "log/kxLogRead.h"

namespace {

// Decodes the record as the viewer does: payload copied out through the record's own size,
// then kxLogDecodeEntry. Returns the record's number.
uint32_t Decode(const KLogFile& image, const KLogRec* rec) {
    const uint32_t offset = image.OffsetOf(rec);
    // Every record a walk hands out lies wholly inside the image.
    KX_FUZZ_CHECK(image.RecordAt(offset) == rec);
    const uint32_t n = rec->GetPayloadSize();
    std::unique_ptr<uint8_t[]> payload(new uint8_t[n + 1]);
    memcpy(payload.get(), rec->Payload(), n);
    KLogEntry entry;
    kxLogDecodeEntry(rec->GetInfo(), payload.get(), n, image.IsOppositeEndian(), entry);
    if (entry.info.GetType() == kxLogRecTypeStringW) KX_FUZZ_CHECK(kxtools::ValidUtf8(entry.text));
    kxLogRecTypeName(entry.info.GetType());
    return rec->GetRecNum();
}

void Walk(const KLogFile& image, uint32_t size) {
    // Each step lands on another record numbered one more (one less), so no walk can visit
    // more records than the image holds.
    const uint32_t most = size / kxLogRecHeaderSize + 1;
    uint32_t steps = 0;
    for (const KLogRec* rec = image.FirstRec(); rec != nullptr && image.IsRecordValid(rec, 0);
         rec = image.NewerRec(rec, rec->GetRecNum())) {
        const uint32_t number = Decode(image, rec);
        KX_FUZZ_CHECK(number <= image.RecordCount());
        KX_FUZZ_CHECK(++steps <= most);
    }
    steps = 0;
    const KLogRec* last = image.LastRec();
    if (last != nullptr && image.RecordAt(image.LastRecOffset()) == last) {
        for (const KLogRec* rec = last; rec != nullptr && image.IsRecordValid(rec, 0);
             rec = image.OlderRec(rec, rec->GetRecNum())) {
            Decode(image, rec);
            KX_FUZZ_CHECK(++steps <= most);
        }
    }
}

void Append(KLogFile& image, uint32_t control) {
    const uint32_t payloadSize = (control >> 8) & 0xFF;
    std::vector<uint8_t> data(payloadSize);
    for (uint32_t i = 0; i < payloadSize; ++i) data[i] = static_cast<uint8_t>(i * 7 + 1);
    KLogAppendJournal journal{};
    const uint32_t before = image.RecordCount();
    const long status = image.NewRecord(_FILETIME{1, 2}, 3, 4, kxLogRecTypeStringA, 0, payloadSize,
                                        data.data(), &journal);
    KX_FUZZ_CHECK(journal.active == 0);
    if (status != KX_OK) return;
    // The record appended is the newest, whole, where the header says, and readable.
    const KLogRec* rec = image.RecordAt(image.LastRecOffset());
    KX_FUZZ_CHECK(rec != nullptr && rec == image.LastRec());
    KX_FUZZ_CHECK(rec->GetRecNum() == image.RecordCount());
    KX_FUZZ_CHECK(image.RecordCount() == before + 1);
    KX_FUZZ_CHECK(rec->GetPayloadSize() == payloadSize);
    KX_FUZZ_CHECK(payloadSize == 0 || memcmp(rec->Payload(), data.data(), payloadSize) == 0);
    KX_FUZZ_CHECK(image.NextRecOffset() <= image.SizeInBytes());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    uint32_t control;
    memcpy(&control, data, 4);
    const size_t length = size - 4;
    if (length < kxLogFileHeaderSize || length > 0x40000000) return 0;
    // A mapping is page-aligned; the records' fields need 4-byte alignment.
    std::unique_ptr<uint8_t[]> bytes(new uint8_t[length]);
    memcpy(bytes.get(), data + 4, length);
    KLogFile& image = *reinterpret_cast<KLogFile*>(bytes.get());

    image.IsValid(length / 1024);
    if (!image.IsHdrDataValid()) return 0;
    if (control & 1) {
        const uint32_t stored = kxLogFix32(static_cast<uint32_t>(length), image.IsOppositeEndian());
        memcpy(bytes.get() + 8, &stored, 4);
    }
    // The streams map a file only when its header's size is the file's.
    if (image.SizeInBytes() != length || length < kxLogFileHeaderSize + kxLogRecHeaderSize)
        return 0;
    Walk(image, static_cast<uint32_t>(length));

    if (image.IsOppositeEndian()) return 0;
    if (control & 4) {
        KLogAppendJournal journal;
        journal.active = 1;
        journal.offset = (control >> 16) * 4;
        journal.space = ((control >> 8) & 0xFF) * 4;
        journal.count = image.RecordCount() - ((control & 8) ? 1 : 0);
        journal.wraps = image.WrapCount() + 1;
        image.RecoverAppend(journal);
        KX_FUZZ_CHECK(journal.active == 0);
        Walk(image, static_cast<uint32_t>(length));
    }
    if (control & 2) {
        Append(image, control);
        Walk(image, static_cast<uint32_t>(length));
    }
    return 0;
}
