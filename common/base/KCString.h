// KCString: the library's 8-bit character string, a reference-counted value type whose copies
// share one heap block until one of them is written (copy-on-write).
//
// The object is a single pointer to the first character of its block, so a KCString can be
// passed wherever a zero-terminated `const char*` is expected. The block (KCStringData) keeps a
// reference count, the length in use and the capacity in front of the characters. Every empty
// string points at one shared, never-freed sentinel (kxStrUtils::_afxPchNil).
//
// Convention: operations return values, not statuses. An allocation that fails is logged and
// raised as std::bad_alloc; the string being changed is left valid (possibly empty, when its old
// block had already been released). Indexes are not checked beyond what each operation states.
//
// Thread safety: one KCString object must not be used by two threads at once, but copies of one
// string may live in different threads: the shared reference count is changed with atomic
// read-modify-write operations (base/kxInterlock.h), not under a lock.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/kxInterlock.h"

// The header in front of the characters of a string. The characters follow it directly and
// hold allocLength + 1 bytes, with a zero at index dataLength.
struct KCStringData {
    int32_t refCount;     // strings sharing the block; -1: locked (or the empty sentinel)
    int32_t dataLength;   // characters in use, terminator not counted
    int32_t allocLength;  // characters the block can hold, terminator not counted

    char* data() { return reinterpret_cast<char*>(this + 1); }
    const char* data() const { return reinterpret_cast<const char*>(this + 1); }
};
static_assert(sizeof(KCStringData) == 12, "three 32-bit fields before the characters");

class KCString {
public:
    // --- Construction and assignment (each constructor starts from the empty sentinel) ---

    KCString();
    // Shares the source's block; a locked source (after LockBuffer) is copied instead.
    // Inline (below), as is the destructor: sharing and dropping a block is the string's most
    // frequent operation, one reference-count change each.
    inline KCString(const KCString& src);
    // Null or "" gives the empty string.
    KCString(const char* text);
    // Exactly n bytes of text, embedded zeros included; n = 0 gives the empty string.
    KCString(const char* text, int n);
    // n copies of ch; n < 1 gives the empty string.
    KCString(char ch, int n);
    // Converted with the current locale (wcstombs); null or empty gives the empty string.
    KCString(const wchar_t* text);
    inline ~KCString();

    // Shares the source block unless either side is locked, in which case the text is copied.
    KCString& operator=(const KCString& src);
    KCString& operator=(const char* text);  // null counts as ""
    KCString& operator=(char ch);
    KCString& operator=(const wchar_t* text);

    KCString& operator+=(const KCString& s);
    KCString& operator+=(const char* text);  // null counts as ""
    KCString& operator+=(char ch);

    friend KCString operator+(const KCString& a, const KCString& b);
    friend KCString operator+(const KCString& a, const char* b);
    friend KCString operator+(const char* a, const KCString& b);
    friend KCString operator+(const KCString& a, char b);
    friend KCString operator+(char a, const KCString& b);

    // --- Access ---

    int GetLength() const { return GetData()->dataLength; }
    int GetAllocLength() const { return GetData()->allocLength; }
    bool IsEmpty() const { return GetData()->dataLength == 0; }
    operator const char*() const { return m_pchData; }
    const char* c_str() const { return m_pchData; }
    char operator[](int i) const { return m_pchData[i]; }
    // The block header; for diagnostics and tests (sharing is visible in refCount).
    const KCStringData* GetData() const { return reinterpret_cast<KCStringData*>(m_pchData) - 1; }

    // strcmp against text (null counts as "").
    int Compare(const char* text) const;

    // --- Buffer access ---

