// KCString: printf-style formatting with an up-front length estimate.
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>

#include "base/KCString.h"

namespace {

constexpr long long kMaxLength = INT_MAX - static_cast<long long>(sizeof(KCStringData)) - 1;

long long ReadNumber(const char*& p) {
    long long n = 0;
    for (; isdigit(static_cast<unsigned char>(*p)); ++p)
        if (n < kMaxLength) n = n * 10 + (*p - '0');
    return n;
}

long long Max(long long a, long long b) { return a > b ? a : b; }

enum class Size { kDefault, kNarrow, kWide, kInt64, kLongDouble };

// "I64" is the library's 64-bit integer prefix; the C library knows it as "ll". Returns true
// and fills out when fmt uses it.
bool TranslateInt64Prefix(const char* fmt, std::string& out) {
    if (strstr(fmt, "I64") == nullptr) return false;
    bool changed = false;
    for (const char* p = fmt; *p != '\0';) {
        if (*p != '%') {
            out += *p++;
            continue;
        }
        out += *p++;
        while (*p != '\0' && strchr("-+ #0*.123456789", *p) != nullptr) out += *p++;
        if (strncmp(p, "I64", 3) == 0) {
            out += "ll";
            p += 3;
            changed = true;
        } else if (*p != '\0') {
            out += *p++;  // the conversion, or the second '%' of "%%"
        }
    }
    return changed;
}

}  // namespace

int KCString::FormatEstimate(const char* fmt, va_list args) {
    if (fmt == nullptr) return 0;
    va_list ap;
    va_copy(ap, args);
    long long total = 0;
    for (const char* p = fmt; *p != '\0'; ++p) {
        if (*p != '%' || *++p == '%') {
            ++total;
            continue;
        }
        long long width = 0;
        bool starWidth = false;
        for (; *p != '\0'; ++p) {
            if (*p == '#')
                total += 2;
            else if (*p == '*') {
                width = va_arg(ap, int);
                starWidth = true;
            } else if (*p != '-' && *p != '+' && *p != '0' && *p != ' ')
                break;
        }
        if (!starWidth) width = ReadNumber(p);
        long long precision = 0;
        if (*p == '.') {
            ++p;
            if (*p == '*') {
                precision = va_arg(ap, int);
                ++p;
            } else {
                precision = ReadNumber(p);
            }
            // As in printf, a negative precision counts as none.
            if (precision < 0) precision = 0;
        }

        // Besides the library's own prefixes, the C99 ones (ll, hh, j, z, t, q) are read so
        // that their arguments are taken at their true size.
        Size size = Size::kDefault;
        if (strncmp(p, "I64", 3) == 0) {
            size = Size::kInt64;
            p += 3;
        } else if (p[0] == 'l' && p[1] == 'l') {
            size = Size::kInt64;
            p += 2;
        } else if (p[0] == 'h' && p[1] == 'h') {
            size = Size::kNarrow;
            p += 2;
        } else {
            switch (*p) {
                case 'h': size = Size::kNarrow; ++p; break;
                case 'l': size = Size::kWide; ++p; break;
                case 'L': size = Size::kLongDouble; ++p; break;
                case 'F': case 'N': ++p; break;
                case 'j': case 'q': size = Size::kInt64; ++p; break;
                case 'z': case 't':
                    if (sizeof(size_t) == 8) size = Size::kInt64;
                    ++p;
                    break;
                default: break;
            }
        }
        if (*p == '\0') break;

        long long item = 0;
        bool textual = true;
        switch (*p) {
            case 'c': case 'C':
                va_arg(ap, int);
                item = 2;
                break;
            case 's': case 'S':
                if ((*p == 's' && size != Size::kWide) || (*p == 'S' && size == Size::kNarrow)) {
                    const char* s = va_arg(ap, const char*);
                    item = s == nullptr ? 6 : Max(1, static_cast<long long>(strlen(s)));
                } else {
                    const wchar_t* s = va_arg(ap, const wchar_t*);
                    item = s == nullptr ? 6 : Max(1, static_cast<long long>(wcslen(s)));
                }
                break;
            default:
                textual = false;
                break;
        }
        if (textual) {
            if (precision != 0 && precision < item) item = precision;
            item = Max(item, width);
        } else {
            switch (*p) {
                case 'd': case 'i': case 'u': case 'x': case 'X': case 'o':
                    if (size == Size::kInt64)
                        va_arg(ap, long long);
                    else
                        va_arg(ap, int);
                    item = Max(width + precision, 32);
                    break;
                case 'e': case 'g': case 'G':
                    if (size == Size::kLongDouble)
                        va_arg(ap, long double);
                    else
                        va_arg(ap, double);
                    item = Max(width + precision, 128);
                    break;
                case 'f': {
                    // The length of the value printed with six more digits than asked for.
                    int w = static_cast<int>(width < INT_MIN ? INT_MIN : width);
                    int prec = static_cast<int>(precision + 6 > INT_MAX ? INT_MAX : precision + 6);
                    int printed;
                    if (size == Size::kLongDouble)
                        printed = snprintf(nullptr, 0, "%*.*Lf", w, prec, va_arg(ap, long double));
                    else
                        printed = snprintf(nullptr, 0, "%*.*f", w, prec, va_arg(ap, double));
                    item = printed < 0 ? 0 : printed;
                    break;
                }
                case 'p':
                    va_arg(ap, void*);
                    item = Max(width + precision, 32);
                    break;
                case 'n':
                    va_arg(ap, void*);
                    break;
                // Not counted (their length is left to the formatting pass), but their double
                // is taken so that the arguments after them are read at the right place.
                case 'E': case 'a': case 'A':
                    if (size == Size::kLongDouble)
                        va_arg(ap, long double);
                    else
                        va_arg(ap, double);
                    break;
                default:
                    break;
            }
        }
        total += item;
        if (total > kMaxLength) total = kMaxLength;
    }
    va_end(ap);
    return static_cast<int>(total < 0 ? 0 : total);
}

void KCString::Format(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    FormatV(fmt, args);
    va_end(args);
}

void KCString::FormatV(const char* fmt, va_list args) {
    if (fmt == nullptr) fmt = "";
    std::string translated;
    const char* cfmt = TranslateInt64Prefix(fmt, translated) ? translated.c_str() : fmt;

    // Formatted into a separate block: the arguments may point into this string's own text.
    KCString out;
    int capacity = FormatEstimate(fmt, args);
    for (int attempt = 0; attempt < 2; ++attempt) {
        va_list ap;
        va_copy(ap, args);
        int written;
        if (capacity == 0) {
            written = vsnprintf(nullptr, 0, cfmt, ap);
        } else {
            char* buffer = out.GetBuffer(capacity);
            written = vsnprintf(buffer, static_cast<size_t>(capacity) + 1, cfmt, ap);
        }
        va_end(ap);
        if (written < 0) {  // a conversion error (e.g. an unconvertible wide character)
            out.Empty();
            break;
        }
        if (written <= capacity) {
            if (capacity != 0) out.ReleaseBuffer(-1);
            break;
        }
        // The estimate fell short (a conversion it does not count, or wide text that grew
        // when converted): size exactly and format again.
        capacity = written;
    }
    if (GetData()->refCount < 0 && !IsNil())
        AssignCopy(out.GetLength(), out.m_pchData);  // a locked block stays in place
    else
        Swap(out);
}
