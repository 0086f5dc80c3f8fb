// The string's companions: empty sentinel, size-class pools and conversion helpers.
#include <cstddef>
#include <cstdlib>

#include "base/KCFixedAlloc.h"
#include "base/KCString.h"

namespace kxStrUtils {

const char afxChNil = '\0';

KCStringInitData _afxInitData = {{-1, 0, 0}, {0, 0, 0, 0}};
static_assert(offsetof(KCStringInitData, text) == sizeof(KCStringData), "text follows header");
KCStringData* const _afxDataNil = &_afxInitData.header;
const char* const _afxPchNil = _afxInitData.text;

// Built before every other static object and destroyed after them, so that strings held by
// other statics may be created and released during their construction and destruction.
__attribute__((init_priority(101))) KCFixedAlloc _afxAlloc64(80, 64);
__attribute__((init_priority(101))) KCFixedAlloc _afxAlloc128(144, 64);
__attribute__((init_priority(101))) KCFixedAlloc _afxAlloc256(272, 64);
__attribute__((init_priority(101))) KCFixedAlloc _afxAlloc512(528, 64);

int _wcstombsz(char* dst, const wchar_t* src, unsigned count) {
    if (count == 0 && dst != nullptr) return 0;
    int r = static_cast<int>(wcstombs(dst, src, count));
    if (r > 0 && dst != nullptr) dst[r] = '\0';
    return r;
}

int _mbstowcsz(wchar_t* dst, const char* src, unsigned count) {
    if (count == 0 && dst != nullptr) return 0;
    int r = static_cast<int>(mbstowcs(dst, src, count));
    if (r > 0 && dst != nullptr) dst[r - 1] = L'\0';
    return r;
}

bool AfxIsValidString(const char* p, int) { return p != nullptr; }
bool AfxIsValidString(const wchar_t* p, int) { return p != nullptr; }
bool AfxIsValidAddress(const void* p, unsigned, int) { return p != nullptr; }

}  // namespace kxStrUtils
