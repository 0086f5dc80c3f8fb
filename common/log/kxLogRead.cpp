#include "log/kxLogRead.h"

#include <cstdio>
#include <cstring>

#include "log/KLogStream.h"

namespace {

uint32_t Word(const uint8_t* p, bool opposite) {
    uint32_t v;
    memcpy(&v, p, sizeof v);
    return kxLogFix32(v, opposite);
}

void AppendUtf8(std::string& out, uint32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

}  // namespace

void kxLogDecodeEntry(const KLogRecInfo& info, const void* payload, size_t size, bool opposite,
                      KLogEntry& out) {
    const uint8_t* p = static_cast<const uint8_t*>(payload);
    out.info = info;
    out.isText = info.GetType() == kxLogRecTypeStringA || info.GetType() == kxLogRecTypeStringW;
    out.text.clear();
    if (out.isText && size >= kxLogTextPayloadPrefix) {
        out.status = kxStatus(Word(p, opposite));
        out.severity = Word(p + 4, opposite);
        const uint8_t* t = p + kxLogTextPayloadPrefix;
        const size_t n = size - kxLogTextPayloadPrefix;
        if (info.GetType() == kxLogRecTypeStringA)
            out.text.assign(reinterpret_cast<const char*>(t), n);
        else
            for (size_t i = 0; i + 4 <= n; i += 4) AppendUtf8(out.text, Word(t + i, opposite));
    } else if (info.GetType() == kxLogRecTypeResize && size >= 8) {
        out.oldKB = Word(p, opposite);
        out.newKB = Word(p + 4, opposite);
    }
}

bool kxLogReadEntry(const KLogStream& stream, const KLogStream::iterator& it,
                    std::vector<uint8_t>& buf, KLogEntry& out) {
    if (buf.size() < 64) buf.resize(4096);
    KLogRecInfo info;
    unsigned long size = static_cast<unsigned long>(buf.size());
    long status = it.GetRecData(buf.data(), &size, &info);
    if (status == KX_E_BAD_ARGUMENT) {
        buf.resize(size);
        status = it.GetRecData(buf.data(), &size, &info);
    }
    if (status != KX_OK) return false;
    out = KLogEntry();
    out.offset = it.RecOffset();
    kxLogDecodeEntry(info, buf.data(), size, stream.IsOppositeEndian(), out);
    return true;
}

long kxLogReadFile(const char* path, std::vector<KLogEntry>& out) {
    KLogStream stream(path);
    if (!stream.IsLive()) {
        const long status = stream.GetOpenStatus();
        return status != KX_OK ? status : KX_E_LOG_NO_STREAM;
    }
    std::vector<uint8_t> buf;
    KLogEntry entry;
    for (KLogStream::iterator it = stream.rbegin(); !it.IsEnd(); it.NextRec()) {
        if (!kxLogReadEntry(stream, it, buf, entry)) break;
        out.push_back(std::move(entry));
    }
    return KX_OK;
}

std::string kxLogRecTypeName(uint32_t type) {
    // The letters as a little-endian file shows them: least significant byte first.
    const char spelled[5] = {static_cast<char>(type & 0xFF), static_cast<char>((type >> 8) & 0xFF),
                             static_cast<char>((type >> 16) & 0xFF), static_cast<char>(type >> 24), 0};
    bool printable = true;
    for (int i = 0; i < 4; ++i) printable = printable && spelled[i] >= 0x20 && spelled[i] < 0x7F;
    if (printable) return spelled;
    char hex[11];
    snprintf(hex, sizeof hex, "0x%08X", type);
    return hex;
}