    // Writable characters for at least n characters, keeping the text and its length. The
    // block is kept when unshared and big enough; otherwise a private block of
    // max(n, length) is made. Call ReleaseBuffer when done writing.
    char* GetBuffer(int n);
    // Makes the block private and sets the length to n (strlen of the buffer when n is -1).
    // A length outside 0..capacity is cut to it rather than written past the block.
    void ReleaseBuffer(int n = -1);
    // GetBuffer(n), then the length is n (negative n counts as 0).
    char* GetBufferSetLength(int n);
    // Moves the text into a block of exactly its length when there is spare room. Does not
    // check for sharing: the block is replaced even if other strings share it (they keep it).
    void FreeExtra();
    // GetBuffer(0) and marks the block locked: copies of a locked string get their own block.
    char* LockBuffer();
    // Back to an ordinary private block (refCount 1); no effect on the empty sentinel.
    void UnlockBuffer();
    // Releases the block (a locked one is kept and emptied instead).
    void Empty();
    // Makes the block private and stores ch at i; i is not checked.
    void SetAt(int i, char ch);

    // --- Searching and extraction (0-based positions; -1 means not found) ---

    // -1 when start >= length.
    int Find(char ch) const { return Find(ch, 0); }
    int Find(char ch, int start) const;
    // -1 when start > length: unlike the character search, start == length is a valid place
    // to find "" (both bounds kept on purpose).
    int Find(const char* sub) const { return Find(sub, 0); }
    int Find(const char* sub, int start) const;
    int ReverseFind(char ch) const;
    int FindOneOf(const char* set) const;
    // True for a null or empty prefix; false when the prefix is longer than the string.
    bool StartsWith(const char* prefix) const;

    // Negative first/count count as 0; count is cut to what remains; the whole string comes
    // back as a shared copy.
    KCString Mid(int first) const;
    KCString Mid(int first, int count) const;
    KCString Left(int n) const;
    KCString Right(int n) const;
    KCString SpanIncluding(const char* set) const;
    KCString SpanExcluding(const char* set) const;

    // --- Modification (each makes the block private first) ---

    void MakeUpper();
    void MakeLower();
    // Number of bytes replaced; old == new returns 0 without copying.
    int Replace(char oldCh, char newCh);
    // Number of replacements. Null or empty old returns 0; null new counts as "". Embedded
    // zero bytes do not stop the search.
    int Replace(const char* oldText, const char* newText);
    // Deletes every ch; returns how many were removed.
    int Remove(char ch);
    // index clamped to 0..length; returns the new length.
    int Insert(int index, char ch);
    int Insert(int index, const char* text);
    // Negative index counts as 0; nothing happens when count < 1 or index >= length.
    // Returns the length BEFORE the deletion, and does not clamp count: callers keep
    // index + count <= length. Both kept on purpose for existing callers.
    int Delete(int index, int count = 1);
    void TrimRight();
    void TrimRight(char ch);
    void TrimRight(const char* set);
    void TrimLeft();
    void TrimLeft(char ch);
    void TrimLeft(const char* set);  // null or empty set does nothing

