// Date decomposition and number-to-text conversion against the C library doing comparable work
// (gmtime_r / timegm for calendar fields, "%a" / strtod for exact text of a double).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "base/KCOleDateTime.h"
#include "base/kxTimeUtils.h"
#include "base/kxXml.h"

namespace {

// Seconds and day counts spread over 1970 ... 2037 so that every field varies.
constexpr int kSamples = 1024;

time_t UnixSample(int i) { return static_cast<time_t>(i) * 2097151; }
double DateSample(int i) { return 25569.0 + UnixSample(i) / 86400.0; }

void BM_Baseline_gmtime_r(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        const time_t t = UnixSample(i++ & (kSamples - 1));
        tm fields;
        benchmark::DoNotOptimize(gmtime_r(&t, &fields));
        benchmark::DoNotOptimize(fields);
    }
}
BENCHMARK(BM_Baseline_gmtime_r);

void BM_TmFromOleDate(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        tm fields;
        benchmark::DoNotOptimize(
            kxTimeUtils::_AfxTmFromOleDate(DateSample(i++ & (kSamples - 1)), fields));
        benchmark::DoNotOptimize(fields);
    }
}
BENCHMARK(BM_TmFromOleDate);

void BM_Baseline_timegm(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        tm fields = {};
        fields.tm_year = 70 + (i & 63);
        fields.tm_mon = i % 12;
        fields.tm_mday = 1 + i % 28;
        fields.tm_hour = i % 24;
        ++i;
        benchmark::DoNotOptimize(timegm(&fields));
    }
}
BENCHMARK(BM_Baseline_timegm);

void BM_SetDateTime(benchmark::State& state) {
    int i = 0;
    KCOleDateTime d;
    for (auto _ : state) {
        benchmark::DoNotOptimize(d.SetDateTime(static_cast<uint16_t>(1970 + (i & 63)),
                                               static_cast<uint16_t>(1 + i % 12),
                                               static_cast<uint16_t>(1 + i % 28),
                                               static_cast<uint16_t>(i % 24), 0, 0));
        ++i;
    }
}
BENCHMARK(BM_SetDateTime);

void BM_Baseline_snprintf_hexfloat(benchmark::State& state) {
    char text[64];
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(snprintf(text, sizeof(text), "%a", DateSample(i++ & 1023)));
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_Baseline_snprintf_hexfloat);

void BM_NumberToString_double(benchmark::State& state) {
    char text[kxXml::NumberTextSize<double>];
    int i = 0;
    for (auto _ : state) {
        const double value = DateSample(i++ & 1023);
        benchmark::DoNotOptimize(kxXml::NumberToString(value, text));
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_NumberToString_double);

void BM_Baseline_strtod_hexfloat(benchmark::State& state) {
    char text[64];
    snprintf(text, sizeof(text), "%a", 43831.123456789);
    for (auto _ : state) {
        benchmark::DoNotOptimize(strtod(text, nullptr));
    }
}
BENCHMARK(BM_Baseline_strtod_hexfloat);

void BM_NumberFromString_double(benchmark::State& state) {
    char text[kxXml::NumberTextSize<double>];
    kxXml::NumberToString(43831.123456789, text);
    double value;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kxXml::NumberFromString(value, text));
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BM_NumberFromString_double);

}  // namespace

BENCHMARK_MAIN();
