#include "base/kxLogFormat.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

struct Spec {
    bool left = false, zero = false, plus = false, space = false;
    int width = 0;
    int precision = -1;
    int size = 0;  // -2 hh, -1 h, 0 int, 1 long, 2 long long (z, j, t as their widths)
};

// Output that refuses to overflow: a result that would not fit is left to vsnprintf, which
// knows how to cut it.
class Out {
public:
    Out(char* p, size_t size) : m_p(p), m_end(size == 0 ? p : p + size - 1) {}
    bool Put(char c) {
        if (m_p == m_end) return false;
        *m_p++ = c;
        return true;
    }
    bool Put(const char* s, size_t n) {
        if (static_cast<size_t>(m_end - m_p) < n) return false;
        memcpy(m_p, s, n);
        m_p += n;
        return true;
    }
    bool Fill(char c, int n) {
        if (n <= 0) return true;
        if (m_end - m_p < n) return false;
        memset(m_p, c, static_cast<size_t>(n));
        m_p += n;
        return true;
    }
    char* Pos() const { return m_p; }

private:
    char* m_p;
    char* m_end;
};

int SizeOf(char c) {
    switch (c) {
        case 'z':
            return static_cast<int>(sizeof(size_t) / sizeof(long));
        case 'j':
            return 2;
        case 't':
            return static_cast<int>(sizeof(ptrdiff_t) / sizeof(long));
        default:
            return 0;
    }
}

bool PutNumber(Out& out, const Spec& spec, bool negative, uint64_t magnitude, unsigned base,
               bool upper, bool isSigned) {
    // Digits from the last; constant divisors, and 32-bit ones while the value fits (a 64-bit
    // division is a library call on the 32-bit target).
    char digits[24];
    int n = 0;
    if (base == 16) {
        const char* set = upper ? "0123456789ABCDEF" : "0123456789abcdef";
        do {
            digits[n++] = set[magnitude & 15];
            magnitude >>= 4;
        } while (magnitude != 0);
    } else {
        for (; magnitude > 0xFFFFFFFFu; magnitude /= 10)
            digits[n++] = static_cast<char>('0' + magnitude % 10);
        uint32_t small = static_cast<uint32_t>(magnitude);
        do {
            digits[n++] = static_cast<char>('0' + small % 10);
            small /= 10;
        } while (small != 0);
    }
    char sign = 0;
    if (negative)
        sign = '-';
    else if (isSigned && spec.plus)
        sign = '+';
    else if (isSigned && spec.space)
        sign = ' ';
    const int len = n + (sign != 0 ? 1 : 0);
    const int pad = spec.width - len;
    if (!spec.left && !spec.zero && !out.Fill(' ', pad)) return false;
    if (sign != 0 && !out.Put(sign)) return false;
    if (!spec.left && spec.zero && !out.Fill('0', pad)) return false;
    char text[24];
    for (int i = 0; i < n; ++i) text[i] = digits[n - 1 - i];
    if (!out.Put(text, static_cast<size_t>(n))) return false;
    return !spec.left || out.Fill(' ', pad);
}

bool PutText(Out& out, const Spec& spec, const char* s, size_t n) {
    const int pad = spec.width - static_cast<int>(n);
    if (!spec.left && !out.Fill(' ', pad)) return false;
    if (!out.Put(s, n)) return false;
    return !spec.left || out.Fill(' ', pad);
}

// -1: not handled here (unsupported, or it does not fit).
int Fast(char* buffer, size_t bufferSize, const char* f, va_list args) {
    Out out(buffer, bufferSize);
    if (bufferSize == 0) return -1;
    while (*f != '\0') {
        if (*f != '%') {
            const char* next = strchrnul(f, '%');
            if (!out.Put(f, static_cast<size_t>(next - f))) return -1;
            f = next;
            continue;
        }
        ++f;
        if (*f == '%') {
            if (!out.Put('%')) return -1;
            ++f;
            continue;
        }
        Spec spec;
        for (;; ++f) {
            if (*f == '-')
                spec.left = true;
            else if (*f == '0')
                spec.zero = true;
            else if (*f == '+')
                spec.plus = true;
            else if (*f == ' ')
                spec.space = true;
            else
                break;
        }
        while (*f >= '0' && *f <= '9') {
            spec.width = spec.width * 10 + (*f++ - '0');
            if (spec.width > 4096) return -1;
        }
        if (*f == '.') {
            ++f;
            spec.precision = 0;
            while (*f >= '0' && *f <= '9') {
                spec.precision = spec.precision * 10 + (*f++ - '0');
                if (spec.precision > 1 << 20) return -1;
            }
        }
        if (*f == 'h') {
            spec.size = -1;
            if (*++f == 'h') {
                spec.size = -2;
                ++f;
            }
        } else if (*f == 'l') {
            spec.size = 1;
            if (*++f == 'l') {
                spec.size = 2;
                ++f;
            }
        } else if (*f == 'z' || *f == 'j' || *f == 't') {
            spec.size = SizeOf(*f++);
        }
        const char conv = *f++;
        switch (conv) {
            case 'd':
            case 'i': {
                if (spec.precision >= 0) return -1;
                int64_t v;
                if (spec.size == 2)
                    v = va_arg(args, long long);
                else if (spec.size == 1)
                    v = va_arg(args, long);
                else
                    v = va_arg(args, int);
                if (spec.size == -1) v = static_cast<short>(v);
                if (spec.size == -2) v = static_cast<signed char>(v);
                const uint64_t magnitude =
                    v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
                if (!PutNumber(out, spec, v < 0, magnitude, 10, false, true)) return -1;
                break;
            }
            case 'u':
            case 'x':
            case 'X': {
                if (spec.precision >= 0) return -1;
                uint64_t v;
                if (spec.size == 2)
                    v = va_arg(args, unsigned long long);
                else if (spec.size == 1)
                    v = va_arg(args, unsigned long);
                else
                    v = va_arg(args, unsigned);
                if (spec.size == -1) v = static_cast<unsigned short>(v);
                if (spec.size == -2) v = static_cast<unsigned char>(v);
                if (!PutNumber(out, spec, false, v, conv == 'u' ? 10 : 16, conv == 'X', false))
                    return -1;
                break;
            }
            case 'c': {
                if (spec.size != 0 || spec.precision >= 0 || spec.zero) return -1;
                const char c = static_cast<char>(va_arg(args, int));
                if (!PutText(out, spec, &c, 1)) return -1;
                break;
            }
            case 's': {
                if (spec.size != 0 || spec.zero) return -1;
                const char* s = va_arg(args, const char*);
                if (s == nullptr) return -1;
                const size_t n = spec.precision >= 0
                                     ? strnlen(s, static_cast<size_t>(spec.precision))
                                     : strlen(s);
                if (!PutText(out, spec, s, n)) return -1;
                break;
            }
            default:
                return -1;
        }
    }
    *out.Pos() = '\0';
    return static_cast<int>(out.Pos() - buffer);
}

}  // namespace

int kxLogFormat(char* out, size_t size, const char* format, va_list args) {
    va_list mine;
    va_copy(mine, args);
    int n = Fast(out, size, format, mine);
    va_end(mine);
    if (n >= 0) return n;
    va_copy(mine, args);
    n = vsnprintf(out, size, format, mine);
    va_end(mine);
    return n;
}
