// The tools' text escaping on arbitrary bytes (log messages and names from servers): ValidUtf8
// against a decoder written from the definition, JsonEscape read back by a JSON string reader
// to exactly the text (or its Latin-1 reading), and TerminalText free of every control that
// could drive a terminal.
//
// Input: one byte (bit 0: keep tabs), then the text.
#include <cstring>
#include <string>

#include "kxFuzzCheck.h"
#include "kxTextEscape.h"

namespace {

// Decodes s into code points: valid UTF-8 is the shortest form of a scalar value (no
// surrogates, nothing above U+10FFFF) for each sequence.
bool DecodeUtf8(const std::string& s, std::u32string* out) {
    for (size_t i = 0; i < s.size();) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        const size_t length = c < 0x80         ? 1
                              : (c >> 5) == 6  ? 2
                              : (c >> 4) == 14 ? 3
                              : (c >> 3) == 30 ? 4
                                               : 0;
        if (length == 0 || i + length > s.size()) return false;
        uint32_t cp = length == 1 ? c : c & (0x7F >> length);
        for (size_t k = 1; k < length; ++k) {
            const unsigned char d = static_cast<unsigned char>(s[i + k]);
            if ((d & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (d & 0x3F);
        }
        static const uint32_t kShortest[5] = {0, 0, 0x80, 0x800, 0x10000};
        if ((length > 1 && cp < kShortest[length]) || cp > 0x10FFFF ||
            (cp >= 0xD800 && cp <= 0xDFFF))
            return false;
        if (out != nullptr) out->push_back(cp);
        i += length;
    }
    return true;
}

int Hex(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Reads the body of a JSON string back into code points (no surrogate pairs: the escaper never
// writes them); false when it is not one, or not valid UTF-8. Working on code points keeps the
// check free of a UTF-8 encoder of its own.
bool ReadJson(const std::string& json, std::u32string& out) {
    std::u32string body;
    if (!DecodeUtf8(json, &body)) return false;
    for (size_t i = 0; i < body.size(); ++i) {
        const char32_t c = body[i];
        if (c == '"' || c < 0x20) return false;
        if (c != '\\') {
            out += c;
            continue;
        }
        if (++i >= body.size()) return false;
        switch (body[i]) {
            case '"':
                out += '"';
                break;
            case '\\':
                out += '\\';
                break;
            case '/':
                out += '/';
                break;
            case 'b':
                out += '\b';
                break;
            case 'f':
                out += '\f';
                break;
            case 'n':
                out += '\n';
                break;
            case 'r':
                out += '\r';
                break;
            case 't':
                out += '\t';
                break;
            case 'u': {
                if (i + 4 >= body.size()) return false;
                uint32_t cp = 0;
                for (int k = 1; k <= 4; ++k) {
                    const int h = body[i + k] < 0x80 ? Hex(static_cast<char>(body[i + k])) : -1;
                    if (h < 0) return false;
                    cp = cp * 16 + static_cast<uint32_t>(h);
                }
                if (cp >= 0xD800 && cp <= 0xDFFF) return false;
                out += static_cast<char32_t>(cp);
                i += 4;
                break;
            }
            default:
                return false;
        }
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const bool keepTabs = data[0] & 1;
    const std::string s(reinterpret_cast<const char*>(data + 1), size - 1);
    std::u32string points;
    const bool utf8 = DecodeUtf8(s, &points);
    KX_FUZZ_CHECK(kxtools::ValidUtf8(s) == utf8);

    const std::string json = kxtools::JsonEscape(s);
    KX_FUZZ_CHECK(kxtools::ValidUtf8(json));
    std::u32string back;
    KX_FUZZ_CHECK(ReadJson(json, back));
    if (utf8) {
        KX_FUZZ_CHECK(back == points);
    } else {
        std::u32string latin1;
        for (char c : s) latin1 += static_cast<char32_t>(static_cast<unsigned char>(c));
        KX_FUZZ_CHECK(back == latin1);
    }

    const std::string line = kxtools::TerminalText(s, keepTabs);
    std::u32string shown;
    if (utf8) KX_FUZZ_CHECK(DecodeUtf8(line, &shown));
    for (char ch : line) {
        const unsigned char c = static_cast<unsigned char>(ch);
        KX_FUZZ_CHECK(c >= 0x20 || (c == '\t' && keepTabs));
        KX_FUZZ_CHECK(c != 0x7F);
        if (!utf8) KX_FUZZ_CHECK(c < 0x80 || c > 0x9F);
    }
    for (char32_t cp : shown) KX_FUZZ_CHECK(cp < 0x80 || cp > 0x9F);
    return 0;
}