    // printf into the string. The block is sized by FormatEstimate before formatting; the
    // conversions are those of vsprintf, plus the size prefix "I64" for 64-bit integers. The
    // arguments may point into this string. Should the output still exceed the estimate (a
    // conversion the estimate does not count, wide text that grows when converted), it is
    // formatted again at its exact length rather than cut or overrun. A locked block is kept.
    void Format(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void FormatV(const char* fmt, va_list args) __attribute__((format(printf, 2, 0)));

    // The capacity FormatV asks for, from the format and its arguments (args is copied, not
    // consumed): ordinary characters 1; "#" 2 more; strings their length (6 for null, at least
    // 1, cut by a precision, raised by the width); characters 2; integers and pointers
    // max(width + precision, 32); "e", "g", "G" max(width + precision, 128); "f" the printed
    // length with six more digits of precision; "n", "E" and unknown letters 0.
    // Open choice: the C99 size prefixes (ll, hh, j, z, t, q, L) are read too, and "E", "a"
    // and "A" take their double without counting it, so that later arguments are read at the
    // right place on both targets.
    static int FormatEstimate(const char* fmt, va_list args);

private:
    KCStringData* GetData() { return reinterpret_cast<KCStringData*>(m_pchData) - 1; }
    // The header of another string, writable for its reference count.
    static KCStringData* SharedData(const KCString& s) {
        return reinterpret_cast<KCStringData*>(s.m_pchData) - 1;
    }
    bool IsNil() const;

    void Init();
    // A block for n characters (the size class's capacity, or exactly n above 512); the
    // empty sentinel for 0. Throws std::bad_alloc (logged) when no block can be had, or for a
    // negative n (a length sum that overflowed), leaving the string untouched.
    void AllocBuffer(int n);
    [[noreturn]] static void ThrowAllocFailure();
    void SetLength(int n);
    void Swap(KCString& other);
    void Release();
    static void Release(KCStringData* data);
    // The copy constructor's slow path: a locked source.
    void CopyLocked(const KCString& src);
    static void FreeData(KCStringData* data);
    void CopyBeforeWrite();
    void AllocBeforeWrite(int n);
    void AssignCopy(int n, const char* src);
    void AllocCopy(KCString& dest, int copyLen, int copyIndex) const;
    void ConcatCopy(int len1, const char* s1, int len2, const char* s2);
    void ConcatInPlace(int n, const char* s);
    void TrimLeftBy(int n);

    char* m_pchData;
};

#if KX_TARGET_32BIT
static_assert(sizeof(KCString) == 4, "a KCString is a single pointer");
#endif
static_assert(sizeof(KCString) == sizeof(char*), "a KCString is a single pointer");

inline bool operator==(const KCString& a, const char* b) { return a.Compare(b) == 0; }
inline bool operator==(const char* a, const KCString& b) { return b.Compare(a) == 0; }
inline bool operator==(const KCString& a, const KCString& b) { return a.Compare(b) == 0; }
inline bool operator!=(const KCString& a, const char* b) { return a.Compare(b) != 0; }
inline bool operator!=(const char* a, const KCString& b) { return b.Compare(a) != 0; }
inline bool operator!=(const KCString& a, const KCString& b) { return a.Compare(b) != 0; }
inline bool operator<(const KCString& a, const KCString& b) { return a.Compare(b) < 0; }

// The string's companions: the empty-string sentinel, the size-class allocators of string
// blocks, and wide/multibyte conversion helpers.
class KCFixedAlloc;
namespace kxStrUtils {

extern const char afxChNil;
// The empty block: refCount -1, lengths 0, text "". Never counted, freed or written.
struct KCStringInitData {
    KCStringData header;
    char text[4];
};
extern KCStringInitData _afxInitData;
extern KCStringData* const _afxDataNil;
extern const char* const _afxPchNil;

// Pools of string blocks for capacities up to 64, 128, 256 and 512 characters (elements of
// 80, 144, 272 and 528 bytes, 64 per chunk). Built before any other static object of the
// program and destroyed after all of them, which frees every chunk at once.
extern KCFixedAlloc _afxAlloc64;
extern KCFixedAlloc _afxAlloc128;
extern KCFixedAlloc _afxAlloc256;
extern KCFixedAlloc _afxAlloc512;

// wcstombs into dst (count bytes at most) and terminates after the converted bytes when some
// were converted. Returns 0 at once for count 0 with a dst; otherwise wcstombs's result
// ((size_t)-1 as returned on a bad character, truncated to int).
int _wcstombsz(char* dst, const wchar_t* src, unsigned count);
// mbstowcs into dst; a positive result r puts a zero wide character at dst[r - 1],
// overwriting the last converted character (required by existing callers). Returns r.
int _mbstowcsz(wchar_t* dst, const char* src, unsigned count);

// True when the pointer is not null; nothing else is checked.
bool AfxIsValidString(const char* p, int length = -1);
bool AfxIsValidString(const wchar_t* p, int length = -1);
bool AfxIsValidAddress(const void* p, unsigned bytes, int readWrite = 1);

}  // namespace kxStrUtils

inline KCString::KCString(const KCString& src) {
    KCStringData* data = SharedData(src);
    if (data->refCount >= 0) {
        m_pchData = src.m_pchData;
        kxRefIncrement(&data->refCount);
    } else {
        CopyLocked(src);
    }
}

// The sentinel is recognised by its address, a link-time constant.
inline KCString::~KCString() {
    KCStringData* data = GetData();
    if (data != &kxStrUtils::_afxInitData.header && kxRefDecrement(&data->refCount) <= 0)
        FreeData(data);
}
