// NumberFromString on arbitrary text, for every type it is defined for. What it reads must
// survive the round trip: written back with NumberToString (within NumberTextSize) and read
// again, the value's bytes are the same; and text it accepts is never longer than the type's
// digits.
//
// Input: one byte choosing the type (modulo 8: bool, long, unsigned long, long long, unsigned
// long long, float, double, long double), then the text (cut at a zero byte).
#include <cstring>
#include <string>
#include <type_traits>

#include "base/kxXml.h"
#include "kxFuzzCheck.h"

namespace {

// The bytes a value's text covers that carry the value: long double's last two are padding,
// written as zeros whatever they held.
template <typename T>
constexpr size_t kValueBytes = kxXml::NumberBytes<T>;
template <>
constexpr size_t kValueBytes<long double> = 10;

template <typename T>
void RoundTrip(const std::string& text) {
    T value;
    const long status = kxXml::NumberFromString(value, text.c_str());
    KX_FUZZ_CHECK(status == KX_OK || status == KX_E_XML_BAD_NUMBER);
    if (status != KX_OK) return;
    KX_FUZZ_CHECK(text.size() <= 2 * kxXml::NumberBytes<T>);
    char written[kxXml::NumberTextSize<T> + 8];
    memset(written, 'x', sizeof written);
    KX_FUZZ_CHECK(kxXml::NumberToString(value, written) == KX_OK);
    KX_FUZZ_CHECK(strlen(written) < kxXml::NumberTextSize<T>);
    T again;
    KX_FUZZ_CHECK(kxXml::NumberFromString(again, written) == KX_OK);
    if constexpr (std::is_same_v<T, bool>) {
        KX_FUZZ_CHECK(again == value);
    } else {
        KX_FUZZ_CHECK(memcmp(&again, &value, kValueBytes<T>) == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const std::string text(reinterpret_cast<const char*>(data + 1),
                           strnlen(reinterpret_cast<const char*>(data + 1), size - 1));
    switch (data[0] % 8) {
        case 0:
            RoundTrip<bool>(text);
            break;
        case 1:
            RoundTrip<long>(text);
            break;
        case 2:
            RoundTrip<unsigned long>(text);
            break;
        case 3:
            RoundTrip<long long>(text);
            break;
        case 4:
            RoundTrip<unsigned long long>(text);
            break;
        case 5:
            RoundTrip<float>(text);
            break;
        case 6:
            RoundTrip<double>(text);
            break;
        default:
            RoundTrip<long double>(text);
            break;
    }
    return 0;
}
