// KCString: searching, extraction and in-place modification.
#include <cctype>
#include <climits>
#include <cstring>

#include "base/KCString.h"
#include "base/kxLog.h"

namespace {

// Longest text a block can hold (header, characters and terminator within an int).
constexpr long long kMaxLength = INT_MAX - static_cast<long long>(sizeof(KCStringData)) - 1;

bool IsSpace(char c) { return isspace(static_cast<unsigned char>(c)) != 0; }

}  // namespace

// ---- Searching and extraction ----

int KCString::Find(char ch, int start) const {
    if (start < 0) start = 0;
    if (start >= GetLength()) return -1;
    const char* hit = strchr(m_pchData + start, ch);
    return hit == nullptr ? -1 : static_cast<int>(hit - m_pchData);
}

int KCString::Find(const char* sub, int start) const {
    if (start < 0) start = 0;
    if (start > GetLength()) return -1;
    const char* hit = strstr(m_pchData + start, sub != nullptr ? sub : "");
    return hit == nullptr ? -1 : static_cast<int>(hit - m_pchData);
}

int KCString::ReverseFind(char ch) const {
    const char* hit = strrchr(m_pchData, ch);
    return hit == nullptr ? -1 : static_cast<int>(hit - m_pchData);
}

int KCString::FindOneOf(const char* set) const {
    const char* hit = strpbrk(m_pchData, set != nullptr ? set : "");
    return hit == nullptr ? -1 : static_cast<int>(hit - m_pchData);
}

bool KCString::StartsWith(const char* prefix) const {
    if (prefix == nullptr || *prefix == '\0') return true;
    size_t n = strlen(prefix);
    if (n > static_cast<size_t>(GetLength())) return false;
    return strncmp(m_pchData, prefix, n) == 0;
}

KCString KCString::Mid(int first) const { return Mid(first, GetLength() - (first < 0 ? 0 : first)); }

KCString KCString::Mid(int first, int count) const {
    if (first < 0) first = 0;
    if (count < 0) count = 0;
    int length = GetLength();
    if (first >= length) return KCString();
    if (count > length - first) count = length - first;
    if (first == 0 && count == length) return *this;
    KCString part;
    AllocCopy(part, count, first);
    return part;
}

KCString KCString::Left(int n) const {
    if (n < 0) n = 0;
    if (n >= GetLength()) return *this;
    KCString part;
    AllocCopy(part, n, 0);
    return part;
}

KCString KCString::Right(int n) const {
    if (n < 0) n = 0;
    int length = GetLength();
    if (n >= length) return *this;
    KCString part;
    AllocCopy(part, n, length - n);
    return part;
}

KCString KCString::SpanIncluding(const char* set) const {
    return Left(static_cast<int>(strspn(m_pchData, set != nullptr ? set : "")));
}

KCString KCString::SpanExcluding(const char* set) const {
    return Left(static_cast<int>(strcspn(m_pchData, set != nullptr ? set : "")));
}

// ---- Modification ----

void KCString::MakeUpper() {
    CopyBeforeWrite();
    for (char* p = m_pchData; *p != '\0'; ++p) *p = static_cast<char>(toupper(static_cast<unsigned char>(*p)));
}

void KCString::MakeLower() {
    CopyBeforeWrite();
    for (char* p = m_pchData; *p != '\0'; ++p) *p = static_cast<char>(tolower(static_cast<unsigned char>(*p)));
}

int KCString::Replace(char oldCh, char newCh) {
    if (oldCh == newCh) return 0;
    CopyBeforeWrite();
    int count = 0;
    char* end = m_pchData + GetLength();
    for (char* p = m_pchData; p < end; ++p) {
        if (*p == oldCh) {
            *p = newCh;
            ++count;
        }
    }
    return count;
}

int KCString::Replace(const char* oldText, const char* newText) {
    int oldLen = oldText == nullptr ? 0 : static_cast<int>(strlen(oldText));
    if (oldLen == 0) return 0;
    if (newText == nullptr) newText = "";
    int newLen = static_cast<int>(strlen(newText));

    // Matches are searched run by run, so embedded zero bytes do not end the scan.
    int count = 0;
    const char* end = m_pchData + GetLength();
    for (const char* start = m_pchData; start < end; start += strlen(start) + 1) {
        const char* hit;
        while ((hit = strstr(start, oldText)) != nullptr) {
            ++count;
            start = hit + oldLen;
        }
    }
    if (count == 0) return 0;

    CopyBeforeWrite();
    int length = GetLength();
    long long wanted = length + static_cast<long long>(newLen - oldLen) * count;
    if (wanted > kMaxLength) ThrowAllocFailure();
    int finalLen = static_cast<int>(wanted);
    if (GetData()->allocLength < finalLen) {
        KCString bigger;
        bigger.AllocBuffer(finalLen);
        memcpy(bigger.m_pchData, m_pchData, static_cast<size_t>(length) + 1);
        Swap(bigger);
    }

    char* text = m_pchData;
    for (char* start = text; start < text + length; start += strlen(start) + 1) {
        char* hit;
        while ((hit = strstr(start, oldText)) != nullptr) {
            // Move the rest (with the final terminator) to fit the replacement.
            size_t rest = static_cast<size_t>(length - (hit - text) - oldLen) + 1;
            memmove(hit + newLen, hit + oldLen, rest);
            memcpy(hit, newText, static_cast<size_t>(newLen));
            length += newLen - oldLen;
            start = hit + newLen;
        }
    }
    SetLength(finalLen);
    return count;
}

