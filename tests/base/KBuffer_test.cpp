#include "base/KBuffer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "base/kxMem.h"
#include "kxHeapFaults.h"
#include "kxLogCapture.h"

namespace {

void Fill(KBuffer& b, const char* text) {
    size_t n = strlen(text);
    ASSERT_NE(b.GetPtr(0, n), nullptr);
    memcpy(b.GetPtr(0, n), text, n);
    ASSERT_EQ(b.SetBytesUsed(n), KX_OK);
}

TEST(KBuffer, PointersAndCountsStayWithinTheAllocatedSize) {
    KBuffer empty(0);
    EXPECT_EQ(empty.GetPtr(0, 0), nullptr);
    EXPECT_EQ(empty.SetBytesUsed(1), KX_E_BAD_ARGUMENT);

    KBuffer b(10);
    EXPECT_NE(b.GetPtr(0, 10), nullptr);  // against the size, not the bytes used
    EXPECT_NE(b.GetPtr(10, 0), nullptr);
    EXPECT_EQ(b.GetPtr(5, 6), nullptr);
    EXPECT_EQ(b.GetPtr(~0ul, 2), nullptr);  // no wrap-round
    EXPECT_EQ(b.SetBytesUsed(10), KX_OK);
    EXPECT_EQ(b.SetBytesUsed(11), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(b.SetBytesUsed(7), KX_OK);
    EXPECT_EQ(b.IncreaseBytesUsed(3), KX_OK);
    EXPECT_EQ(b.IncreaseBytesUsed(1), KX_E_BAD_ARGUMENT);
    EXPECT_EQ(b.GetBytesUsed(), 10u);
}

TEST(KBuffer, ResizeMovesToANewBlockKeepingUsedBytes) {
    KBuffer b(100);
    memset(b.GetPtr(), 'x', 100);
    Fill(b, "0123456789");
    ASSERT_EQ(b.SetBytesUsed(80), KX_OK);
    const unsigned char* before = b.GetPtr();

    EXPECT_EQ(b.Resize(100, "test"), KX_OK);  // same size: untouched
    EXPECT_EQ(b.GetPtr(), before);
    EXPECT_EQ(b.GetBytesUsed(), 80u);

    EXPECT_EQ(b.Resize(50, "test"), KX_OK);
    EXPECT_EQ(b.GetSize(), 50u);
    EXPECT_EQ(b.GetBytesUsed(), 50u);
    EXPECT_EQ(memcmp(b.GetPtr(), "0123456789xxxx", 14), 0);

    const unsigned char* small = b.GetPtr();
    EXPECT_EQ(b.Resize(200, "test"), KX_OK);
    EXPECT_NE(b.GetPtr(), small);  // never grown in place
    EXPECT_EQ(b.GetBytesUsed(), 50u);
    EXPECT_EQ(memcmp(b.GetPtr(), "0123456789", 10), 0);

    EXPECT_EQ(b.Resize(0, "test"), KX_OK);
    EXPECT_EQ(b.GetPtr(), nullptr);
    EXPECT_EQ(b.GetSize(), 0u);
    EXPECT_EQ(b.GetBytesUsed(), 0u);
}

TEST(KBuffer, FailedResizeKeepsOldContentAndSetsFlagUntilNextSuccess) {
    kxtest::LogCapture log;
    KBuffer b(16);
    Fill(b, "keep me");
    const unsigned char* before = b.GetPtr();
    {
        kxtest::HeapFaults faults(0);
        EXPECT_EQ(b.Resize(64, "Caller::Grow"), KX_E_OUT_OF_MEMORY);
    }
    EXPECT_TRUE(b.AllocationFailed());
    EXPECT_EQ(b.GetPtr(), before);
    EXPECT_EQ(b.GetSize(), 16u);
    EXPECT_EQ(memcmp(b.GetPtr(), "keep me", 7), 0);
    EXPECT_TRUE(log.Has(KX_E_OUT_OF_MEMORY, "Caller::Grow: error allocating 64 bytes"));

    EXPECT_EQ(b.Resize(64, nullptr), KX_OK);
    EXPECT_FALSE(b.AllocationFailed());
    EXPECT_EQ(memcmp(b.GetPtr(), "keep me", 7), 0);

    {
        kxtest::HeapFaults faults(0);
        EXPECT_EQ(b.Resize(65, nullptr), KX_E_OUT_OF_MEMORY);
    }
    EXPECT_TRUE(log.Has(KX_E_OUT_OF_MEMORY, "KBuffer::Resize: error allocating 65 bytes"));
}

TEST(KBuffer, ConstructorAndCopyFailuresAreFlaggedAndLogged) {
    kxtest::LogCapture log;
    {
        kxtest::HeapFaults faults(0);
        KBuffer b(32);
        EXPECT_TRUE(b.AllocationFailed());
        EXPECT_EQ(b.GetPtr(), nullptr);
        EXPECT_EQ(b.GetSize(), 0u);
    }
    EXPECT_TRUE(log.Has(KX_E_OUT_OF_MEMORY, "KBuffer(ctor): error allocating 32 bytes"));

    KBuffer src(32);
    Fill(src, "abc");
    KBuffer target(8);
    Fill(target, "old");
    {
        kxtest::HeapFaults faults(0, true);
        KBuffer copy(src);
        EXPECT_TRUE(copy.AllocationFailed());
        EXPECT_EQ(copy.GetSize(), 0u);
        target = src;  // its own block is freed first, then the copy fails
        EXPECT_TRUE(target.AllocationFailed());
        EXPECT_EQ(target.GetPtr(), nullptr);
    }
    EXPECT_TRUE(log.Has(KX_E_OUT_OF_MEMORY, "KBuffer(copy): error allocating 32 bytes"));
    EXPECT_TRUE(log.Has(KX_E_OUT_OF_MEMORY, "KBuffer(=): error allocating 32 bytes"));
}

TEST(KBuffer, CopiesAreDeepAndCarrySizeAndBytesUsed) {
    KBuffer src(32);
    Fill(src, "hello");
    KBuffer copy(src);
    EXPECT_NE(copy.GetPtr(), src.GetPtr());
    EXPECT_EQ(copy.GetSize(), 32u);
    EXPECT_EQ(copy.GetBytesUsed(), 5u);
    EXPECT_EQ(memcmp(copy.GetPtr(), "hello", 5), 0);

    KBuffer assigned(3);
    assigned = src;
    assigned = assigned;  // self-assignment keeps everything
    EXPECT_EQ(assigned.GetSize(), 32u);
    EXPECT_EQ(memcmp(assigned.GetPtr(), "hello", 5), 0);

    KBuffer empty;
    KBuffer emptyCopy(empty);  // nothing to allocate is not a failed allocation
    EXPECT_EQ(emptyCopy.GetPtr(), nullptr);
    EXPECT_FALSE(emptyCopy.AllocationFailed());
}

TEST(KBuffer, OwnershipMovesWithoutCopyingAndTextKeepsItsTerminator) {
    KBuffer a(16);
    Fill(a, "data");
    unsigned char* block = a.GetPtr();

    KBuffer b;
    EXPECT_EQ(b.Assign(a), KX_OK);
    EXPECT_EQ(b.GetPtr(), block);
    EXPECT_EQ(b.GetBytesUsed(), 4u);
    EXPECT_EQ(a.GetPtr(), nullptr);
    EXPECT_EQ(a.GetSize(), 0u);

    unsigned long size = 0;
    void* taken = b.TakeOwnership(&size);
    EXPECT_EQ(taken, block);
    EXPECT_EQ(size, 16u);
    EXPECT_EQ(b.GetPtr(), nullptr);

    // Adopted blocks count no bytes used until the caller says so.
    KBuffer c(4);
    EXPECT_EQ(c.Assign(taken, 16), KX_OK);
    EXPECT_EQ(c.GetPtr(), taken);
    EXPECT_EQ(c.GetBytesUsed(), 0u);

    // Text is copied with its terminator.
    EXPECT_EQ(c.Assign("ab"), KX_OK);
    EXPECT_EQ(c.GetBytesUsed(), 3u);
    EXPECT_STREQ(reinterpret_cast<const char*>(c.GetPtr()), "ab");
    EXPECT_EQ(c.Assign(static_cast<const char*>(nullptr)), KX_OK);
    EXPECT_EQ(c.GetSize(), 0u);
}

}  // namespace
