#include "base/KCString.h"

#include <cctype>
#include <climits>
#include <cstdlib>
#include <cwchar>
#include <new>

#include "base/KCFixedAlloc.h"
#include "base/kxHeap.h"
#include "base/kxInterlock.h"
#include "base/kxLog.h"

using kxStrUtils::_afxPchNil;

namespace {

// Largest length a block can have: header, characters and terminator must fit in an int.
constexpr long long kMaxLength = INT_MAX - static_cast<long long>(sizeof(KCStringData)) - 1;

// The sum of two lengths, or -1 (which AllocBuffer refuses) when it is too long.
int SumLength(long long a, long long b) {
    long long sum = a + b;
    return sum > kMaxLength ? -1 : static_cast<int>(sum);
}

int Length(const char* text) { return text == nullptr ? 0 : SumLength(strlen(text), 0); }

KCFixedAlloc* PoolFor(int capacity) {
    switch (capacity) {
        case 64: return &kxStrUtils::_afxAlloc64;
        case 128: return &kxStrUtils::_afxAlloc128;
        case 256: return &kxStrUtils::_afxAlloc256;
        case 512: return &kxStrUtils::_afxAlloc512;
        default: return nullptr;
    }
}

int ClassCapacity(int n) {
    if (n <= 64) return 64;
    if (n <= 128) return 128;
    if (n <= 256) return 256;
    if (n <= 512) return 512;
    return n;
}

}  // namespace

// ---- Block management ----

bool KCString::IsNil() const { return m_pchData == _afxPchNil; }

void KCString::Init() { m_pchData = const_cast<char*>(_afxPchNil); }

void KCString::AllocBuffer(int n) {
    if (n == 0) {
        Init();
        return;
    }
    KCStringData* data = nullptr;
    int capacity = n < 0 ? 0 : ClassCapacity(n);
    if (KCFixedAlloc* pool = PoolFor(capacity)) {
        size_t bytes = pool->GetElementSize();
        if (!kxHeap::InjectFailure(bytes)) data = static_cast<KCStringData*>(pool->Alloc());
    } else if (n > 0) {
        size_t bytes = static_cast<size_t>(n) + sizeof(KCStringData) + 1;
        try {
            data = reinterpret_cast<KCStringData*>(kxHeap::NewArray(bytes));
        } catch (const std::bad_alloc&) {
            kxLogPrintfA(KX_E_UNHANDLED_EXCEPTION, kxLogSevError,
                         "%s: memory exception allocating %d bytes", "KCString::AllocBuffer",
                         static_cast<int>(bytes));
        }
    }
    if (data == nullptr) ThrowAllocFailure();
    data->refCount = 1;
    data->dataLength = n;
    data->allocLength = capacity;
    data->data()[n] = '\0';
    m_pchData = data->data();
}

void KCString::ThrowAllocFailure() {
    kxLogPrintUnhandledExceptionMessage("KCString::AllocBuffer", kxStatusBits(KX_E_OUT_OF_MEMORY));
    throw std::bad_alloc();
}

void KCString::FreeData(KCStringData* data) {
    if (KCFixedAlloc* pool = PoolFor(data->allocLength))
        pool->Free(data);
    else
        kxHeap::DeleteArray(reinterpret_cast<char*>(data));
}

void KCString::Release(KCStringData* data) {
    if (data != kxStrUtils::_afxDataNil && kxRefDecrement(&data->refCount) <= 0)
        FreeData(data);
}

void KCString::Release() {
    Release(GetData());
    Init();
}

void KCString::SetLength(int n) {
    // The sentinel is never written; it already says "empty".
    if (IsNil()) return;
    // A length from the caller (ReleaseBuffer, GetBufferSetLength) is kept inside the block.
    KCStringData* data = GetData();
    if (n < 0) n = 0;
    if (n > data->allocLength) n = data->allocLength;
    data->dataLength = n;
    m_pchData[n] = '\0';
}

