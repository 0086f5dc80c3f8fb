// Text from files and servers, made safe for a terminal or a JSON string. Shared by the
// command-line tools, so a log message and a remote file name are shown the same way.
//
// Pure functions of their argument; callable from any thread.
#pragma once

#include <string>

namespace kxtools {

// True when s is well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool ValidUtf8(const std::string& s);

// s as part of one terminal line that cannot drive the terminal: a line feed becomes "\n", the
// other C0 controls, DEL and the C1 controls "\xNN" (their code point), tabs only unless
// keepTabs. s is read as UTF-8 when it is valid UTF-8, else as Latin-1, to find the C1
// controls; every other byte is left as it is. Backslashes are not doubled: the result is for
// people, and may read like text that held the escape itself.
std::string TerminalText(const std::string& s, bool keepTabs);

// The body of a JSON string (without its quotes) that holds s: quote and backslash escaped,
// line feed, carriage return and tab in their short forms, the other controls as \u00xx. Text
// that is not valid UTF-8 is read as Latin-1 (each byte one code point), so the result is
// valid JSON whatever the bytes.
std::string JsonEscape(const std::string& s);

}  // namespace kxtools
