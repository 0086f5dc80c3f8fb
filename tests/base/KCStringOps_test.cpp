#include <gtest/gtest.h>

#include <cstring>

#include "base/KCString.h"
#include "kxLogCapture.h"

namespace {

TEST(KCStringSearch, CharacterAndTextSearchDifferAtTheEnd) {
    KCString s("abcabc");
    EXPECT_EQ(s.Find('c'), 2);
    EXPECT_EQ(s.Find('c', 3), 5);
    EXPECT_EQ(s.Find('a', 6), -1);
    EXPECT_EQ(s.Find("", 6), 6);  // start == length is a valid place for ""
    EXPECT_EQ(s.Find("", 7), -1);
    EXPECT_EQ(s.Find("bc", 2), 4);
    EXPECT_EQ(s.Find("cab"), 2);
    EXPECT_EQ(s.Find("zz"), -1);
    EXPECT_EQ(s.ReverseFind('b'), 4);
    EXPECT_EQ(s.ReverseFind('z'), -1);
    EXPECT_EQ(s.FindOneOf("xc"), 2);
    EXPECT_EQ(s.FindOneOf("xyz"), -1);
    EXPECT_TRUE(s.StartsWith("abc"));
    EXPECT_TRUE(s.StartsWith(""));
    EXPECT_TRUE(s.StartsWith(nullptr));
    EXPECT_FALSE(s.StartsWith("abcabcd"));
    EXPECT_FALSE(s.StartsWith("b"));
    EXPECT_EQ(KCString().Find(""), 0);
}

TEST(KCStringSearch, ExtractionClampsAndSharesTheWholeString) {
    KCString s("0123456789");
    EXPECT_EQ(s.Mid(3), "3456789");
    EXPECT_EQ(s.Mid(3, 2), "34");
    EXPECT_EQ(s.Mid(8, 100), "89");
    EXPECT_EQ(s.Mid(-5, 2), "01");
    EXPECT_EQ(s.Mid(2, -1), "");
    EXPECT_EQ(s.Mid(10), "");
    EXPECT_EQ(s.Mid(50, 2), "");
    EXPECT_EQ(s.Mid(0, 10).c_str(), s.c_str());
    EXPECT_EQ(s.Left(3), "012");
    EXPECT_EQ(s.Left(-1), "");
    EXPECT_EQ(s.Left(10).c_str(), s.c_str());
    EXPECT_EQ(s.Right(3), "789");
    EXPECT_EQ(s.Right(-2), "");
    EXPECT_EQ(s.Right(11).c_str(), s.c_str());
    EXPECT_EQ(s.SpanIncluding("0123"), "0123");
    EXPECT_EQ(s.SpanExcluding("5"), "01234");
    EXPECT_EQ(s.SpanExcluding(nullptr), "0123456789");
}

TEST(KCStringEdit, ReplaceTextCountsAndResizes) {
    KCString s("banana");
    EXPECT_EQ(s.Replace("a", "xyz"), 3);
    EXPECT_EQ(s, "bxyznxyznxyz");
    EXPECT_EQ(s.Replace("xyz", nullptr), 3);
    EXPECT_EQ(s, "bnn");
    EXPECT_EQ(s.Replace("", "x"), 0);

    KCString shared("nothing here");
    KCString copy(shared);
    EXPECT_EQ(copy.Replace("zz", "y"), 0);
    EXPECT_EQ(copy.c_str(), shared.c_str());  // no match: no copy

    // Replacements are not searched again.
    KCString grow("aaa");
    EXPECT_EQ(grow.Replace("a", "aa"), 3);
    EXPECT_EQ(grow, "aaaaaa");
}

TEST(KCStringEdit, ReplaceSeesPastEmbeddedZeros) {
    KCString s("a\0a\0ba", 6);
    EXPECT_EQ(s.Replace("a", "cc"), 3);
    EXPECT_EQ(s.GetLength(), 9);
    EXPECT_EQ(memcmp(s.c_str(), "cc\0cc\0bcc", 10), 0);
    EXPECT_EQ(s.Replace('\0', '.'), 2);
    EXPECT_EQ(s, "cc.cc.bcc");
    EXPECT_EQ(s.Replace('c', 'c'), 0);
}

TEST(KCStringEdit, DeleteReturnsTheOldLengthAndRefusesOverlongCounts) {
    KCString s("abcd");
    EXPECT_EQ(s.Delete(0, 2), 4);
    EXPECT_EQ(s, "cd");
    EXPECT_EQ(s.Delete(1), 2);
    EXPECT_EQ(s, "c");
    EXPECT_EQ(s.Delete(-3, 1), 1);
    EXPECT_EQ(s, "");

    KCString t("xyz");
    EXPECT_EQ(t.Delete(1, 0), 3);
    EXPECT_EQ(t.Delete(3, 1), 3);
    EXPECT_EQ(t, "xyz");
    kxtest::LogCapture log;
    EXPECT_EQ(t.Delete(1, 5), 3);  // index + count passes the end: nothing is lost
    EXPECT_EQ(t, "xyz");
    EXPECT_TRUE(log.Has(KX_E_BAD_ARGUMENT, "KCString::Delete"));
}

TEST(KCStringEdit, InsertClampsTheIndexAndGrows) {
    KCString s("ace");
    EXPECT_EQ(s.Insert(1, 'b'), 4);
    EXPECT_EQ(s.Insert(3, "d"), 5);
    EXPECT_EQ(s, "abcde");
    EXPECT_EQ(s.Insert(-4, "<"), 6);
    EXPECT_EQ(s.Insert(99, '>'), 7);
    EXPECT_EQ(s, "<abcde>");
    EXPECT_EQ(s.Insert(2, ""), 7);
    EXPECT_EQ(s.Insert(2, nullptr), 7);
    EXPECT_EQ(s.Insert(1, s.c_str() + 1), 13);  // from its own text
    EXPECT_EQ(s, "<abcde>abcde>");
    EXPECT_EQ(s.Insert(0, '\0'), 14);
    EXPECT_EQ(s.GetLength(), 14);
    EXPECT_EQ(s.c_str()[0], '\0');
    KCString full('f', 64);
    full.Insert(10, 'g');
    EXPECT_EQ(full.GetAllocLength(), 128);
    EXPECT_EQ(full.Find('g'), 10);
}

TEST(KCStringEdit, TrimRemoveAndCase) {
    KCString s(" \t text \n ");
    s.TrimRight();
    EXPECT_EQ(s, " \t text");
    s.TrimLeft();
    EXPECT_EQ(s, "text");
    KCString x("xxabxx");
    x.TrimLeft('x');
    x.TrimRight('x');
    EXPECT_EQ(x, "ab");
    KCString set("-+ab+-");
    set.TrimLeft("+-");
    EXPECT_EQ(set, "ab+-");
    set.TrimRight("-+");
    set.TrimLeft(nullptr);
    EXPECT_EQ(set, "ab");
    KCString all("    ");
    all.TrimLeft();
    EXPECT_EQ(all.GetLength(), 0);

    KCString r("a-b-c-");
    EXPECT_EQ(r.Remove('-'), 3);
    EXPECT_EQ(r, "abc");
    r.MakeUpper();
    EXPECT_EQ(r, "ABC");
    r.MakeLower();
    EXPECT_EQ(r, "abc");
}

TEST(KCStringEdit, ConcatenationAndComparison) {
    KCString a("foo"), b("bar");
    EXPECT_EQ(a + b, "foobar");
    EXPECT_EQ(a + "!", "foo!");
    EXPECT_EQ("<" + a, "<foo");
    EXPECT_EQ(a + '.', "foo.");
    EXPECT_EQ('.' + a, ".foo");
    EXPECT_EQ(KCString() + "", "");
    EXPECT_EQ((KCString() + KCString()).c_str(), kxStrUtils::_afxPchNil);
    EXPECT_TRUE(b < a);
    EXPECT_TRUE(a != b);
    EXPECT_GT(a.Compare(nullptr), 0);
}

}  // namespace