// The new block is filled before the shared one is let go: another holder may free it the
// moment our reference is dropped, and a failed allocation leaves this string as it was.
void KCString::CopyBeforeWrite() {
    KCStringData* old = GetData();
    if (old->refCount <= 1) return;
    AllocBuffer(old->dataLength);
    memcpy(m_pchData, old->data(), static_cast<size_t>(old->dataLength) + 1);
    Release(old);
}

void KCString::AllocBeforeWrite(int n) {
    KCStringData* data = GetData();
    if (data->refCount > 1 || n > data->allocLength) {
        Release();
        AllocBuffer(n);
    }
}

void KCString::AssignCopy(int n, const char* src) {
    if (n < 0) ThrowAllocFailure();
    if (n == 0 && IsNil()) return;
    // src may lie in this string's own block; a shared block stays alive through its other
    // holders, and an unshared block big enough is kept, so the source is still readable.
    KCStringData* data = GetData();
    if (data->refCount > 1 || n > data->allocLength) {
        KCString fresh;
        fresh.AllocBuffer(n);
        if (n > 0) memcpy(fresh.m_pchData, src, static_cast<size_t>(n));
        Swap(fresh);
        return;
    }
    // A null src comes only with n == 0 (a null text counts as empty).
    if (n > 0) memmove(m_pchData, src, static_cast<size_t>(n));
    SetLength(n);
}

void KCString::Swap(KCString& other) {
    char* p = m_pchData;
    m_pchData = other.m_pchData;
    other.m_pchData = p;
}

void KCString::ConcatCopy(int len1, const char* s1, int len2, const char* s2) {
    int total = SumLength(len1, len2);
    if (total == 0) return;
    AllocBuffer(total);
    if (len1 > 0) memcpy(m_pchData, s1, static_cast<size_t>(len1));
    if (len2 > 0) memcpy(m_pchData + len1, s2, static_cast<size_t>(len2));
}

void KCString::ConcatInPlace(int n, const char* s) {
    if (n < 0) ThrowAllocFailure();
    if (n == 0) return;
    KCStringData* data = GetData();
    if (data->refCount < 2 && static_cast<long long>(data->dataLength) + n <= data->allocLength) {
        memcpy(m_pchData + data->dataLength, s, static_cast<size_t>(n));
        SetLength(data->dataLength + n);
        return;
    }
    // s may point into the old block, which is released only after the copy.
    KCString joined;
    joined.ConcatCopy(data->dataLength, m_pchData, n, s);
    Swap(joined);
}

void KCString::AllocCopy(KCString& dest, int copyLen, int copyIndex) const {
    if (copyLen <= 0) {
        dest.Release();
        return;
    }
    KCString part;
    part.AllocBuffer(copyLen);
    memcpy(part.m_pchData, m_pchData + copyIndex, static_cast<size_t>(copyLen));
    dest.Swap(part);
}

// ---- Construction and assignment ----

KCString::KCString() { Init(); }

void KCString::CopyLocked(const KCString& src) {
    Init();
    AssignCopy(SharedData(src)->dataLength, src.m_pchData);
}

KCString::KCString(const char* text) {
    Init();
    AssignCopy(Length(text), text);
}

KCString::KCString(const char* text, int n) {
    Init();
    if (text != nullptr && n > 0) AssignCopy(n, text);
}

KCString::KCString(char ch, int n) {
    Init();
    if (n < 1) return;
    AllocBuffer(n);
    memset(m_pchData, ch, static_cast<size_t>(n));
}

KCString::KCString(const wchar_t* text) {
    Init();
    if (text == nullptr || *text == L'\0') return;
    int n = SumLength(2LL * static_cast<long long>(wcslen(text)), 0);
    // The count leaves the terminator's byte out, so a conversion that fills the whole
    // buffer still has room for its zero.
    int r = kxStrUtils::_wcstombsz(GetBuffer(n), text, static_cast<unsigned>(n));
    // Nothing converted (a bad character, or a first character too wide for the buffer)
    // leaves no terminator behind: the result is then empty.
    ReleaseBuffer(r > 0 ? -1 : 0);
}

