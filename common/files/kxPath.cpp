#include "files/kxPath.h"

#include <cctype>
#include <cstring>
#include <strings.h>

#include "base/kxLog.h"

namespace kxPath {
namespace {

// ASCII only: paths may hold arbitrary bytes and the drive letter is always ASCII.
bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool IsDriveAt(const char* p) { return IsLetter(p[0]) && p[1] == ':' && p[2] == '\\'; }

char Lower(char c) { return static_cast<char>(tolower(static_cast<unsigned char>(c))); }

bool IsBlank(char c) { return isspace(static_cast<unsigned char>(c)) != 0; }

long CopyOut(const char* begin, size_t length, char* out, unsigned long size) {
    if (length + 1 > size) return KX_E_BUFFER_TOO_SMALL;
    memcpy(out, begin, length);
    out[length] = '\0';
    return KX_OK;
}

// Runs a buffer-form node function on a scratch copy sized for any node of p.
long NodeToString(long (*fn)(const char*, char*, unsigned long), const char* p, std::string& out) {
    if (p == nullptr) return KX_E_BAD_ARGUMENT;
    std::string scratch(strlen(p) + 4, '\0');
    long status = fn(p, &scratch[0], static_cast<unsigned long>(scratch.size()));
    if (status == KX_OK) {
        scratch.resize(strlen(scratch.c_str()));
        out.swap(scratch);
    }
    return status;
}

// The pieces of a UNC name, as pointers into it.
struct UncParts {
    const char* server = nullptr;
    size_t serverLen = 0;
    const char* share = nullptr;
    size_t shareLen = 0;
    const char* remainder = nullptr;  // null when no separator follows the share
};

long ParseUnc(const char* p, UncParts& parts) {
    if (p == nullptr || p[0] != '\\' || p[1] != '\\' || p[2] == '\\') return KX_E_BAD_ARGUMENT;
    int prefix = 0;
    bool isDrive = false;
    if (!GetLongPathPrefixLen(p, prefix, &isDrive) || isDrive) return KX_E_BAD_ARGUMENT;
    const char* s = p + (prefix == 8 ? 8 : 2);

    const char* e = s;
    while (*e != '\0' && !IsSlash(*e)) ++e;
    if (e == s || e - s > static_cast<long>(kMaxUncServer)) return KX_E_BAD_ARGUMENT;
    parts.server = s;
    parts.serverLen = static_cast<size_t>(e - s);
    if (*e == '\0') {
        parts.share = e;
        return KX_OK;
    }
    s = e + 1;
    if (IsSlash(*s)) return KX_E_BAD_ARGUMENT;

    e = s;
    while (*e != '\0' && !IsSlash(*e)) ++e;
    if (e - s > static_cast<long>(kMaxUncShare)) return KX_E_BAD_ARGUMENT;
    parts.share = s;
    parts.shareLen = static_cast<size_t>(e - s);
    if (*e == '\0') return KX_OK;
    if (IsSlash(e[1])) return KX_E_BAD_ARGUMENT;
    parts.remainder = e + 1;
    return KX_OK;
}

void Emit(char* out, const char* text, size_t length) {
    if (out == nullptr) return;
    if (length > 0) memcpy(out, text, length);  // text may be null when there is nothing
    out[length] = '\0';
}

// One pass of TightenPath: validates p and, when `write` is set, compacts it in place. The
// written text is never longer than what has been read, so compaction is safe.
bool Tighten(char* p, bool write) {
    const char* r = p;
    while (*r == ' ') ++r;
    char* w = p;
    auto put = [&](char c) {
        if (write) *w = c;
        ++w;
    };

    int prefix = 0;
    bool isDrive = false;
    size_t root = 0;
    if (GetLongPathPrefixLen(r, prefix, &isDrive) && prefix > 0) {
        root = static_cast<size_t>(prefix);
    } else if (r[0] == '\\' && r[1] == '\\') {
        root = 2;
    } else if (IsSlash(r[0])) {
        root = 1;
    }
    for (size_t i = 0; i < root; ++i) put(*r++);

    for (;;) {
        const char* start = r;
        while (*r != '\0' && !IsSlash(*r)) ++r;
        const char* end = r;
        while (end > start && end[-1] == ' ') --end;
        if (end == start && *r != '\0') return false;  // empty component followed by more
        for (const char* c = start; c < end; ++c) put(*c);
        if (*r == '\0') break;
        put(*r++);
    }
    put('\0');
    return true;
}

}  // namespace

bool IsSlash(char c) { return c == '\\' || c == '/'; }

bool GetLongPathPrefixLen(const char* p, int& length, bool* isDrive) {
    length = 0;
    if (isDrive != nullptr) *isDrive = false;
    if (p == nullptr || p[0] == '\0') return true;
    if (!(IsSlash(p[0]) && IsSlash(p[1]) && p[2] == '?')) return true;
    if (p[0] != '\\' || p[1] != '\\' || p[3] != '\\') return false;
    // "\\?\UNC\" needs a server name after it; a bare prefix is malformed.
    if (Lower(p[4]) == 'u' && Lower(p[5]) == 'n' && Lower(p[6]) == 'c' && p[7] == '\\' &&
        p[8] != '\0' && !IsSlash(p[8])) {
        length = 8;
    } else if (IsDriveAt(p + 4)) {
        length = 4;
    } else {
        return false;
    }
    if (isDrive != nullptr) *isDrive = (length == 4);
    return true;
}

eFormat GetFormat(const char* p) {
    if (p == nullptr || p[0] == '\0') return eInvalid;
    if (p[0] == '\\' && p[1] == '\\') {
        int length = 0;
        bool isDrive = false;
        if (!GetLongPathPrefixLen(p, length, &isDrive)) return eInvalid;
        if (length == 0) return eUnc;
        return isDrive ? eLongDos : eLongUnc;
    }
    if (p[0] == '/') return eUnix;
    if (IsDriveAt(p)) return eDos;
    const char* colon = strchr(p, ':');
    if (colon == nullptr) return eInvalid;
    const char* rest = colon + 1;
    if (rest[0] == '/') return eRemoteUnix;
    if (IsDriveAt(rest)) return eRemoteDos;
    int length = 0;
    bool isDrive = false;
    if (GetLongPathPrefixLen(rest, length, &isDrive) && isDrive) return eRemoteLongDos;
    return eInvalid;
}

bool ValidateFormat(const char* p, eFormat accepted) {
    const uint32_t format = GetFormat(p);
    return format != eInvalid && (format & ~static_cast<uint32_t>(accepted)) == 0;
}

int GetUncPathContents(const char* p) {
    UncParts parts;
    if (ParseUnc(p, parts) != KX_OK || parts.serverLen == 0) return 0;
    const char* rest = parts.remainder;
    if (rest != nullptr && *rest != '\0') {
        if (IsSlash(rest[0]) || strlen(rest) > kMaxUncRemainder) return 0;
        for (const char* c = rest; c[1] != '\0'; ++c) {
            if (IsSlash(c[0]) && IsSlash(c[1])) return 0;
        }
    }
    const bool hasShare = parts.shareLen > 0;
    const bool hasRest = rest != nullptr && *rest != '\0';
    if (hasShare && hasRest) return 3;
    return hasShare ? 2 : 1;
}

const char* GetLastSlash(const char* p) {
    if (p == nullptr) return nullptr;
    const char* last = nullptr;
    for (; *p != '\0'; ++p) {
        if (IsSlash(*p)) last = p;
    }
    return last;
}

char* GetLastSlash(char* p) { return const_cast<char*>(GetLastSlash(static_cast<const char*>(p))); }

const char* GetNextSlash(const char* p, bool alsoForward) {
    if (p == nullptr) return nullptr;
    for (; *p != '\0'; ++p) {
        if (*p == '\\' || (alsoForward && *p == '/')) return p;
    }
    return nullptr;
}

char* GetNextSlash(char* p, bool alsoForward) {
    return const_cast<char*>(GetNextSlash(static_cast<const char*>(p), alsoForward));
}

long GetFirstNode(const char* p, char* out, unsigned long size) {
    if (p == nullptr || out == nullptr) return KX_E_BAD_ARGUMENT;
    if (p[0] == '/') return CopyOut("/", 1, out, size);
    const char* s = p;
    if (p[0] == '\\' && p[1] == '\\') {
        int length = 0;
        s = (GetLongPathPrefixLen(p, length, nullptr) && length > 0) ? p + length : p + 2;
    }
    const char* e = s;
    while (*e != '\0' && !IsSlash(*e) && *e != ':') ++e;
    if (*e == ':' && e - s == 1 && e[1] == '\\') e += 2;
    return CopyOut(s, static_cast<size_t>(e - s), out, size);
}

long GetFirstNode(const char* p, std::string& out) {
    return NodeToString(static_cast<long (*)(const char*, char*, unsigned long)>(&GetFirstNode),
                        p, out);
}

long GetLastNode(const char* p, char* out, unsigned long size) {
    if (p == nullptr || out == nullptr) return KX_E_BAD_ARGUMENT;
    if (p[0] == '/' && p[1] == '\0') return CopyOut("/", 1, out, size);
    size_t end = strlen(p);
    if (end > 0 && IsSlash(p[end - 1])) --end;
    size_t start = 1;
    for (size_t i = end; i > 1; --i) {
        if (IsSlash(p[i - 1])) {
            start = i;
            break;
        }
    }
    if (start > end) start = end;
    return CopyOut(p + start, end - start, out, size);
}

long GetLastNode(const char* p, std::string& out) {
    return NodeToString(static_cast<long (*)(const char*, char*, unsigned long)>(&GetLastNode),
                        p, out);
}

long SplitUnc2(const char* p, char* server, char* share, const char*& remainder) {
    remainder = nullptr;
    UncParts parts;
    long status = ParseUnc(p, parts);
    if (status != KX_OK) return status;
    Emit(server, parts.server, parts.serverLen);
    Emit(share, parts.share, parts.shareLen);
    remainder = parts.remainder;
    return KX_OK;
}

long SplitUnc(const char* p, char* server, char* share, char* remainder) {
    UncParts parts;
    long status = ParseUnc(p, parts);
    if (status != KX_OK) return status;
    const size_t restLen = parts.remainder != nullptr ? strlen(parts.remainder) : 0;
    if (restLen > kMaxUncRemainder) return KX_E_BAD_ARGUMENT;
    Emit(server, parts.server, parts.serverLen);
    Emit(share, parts.share, parts.shareLen);
    Emit(remainder, parts.remainder, restLen);
    return KX_OK;
}

long SplitDfs(const char* p, char* server, char* share) {
    UncParts parts;
    long status = ParseUnc(p, parts);
    if (status != KX_OK) return status;
    if (parts.shareLen == 0) return KX_E_BAD_ARGUMENT;
    Emit(server, parts.server, parts.serverLen);
    Emit(share, parts.share, parts.shareLen);
    return KX_OK;
}

bool PathMatch(const char* a, const char* b, ePathMatchType type, bool caseSensitive) {
    const bool aEmpty = a == nullptr || a[0] == '\0';
    const bool bEmpty = b == nullptr || b[0] == '\0';
    if (aEmpty && bEmpty) return true;
    if (aEmpty || bEmpty) return false;

    auto exact = [&](const char* x, const char* y) {
        return (caseSensitive ? strcmp(x, y) : strcasecmp(x, y)) == 0;
    };
    auto child = [&](const char* x, const char* y) {
        const size_t ny = strlen(y);
        if (strlen(x) <= ny) return false;
        const int cmp = caseSensitive ? strncmp(x, y, ny) : strncasecmp(x, y, ny);
        return cmp == 0 && IsSlash(x[ny]);
    };
    switch (type) {
        case eExact: return exact(a, b);
        case eChild: return child(a, b);
        case eExactOrChild: return exact(a, b) || child(a, b);
        case eParent: return child(b, a);
        case eExactOrParent: return exact(a, b) || child(b, a);
    }
    kxLogPrintfA(KX_E_BAD_ARGUMENT, kxLogSevFailure, "%s: unknown match type %d",
                 "kxPath::PathMatch", static_cast<int>(type));
    return false;
}

bool Append(char* path, const char* more, char separator) {
    if (path == nullptr) return false;
    if (separator == '\0') {
        switch (GetFormat(path)) {
            case eUnix:
            case eRemoteUnix: separator = '/'; break;
            case eInvalid: return false;
            default: separator = '\\'; break;
        }
    }
    size_t length = strlen(path);
    if (length == 0 || !IsSlash(path[length - 1])) {
        path[length++] = separator;
        path[length] = '\0';
    }
    if (more != nullptr) {
        if (IsSlash(more[0])) ++more;
        memmove(path + length, more, strlen(more) + 1);
    }
    return true;
}

bool Append(std::string& path, const char* more, char separator) {
    const size_t length = path.size();
    path.resize(length + 1 + (more != nullptr ? strlen(more) : 0) + 1);
    const bool ok = Append(&path[0], more, separator);
    path.resize(strlen(path.c_str()));
    return ok;
}

void StripLeading(char* p, bool blanks, bool slashes) {
    if (p == nullptr) return;
    size_t n = 0;
    while (p[n] != '\0' && ((blanks && IsBlank(p[n])) || (slashes && IsSlash(p[n])))) ++n;
    if (n == 0 || p[n] == '\0') return;  // all of it would go: keep it (deliberate)
    memmove(p, p + n, strlen(p + n) + 1);
}

void StripLeading(std::string& s, bool blanks, bool slashes) {
    StripLeading(&s[0], blanks, slashes);
    s.resize(strlen(s.c_str()));
}

void StripTrailing(char* p, bool blanks, bool slashes) {
    if (p == nullptr) return;
    size_t n = strlen(p);
    while (n > 0 && ((blanks && IsBlank(p[n - 1])) || (slashes && IsSlash(p[n - 1])))) --n;
    p[n] = '\0';
}

void StripTrailing(std::string& s, bool blanks, bool slashes) {
    StripTrailing(&s[0], blanks, slashes);
    s.resize(strlen(s.c_str()));
}

bool TightenPath(char* p) {
    if (p == nullptr) return false;
    if (!Tighten(p, false)) return false;
    Tighten(p, true);
    return true;
}

bool TightenPath(std::string& s) {
    if (!TightenPath(&s[0])) return false;
    s.resize(strlen(s.c_str()));
    return true;
}

void Normalize(std::string& s) {
    const eFormat format = GetFormat(s.c_str());
    if (format == eUnix || format == eRemoteUnix) {
        const size_t host = format == eRemoteUnix ? s.find(':') : 0;
        for (size_t i = 0; i < s.size(); ++i) {
            if (i < host) s[i] = Lower(s[i]);
            if (IsSlash(s[i])) s[i] = '/';
        }
        return;
    }
    for (char& c : s) c = IsSlash(c) ? '\\' : Lower(c);
}

}  // namespace kxPath
