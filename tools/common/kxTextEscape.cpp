#include "kxTextEscape.h"

#include <cstdio>

namespace kxtools {

namespace {

bool Continuation(unsigned char c) { return (c & 0xC0) == 0x80; }

void AppendHex(std::string& out, const char* form, unsigned value) {
    char esc[8];
    snprintf(esc, sizeof esc, form, value);
    out += esc;
}

}  // namespace

bool ValidUtf8(const std::string& s) {
    const size_t n = s.size();
    for (size_t i = 0; i < n;) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        if (c < 0x80) {
            ++i;
            continue;
        }
        size_t length;
        // The second byte's range rules out overlong forms, surrogates and code points past
        // U+10FFFF; the later bytes are plain continuation bytes.
        unsigned char low = 0x80, high = 0xBF;
        if (c >= 0xC2 && c <= 0xDF) {
            length = 2;
        } else if (c >= 0xE0 && c <= 0xEF) {
            length = 3;
            if (c == 0xE0) low = 0xA0;
            if (c == 0xED) high = 0x9F;
        } else if (c >= 0xF0 && c <= 0xF4) {
            length = 4;
            if (c == 0xF0) low = 0x90;
            if (c == 0xF4) high = 0x8F;
        } else {
            return false;
        }
        if (n - i < length) return false;
        const unsigned char second = static_cast<unsigned char>(s[i + 1]);
        if (second < low || second > high) return false;
        for (size_t k = 2; k < length; ++k)
            if (!Continuation(static_cast<unsigned char>(s[i + k]))) return false;
        i += length;
    }
    return true;
}

std::string TerminalText(const std::string& s, bool keepTabs) {
    const bool utf8 = ValidUtf8(s);
    std::string out;
    out.reserve(s.size());
    for (size_t k = 0; k < s.size(); ++k) {
        const unsigned char c = static_cast<unsigned char>(s[k]);
        if (c == '\n') {
            out += "\\n";
        } else if ((c < 0x20 && !(c == '\t' && keepTabs)) || c == 0x7F) {
            AppendHex(out, "\\x%02X", c);
        } else if (!utf8 && c >= 0x80 && c <= 0x9F) {
            AppendHex(out, "\\x%02X", c);
        } else if (utf8 && c == 0xC2 && k + 1 < s.size() &&
                   static_cast<unsigned char>(s[k + 1]) <= 0x9F) {
            // U+0080..U+009F: ValidUtf8 guarantees the second byte is at least 0x80.
            AppendHex(out, "\\x%02X", static_cast<unsigned char>(s[++k]));
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

std::string JsonEscape(const std::string& s) {
    const bool utf8 = ValidUtf8(s);
    std::string out;
    out.reserve(s.size() + 2);
    for (char ch : s) {
        const unsigned char c = static_cast<unsigned char>(ch);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += ch;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7F || (!utf8 && c >= 0x80)) {
            AppendHex(out, "\\u%04x", c);
        } else {
            out += ch;
        }
    }
    return out;
}

}  // namespace kxtools