KCString& KCString::operator=(const KCString& src) {
    if (m_pchData == src.m_pchData) return *this;
    KCStringData* mine = GetData();
    KCStringData* theirs = SharedData(src);
    if ((mine->refCount < 0 && !IsNil()) || theirs->refCount < 0) {
        AssignCopy(theirs->dataLength, src.m_pchData);
    } else {
        kxRefIncrement(&theirs->refCount);
        Release();
        m_pchData = src.m_pchData;
    }
    return *this;
}

KCString& KCString::operator=(const char* text) {
    AssignCopy(Length(text), text);
    return *this;
}

KCString& KCString::operator=(char ch) {
    AssignCopy(1, &ch);
    return *this;
}

KCString& KCString::operator=(const wchar_t* text) {
    size_t needed = text == nullptr ? 0 : wcstombs(nullptr, text, 0);
    // An unconvertible text ((size_t)-1) assigns the empty string.
    int n = needed == static_cast<size_t>(-1) ? 0 : SumLength(static_cast<long long>(needed), 0);
    if (n == 0) {
        AssignCopy(0, "");
        return *this;
    }
    AllocBeforeWrite(n);
    kxStrUtils::_wcstombsz(m_pchData, text, static_cast<unsigned>(n) + 1);
    ReleaseBuffer(-1);
    return *this;
}

KCString& KCString::operator+=(const KCString& s) {
    ConcatInPlace(s.GetLength(), s.m_pchData);
    return *this;
}

KCString& KCString::operator+=(const char* text) {
    ConcatInPlace(Length(text), text);
    return *this;
}

KCString& KCString::operator+=(char ch) {
    ConcatInPlace(1, &ch);
    return *this;
}

KCString operator+(const KCString& a, const KCString& b) {
    KCString r;
    r.ConcatCopy(a.GetLength(), a.m_pchData, b.GetLength(), b.m_pchData);
    return r;
}

KCString operator+(const KCString& a, const char* b) {
    KCString r;
    r.ConcatCopy(a.GetLength(), a.m_pchData, Length(b), b);
    return r;
}

KCString operator+(const char* a, const KCString& b) {
    KCString r;
    r.ConcatCopy(Length(a), a, b.GetLength(), b.m_pchData);
    return r;
}

KCString operator+(const KCString& a, char b) {
    KCString r;
    r.ConcatCopy(a.GetLength(), a.m_pchData, 1, &b);
    return r;
}

KCString operator+(char a, const KCString& b) {
    KCString r;
    r.ConcatCopy(1, &a, b.GetLength(), b.m_pchData);
    return r;
}

int KCString::Compare(const char* text) const { return strcmp(m_pchData, text ? text : ""); }

// ---- Buffer access ----

char* KCString::GetBuffer(int n) {
    KCStringData* old = GetData();
    if (old->refCount > 1 || n > old->allocLength) {
        int length = old->dataLength;
        AllocBuffer(n > length ? n : length);
        memcpy(m_pchData, old->data(), static_cast<size_t>(length) + 1);
        GetData()->dataLength = length;
        Release(old);
    }
    return m_pchData;
}

void KCString::ReleaseBuffer(int n) {
    CopyBeforeWrite();
    if (n == -1) n = Length(m_pchData);
    SetLength(n);
}

char* KCString::GetBufferSetLength(int n) {
    GetBuffer(n);
    SetLength(n);
    return m_pchData;
}

void KCString::FreeExtra() {
    KCStringData* old = GetData();
    if (old->dataLength == old->allocLength) return;
    AllocBuffer(old->dataLength);
    memcpy(m_pchData, old->data(), static_cast<size_t>(old->dataLength));
    Release(old);
}

char* KCString::LockBuffer() {
    char* p = GetBuffer(0);
    if (!IsNil()) GetData()->refCount = -1;
    return p;
}

void KCString::UnlockBuffer() {
    if (!IsNil()) GetData()->refCount = 1;
}

void KCString::Empty() {
    if (GetLength() == 0) return;
    if (GetData()->refCount >= 0)
        Release();
    else
        AssignCopy(0, "");
}

void KCString::SetAt(int i, char ch) {
    CopyBeforeWrite();
    m_pchData[i] = ch;
}