int KCString::Remove(char ch) {
    CopyBeforeWrite();
    int length = GetLength();
    char* out = m_pchData;
    for (const char* in = m_pchData; in < m_pchData + length; ++in)
        if (*in != ch) *out++ = *in;
    int removed = static_cast<int>(m_pchData + length - out);
    if (removed != 0) SetLength(length - removed);
    return removed;
}

int KCString::Insert(int index, char ch) {
    char text[2] = {ch, '\0'};
    if (ch != '\0') return Insert(index, text);
    // A zero byte cannot travel as text; insert a placeholder and put the zero in its place.
    text[0] = 1;
    if (index < 0) index = 0;
    if (index > GetLength()) index = GetLength();
    int newLength = Insert(index, text);
    m_pchData[index] = '\0';
    return newLength;
}

int KCString::Insert(int index, const char* text) {
    int n = text == nullptr ? 0 : static_cast<int>(strlen(text));
    int length = GetLength();
    if (n == 0) return length;
    if (index < 0) index = 0;
    if (index > length) index = length;
    // The text may lie in this string's block, which is about to be moved or replaced.
    KCString own;
    if (text >= m_pchData && text <= m_pchData + GetData()->allocLength) {
        own = KCString(text, n);
        text = own.m_pchData;
    }
    CopyBeforeWrite();
    if (static_cast<long long>(length) + n > kMaxLength) ThrowAllocFailure();
    int newLength = length + n;
    if (GetData()->allocLength < newLength) {
        KCString bigger;
        bigger.AllocBuffer(newLength);
        memcpy(bigger.m_pchData, m_pchData, static_cast<size_t>(length) + 1);
        Swap(bigger);
    }
    memmove(m_pchData + index + n, m_pchData + index, static_cast<size_t>(length - index) + 1);
    memcpy(m_pchData + index, text, static_cast<size_t>(n));
    SetLength(newLength);
    return newLength;
}

int KCString::Delete(int index, int count) {
    if (index < 0) index = 0;
    int length = GetLength();
    if (count < 1 || index >= length) return length;
    if (count > length - index) {
        // The count is not cut down to what is there: the call is refused and the text kept.
        kxLogPrintfA(KX_E_BAD_ARGUMENT, kxLogSevWarning,
                     "%s: index %d + count %d passes the length %d", "KCString::Delete", index,
                     count, length);
        return length;
    }
    CopyBeforeWrite();
    memmove(m_pchData + index, m_pchData + index + count,
            static_cast<size_t>(length - index - count) + 1);
    SetLength(length - count);
    return length;
}

void KCString::TrimRight() {
    CopyBeforeWrite();
    int n = GetLength();
    while (n > 0 && IsSpace(m_pchData[n - 1])) --n;
    if (n != GetLength()) SetLength(n);
}

void KCString::TrimRight(char ch) {
    CopyBeforeWrite();
    int n = GetLength();
    while (n > 0 && m_pchData[n - 1] == ch) --n;
    if (n != GetLength()) SetLength(n);
}

void KCString::TrimRight(const char* set) {
    if (set == nullptr || *set == '\0') return;
    CopyBeforeWrite();
    int n = GetLength();
    while (n > 0 && m_pchData[n - 1] != '\0' && strchr(set, m_pchData[n - 1]) != nullptr) --n;
    if (n != GetLength()) SetLength(n);
}

void KCString::TrimLeftBy(int n) {
    if (n == 0) return;
    int length = GetLength();
    memmove(m_pchData, m_pchData + n, static_cast<size_t>(length - n) + 1);
    SetLength(length - n);
}

void KCString::TrimLeft() {
    CopyBeforeWrite();
    int n = 0;
    while (n < GetLength() && IsSpace(m_pchData[n])) ++n;
    TrimLeftBy(n);
}

void KCString::TrimLeft(char ch) {
    CopyBeforeWrite();
    int n = 0;
    while (n < GetLength() && m_pchData[n] == ch) ++n;
    TrimLeftBy(n);
}

void KCString::TrimLeft(const char* set) {
    if (set == nullptr || *set == '\0') return;
    CopyBeforeWrite();
    int n = 0;
    while (n < GetLength() && m_pchData[n] != '\0' && strchr(set, m_pchData[n]) != nullptr) ++n;
    TrimLeftBy(n);
}
