#include "base/kxMem.h"

#include <gtest/gtest.h>

#include <cstring>

#include "kxHeapFaults.h"
#include "kxLogCapture.h"

namespace {

TEST(kxMem, BadArgumentsAreRefusedAndLeaveThePointerAlone) {
    kxtest::LogCapture log;
    char* p = reinterpret_cast<char*>(0x1234);
    EXPECT_EQ(kxMem::Alloc(0, &p, nullptr, 0), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(p, reinterpret_cast<char*>(0x1234));
    EXPECT_EQ(kxMem::Alloc(10, nullptr, "f.cpp", 7), KX_E_BAD_ARGUMENT);
    EXPECT_TRUE(log.Has(KX_E_BAD_ARGUMENT, "kxMem::Alloc: invalid size 10 or pMemPtr 0x0 for 'f.cpp:7'"));

    char* none = nullptr;
    EXPECT_EQ(kxMem::Realloc(10, &none, nullptr, 0), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(none, nullptr);
    EXPECT_TRUE(log.Has(KX_E_BAD_ARGUMENT, "kxMem::Realloc: invalid size 10 or pMemPtr 0x"));
    EXPECT_EQ(kxMem::Free(nullptr, nullptr, 0), KX_E_BAD_ARGUMENT);
    EXPECT_TRUE(log.Has(KX_E_BAD_ARGUMENT, "kxMem::Free: invalid ptr 0x"));
    for (const auto& r : log.Records()) EXPECT_EQ(r.sev, 4u) << r.text;
}

TEST(kxMem, HeapFailureIsReportedAndKeepsTheOldBlock) {
    kxtest::LogCapture log;
    char* p = nullptr;
    {
        kxtest::HeapFaults faults(0);
        EXPECT_EQ(kxMem::Alloc(100, &p, "a.cpp", 1), KX_E_OUT_OF_MEMORY);
    }
    EXPECT_EQ(p, nullptr);
    EXPECT_TRUE(log.Has(KX_E_OUT_OF_MEMORY, "kxMem::Alloc: error allocating 100 bytes for 'a.cpp:1'"));

    ASSERT_EQ(kxMem::Alloc(4, &p, nullptr, 0), KX_OK);
    memcpy(p, "abc", 4);
    char* before = p;
    {
        kxtest::HeapFaults faults(0);
        EXPECT_EQ(kxMem::Realloc(1 << 20, &p, nullptr, 0), KX_E_OUT_OF_MEMORY);
    }
    EXPECT_EQ(p, before);
    EXPECT_STREQ(p, "abc");
    EXPECT_TRUE(log.Has(KX_E_OUT_OF_MEMORY, "kxMem::Realloc: error re-allocating 1048576 bytes"));
    kxMem::Free(p, nullptr, 0);
}

}  // namespace
