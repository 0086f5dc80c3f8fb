// Escaping of outside text for terminals and JSON.
#include "kxTextEscape.h"

#include <gtest/gtest.h>

using kxtools::JsonEscape;
using kxtools::TerminalText;
using kxtools::ValidUtf8;

namespace {

TEST(TextEscapeTest, Utf8CheckRejectsOverlongSurrogateAndOutOfRangeForms) {
    EXPECT_TRUE(ValidUtf8("plain \xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"));
    EXPECT_TRUE(ValidUtf8("\xe0\xa0\x80\xed\x9f\xbf\xf4\x8f\xbf\xbf"));  // U+0800, U+D7FF, U+10FFFF
    EXPECT_FALSE(ValidUtf8("\xc0\xaf"));              // overlong '/'
    EXPECT_FALSE(ValidUtf8("\xe0\x9f\xbf"));          // overlong 3-byte form
    EXPECT_FALSE(ValidUtf8("\xed\xa0\x80"));          // a surrogate
    EXPECT_FALSE(ValidUtf8("\xf4\x90\x80\x80"));      // above U+10FFFF
    EXPECT_FALSE(ValidUtf8("caf\xe9"));               // Latin-1
    EXPECT_FALSE(ValidUtf8("\xe2\x82"));              // cut short
    EXPECT_FALSE(ValidUtf8("\x80"));                  // a lone continuation byte
}

TEST(TextEscapeTest, TerminalTextCannotDriveTheTerminal) {
    EXPECT_EQ("red \\x1B[31m\\nnext \\x0D\\x7F", TerminalText("red \x1b[31m\nnext \r\x7f", false));
    EXPECT_EQ("a\tb", TerminalText("a\tb", true));
    EXPECT_EQ("a\\x09b", TerminalText("a\tb", false));
    // C1 controls (CSI is 0x9B) in either reading of the bytes.
    EXPECT_EQ("x\\x9B2J", TerminalText("x\xc2\x9b" "2J", false));      // UTF-8 U+009B
    EXPECT_EQ("caf\xe9 \\x9B", TerminalText("caf\xe9 \x9b", false));  // Latin-1
    // Printable text of both readings stays as it is.
    EXPECT_EQ("caf\xc3\xa9 \xc2\xa0", TerminalText("caf\xc3\xa9 \xc2\xa0", false));
}

TEST(TextEscapeTest, JsonReadsInvalidUtf8AsLatin1) {
    EXPECT_EQ("q\\\" b\\\\ \\n\\r\\t \\u001b \\u007f", JsonEscape("q\" b\\ \n\r\t \x1b \x7f"));
    EXPECT_EQ("caf\xc3\xa9", JsonEscape("caf\xc3\xa9"));
    EXPECT_EQ("caf\\u00e9", JsonEscape("caf\xe9"));
    // One bad sequence makes the whole text Latin-1, so no byte of it reaches JSON raw.
    EXPECT_EQ("\\u00c3\\u00a9\\u00ed\\u00a0\\u0080", JsonEscape("\xc3\xa9\xed\xa0\x80"));
}

}  // namespace
