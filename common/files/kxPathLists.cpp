// The two kxPath functions that build lists: the illegal characters of a name and the pattern
// list of a set of file specifications. They are the only ones that need the string and buffer
// types.

#include <cstring>

#include "base/KBuffer.h"
#include "base/KCString.h"
#include "files/kxPath.h"

namespace kxPath {
namespace {

// Bit i of `allowed` lets character i through.
constexpr char kIllegalChars[] = "\\/:*?\"<>|";

const char* const kSpecCaller = "kxPath::SetPathSpecListString";

// Appends bytes to the pattern storage, growing it as needed. Every byte written counts as used,
// so a resize keeps all of them.
class PatternWriter {
public:
    explicit PatternWriter(KBuffer& storage) : storage_(storage) {}
    PatternWriter(const PatternWriter&) = delete;
    PatternWriter& operator=(const PatternWriter&) = delete;

    long Put(const char* text, size_t length) {
        const unsigned long needed = storage_.GetBytesUsed() + static_cast<unsigned long>(length);
        if (needed > storage_.GetSize()) {
            // Grow by at least half again, so that many short items do not resize each time.
            const unsigned long grown = storage_.GetSize() + storage_.GetSize() / 2;
            if (storage_.Resize(needed > grown ? needed : grown, kSpecCaller) != KX_OK ||
                storage_.GetSize() < needed) {
                return KX_E_OUT_OF_MEMORY;
            }
        }
        if (length > 0) memcpy(storage_.GetPtr(storage_.GetBytesUsed(), 0), text, length);
        return storage_.IncreaseBytesUsed(static_cast<unsigned long>(length));
    }
    long Terminate() { return Put("", 1); }

private:
    KBuffer& storage_;
};

// One pattern: prefix (may be empty), the item, a "*" when the item ends with a separator.
long PutPattern(PatternWriter& w, const char* prefix, const char* item, size_t length) {
    long status = w.Put(prefix, strlen(prefix));
    if (status == KX_OK) status = w.Put(item, length);
    if (status == KX_OK && IsSlash(item[length - 1])) status = w.Put("*", 1);
    if (status == KX_OK) status = w.Terminate();
    return status;
}

long PutItem(PatternWriter& w, const char* item, size_t length) {
    bool anchored = IsSlash(item[0]) || item[0] == '*';
    for (size_t i = 0; !anchored && i + 1 < length; ++i) {
        anchored = item[i] == ':' && IsSlash(item[i + 1]);
    }
    if (anchored) return PutPattern(w, "", item, length);

    const bool forward = memchr(item, '/', length) != nullptr;
    const bool backward = memchr(item, '\\', length) != nullptr;
    if (forward != backward) return PutPattern(w, forward ? "*/" : "*\\", item, length);
    // Both kinds or none: the item may be meant for either syntax, so match both.
    long status = PutPattern(w, "*/", item, length);
    if (status == KX_OK) status = PutPattern(w, "*\\", item, length);
    return status;
}

}  // namespace

bool HasIllegalPathChars(const char* p, unsigned long allowed, KCString* list) {
    if (p == nullptr || p[0] == '\0') return false;
    char set[sizeof kIllegalChars] = {};
    char text[2 * sizeof kIllegalChars] = {};
    size_t n = 0;
    size_t t = 0;
    for (size_t i = 0; kIllegalChars[i] != '\0'; ++i) {
        if (allowed & (1ul << i)) continue;
        set[n++] = kIllegalChars[i];
        if (t > 0) text[t++] = ' ';
        text[t++] = kIllegalChars[i];
    }
    if (list != nullptr) *list = text;
    return n > 0 && strpbrk(p, set) != nullptr;
}

long SetPathSpecListString(const char* list, const char*& out, KBuffer& storage) {
    out = nullptr;
    storage.SetBytesUsed(0);
    if (list == nullptr || list[0] == '\0') {
        storage.Resize(0, kSpecCaller);
        return KX_OK;
    }
    const size_t length = strlen(list);
    if (storage.Resize(static_cast<unsigned long>(length) + 12, kSpecCaller) != KX_OK) {
        return KX_E_OUT_OF_MEMORY;
    }

    // Items are written "a" "b": each runs to the next quote and the next one starts past the
    // closing quote, the separating character and the opening quote.
    PatternWriter writer(storage);
    size_t pos = list[0] == '"' ? 1 : 0;
    while (pos <= length) {
        const char* item = list + pos;
        const char* quote = strchr(item, '"');
        const size_t itemLength = quote != nullptr ? static_cast<size_t>(quote - item) : length - pos;
        if (itemLength > 0) {
            long status = PutItem(writer, item, itemLength);
            if (status != KX_OK) return status;
        }
        if (quote == nullptr) break;
        pos += itemLength + 3;
    }
    long status = writer.Terminate();
    if (status != KX_OK) return status;
    out = reinterpret_cast<const char*>(storage.GetPtr(0, 0));
    return KX_OK;
}

}  // namespace kxPath
