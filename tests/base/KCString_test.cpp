#include "base/KCString.h"

#include <gtest/gtest.h>

#include <atomic>
#include <clocale>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "kxHeapFaults.h"
#include "kxLogCapture.h"

namespace {

int Refs(const KCString& s) { return s.GetData()->refCount; }

// A string whose length, terminator and header agree.
void ExpectConsistent(const KCString& s) {
    const KCStringData* d = s.GetData();
    ASSERT_GE(d->dataLength, 0);
    ASSERT_LE(d->dataLength, d->allocLength);
    EXPECT_EQ(s.c_str()[d->dataLength], '\0');
    if (d->dataLength == 0) {
        EXPECT_STREQ(s.c_str(), "");
    }
}

TEST(KCString, ConstructorsCopyExactlyWhatTheyAreGiven) {
    // Every empty string is the shared sentinel, however it was made.
    for (const KCString& empty : {KCString(), KCString(""), KCString("abc", 0), KCString('x', -3),
                                  KCString(static_cast<const wchar_t*>(nullptr)), KCString(L"")})
        EXPECT_EQ(empty.c_str(), kxStrUtils::_afxPchNil);
    KCString withZero("a\0b", 3);
    EXPECT_EQ(withZero.GetLength(), 3);
    EXPECT_EQ(memcmp(withZero.c_str(), "a\0b", 4), 0);
    EXPECT_EQ(KCString('z', 3), "zzz");
    KCString s;
    s = 'q';
    EXPECT_EQ(s, "q");
    s = static_cast<const char*>(nullptr);
    EXPECT_TRUE(s.IsEmpty());
}

TEST(KCString, CopiesShareOneBlockUntilOneIsWritten) {
    KCString a("hello");
    KCString b(a), c;
    c = b;
    EXPECT_EQ(Refs(a), 3);
    b.SetAt(0, 'j');
    EXPECT_EQ(Refs(a), 2);
    c = b;  // releases its share of a's block
    c = c;
    EXPECT_EQ(Refs(a), 1);
    EXPECT_EQ(Refs(b), 2);
}

TEST(KCString, EveryWritingOperationCopiesASharedBlockFirst) {
    const std::vector<std::pair<const char*, std::function<void(KCString&)>>> writers = {
        {"SetAt", [](KCString& s) { s.SetAt(1, '#'); }},
        {"MakeUpper", [](KCString& s) { s.MakeUpper(); }},
        {"MakeLower", [](KCString& s) { s.MakeLower(); }},
        {"Replace(char)", [](KCString& s) { s.Replace('a', '#'); }},
        {"Replace(text)", [](KCString& s) { s.Replace("a", "##"); }},
        {"Remove", [](KCString& s) { s.Remove('a'); }},
        {"Insert(char)", [](KCString& s) { s.Insert(1, '#'); }},
        {"Insert(text)", [](KCString& s) { s.Insert(1, "##"); }},
        {"Delete", [](KCString& s) { s.Delete(0, 1); }},
        {"TrimRight", [](KCString& s) { s.TrimRight(); }},
        {"TrimLeft", [](KCString& s) { s.TrimLeft(" "); }},
        {"+=", [](KCString& s) { s += "x"; }},
        {"+=char", [](KCString& s) { s += 'x'; }},
        {"GetBuffer", [](KCString& s) { s.GetBuffer(1)[0] = '#'; }},
        {"ReleaseBuffer", [](KCString& s) { s.ReleaseBuffer(2); }},
        {"Format", [](KCString& s) { s.Format("%d", 7); }},
        {"assign", [](KCString& s) { s = "other"; }},
    };
    for (const auto& [name, write] : writers) {
        KCString original("  abcAbca  ");
        KCString copy(original);
        write(copy);
        EXPECT_EQ(original, "  abcAbca  ") << name;
        EXPECT_EQ(Refs(original), 1) << name;
        EXPECT_NE(copy.c_str(), original.c_str()) << name;
        ExpectConsistent(copy);
    }
}

TEST(KCString, SmallStringsGrowInsideTheirSizeClass) {
    KCString s("abc");
    const char* block = s.c_str();
    for (int i = 0; i < 61; ++i) s += 'x';
    EXPECT_EQ(s.c_str(), block);  // 64 characters still fit the smallest class
    s += 'y';
    EXPECT_EQ(s.GetAllocLength(), 128);
    EXPECT_EQ(s.GetLength(), 65);
}

TEST(KCString, AppendingToItselfWorksAcrossAMove) {
    KCString s('a', 40);
    s += s;  // moves from the 64 to the 128 class while reading its own text
    EXPECT_EQ(s, std::string(80, 'a').c_str());
    s += s.c_str() + 70;
    EXPECT_EQ(s.GetLength(), 90);
}

TEST(KCString, LockedBlocksAreNeverShared) {
    KCString s("locked");
    char* p = s.LockBuffer();
    EXPECT_EQ(Refs(s), -1);
    KCString copy(s);
    EXPECT_NE(copy.c_str(), s.c_str());
    EXPECT_EQ(copy, "locked");

    KCString other("x");
    s = other;  // copied into the locked block, which stays in place
    EXPECT_EQ(s.c_str(), p);
    EXPECT_EQ(s, "x");
    other = s;
    EXPECT_NE(other.c_str(), s.c_str());

    s.Empty();  // a locked block is emptied, not released
    EXPECT_EQ(s.c_str(), p);
    EXPECT_EQ(s.GetLength(), 0);

    s = "again";
    s.UnlockBuffer();
    EXPECT_EQ(Refs(s), 1);
    KCString shared(s);
    EXPECT_EQ(shared.c_str(), s.c_str());
}

TEST(KCString, BufferAccessKeepsTextAndLength) {
    KCString s("abc");
    KCString copy(s);
    char* buf = s.GetBuffer(100);
    EXPECT_NE(buf, copy.c_str());
    EXPECT_EQ(s.GetAllocLength(), 128);
    EXPECT_EQ(s.GetLength(), 3);
    EXPECT_STREQ(buf, "abc");
    strcpy(buf, "a longer text");
    s.ReleaseBuffer();
    EXPECT_EQ(s.GetLength(), 13);
    s.ReleaseBuffer(4);
    EXPECT_EQ(s, "a lo");

    EXPECT_EQ(s.GetBuffer(2), s.c_str());  // big enough and private: kept
    char* set = s.GetBufferSetLength(3);
    EXPECT_EQ(s.GetLength(), 3);
    EXPECT_EQ(set[3], '\0');

    KCString big('x', 700);
    big.Delete(0, 650);
    EXPECT_EQ(big.GetAllocLength(), 700);
    big.FreeExtra();
    EXPECT_EQ(big.GetAllocLength(), 64);  // 50 characters: back to the smallest class
    EXPECT_EQ(big, std::string(50, 'x').c_str());
}

TEST(KCString, WideTextIsConvertedWithTheLocale) {
    KCString s(L"wide text");
    EXPECT_EQ(s, "wide text");
    s = L"other";
    EXPECT_EQ(s, "other");
    s = static_cast<const wchar_t*>(nullptr);
    EXPECT_TRUE(s.IsEmpty());
}

TEST(KCString, NonAsciiWideTextNeverOverrunsItsBuffer) {
    const char* previous = setlocale(LC_ALL, nullptr);
    std::string saved = previous ? previous : "C";
    if (setlocale(LC_ALL, "C.UTF-8") == nullptr) GTEST_SKIP() << "no C.UTF-8 locale";
    KCString euro(L"\u20ac");  // three bytes from one wide character: does not fit in two
    ExpectConsistent(euro);
    KCString mixed(L"a\u00e9b");
    EXPECT_EQ(mixed, "a\xc3\xa9" "b");
    KCString assigned;
    assigned = L"\u20ac\u20ac";
    EXPECT_EQ(assigned, "\xe2\x82\xac\xe2\x82\xac");
    setlocale(LC_ALL, saved.c_str());
}

TEST(KCString, AllocationFailureIsLoggedAndThrown) {
    kxtest::LogCapture log;
    {
        kxtest::HeapFaults faults(0);
        EXPECT_THROW(KCString('q', 600), std::bad_alloc);
    }
    EXPECT_TRUE(log.Has(KX_E_UNHANDLED_EXCEPTION,
                        "KCString::AllocBuffer: memory exception allocating 613 bytes"));
}

// Runs `op` with the Nth heap request failing, for every N until it runs through, and checks
// that each failure left a valid string and leaked nothing (the leak checker sees the rest).
void SweepFailures(const char* name, const std::function<void(KCString&)>& op) {
    kxtest::LogCapture quiet;
    for (long n = 0;; ++n) {
        KCString s("seed text that is shared");
        KCString other(s);
        bool failed = false;
        {
            kxtest::HeapFaults faults(n);
            try {
                op(s);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
        }
        ExpectConsistent(s);
        EXPECT_EQ(other, "seed text that is shared") << name << " at " << n;
        if (!failed) return;
        ASSERT_LT(n, 100) << name;
    }
}

TEST(KCString, FailedAllocationsLeaveValidStrings) {
    SweepFailures("grow", [](KCString& s) {
        for (int i = 0; i < 40; ++i) s += "0123456789";
    });
    SweepFailures("insert", [](KCString& s) {
        s.Insert(3, "inserted");
        s.Insert(0, KCString('i', 700).c_str());
    });
    SweepFailures("replace", [](KCString& s) { s.Replace("t", std::string(300, 'T').c_str()); });
    SweepFailures("format", [](KCString& s) { s.Format("%s-%d-%s", s.c_str(), 42, s.c_str()); });
    SweepFailures("buffer", [](KCString& s) {
        s.GetBuffer(1000);
        s.ReleaseBuffer();
        s.LockBuffer();
        KCString copy(s);
        s.UnlockBuffer();
    });
    SweepFailures("concat", [](KCString& s) {
        KCString t = s + "a" + 'b' + KCString('c', 600);
        s = t.Mid(1, 700);
        s = t.Left(3) + t.Right(2);
    });
    SweepFailures("wide", [](KCString& s) {
        s = L"wide";
        KCString w(L"more wide text");
        s += w;
    });
}

TEST(KCString, CopiesMayLiveInDifferentThreads) {
    KCString shared('s', 100);
    std::vector<std::thread> threads;
    std::atomic<int> mismatches{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                KCString copy(shared);
                KCString second;
                second = copy;
                if (second.GetLength() != 100) ++mismatches;
                if (i % 100 == 0) second += "x";  // copy-before-write while others share
            }
        });
    for (auto& th : threads) th.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(Refs(shared), 1);
}

}  // namespace
