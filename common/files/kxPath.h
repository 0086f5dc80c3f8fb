// Path utilities: stateless functions that classify, split, compare and rewrite path strings of
// several syntaxes at once: Unix paths, drive and UNC paths (with the long-path prefix "\\?\"),
// and remote names written as a host, a colon and a path.
//
// Conventions:
// - Both "\" and "/" count as separators unless a function says otherwise.
// - Functions returning `long` return a status: 0 success, KX_E_BAD_ARGUMENT (0x80000003) for a
//   null argument or a malformed path, KX_E_BUFFER_TOO_SMALL (0xE0FF0101) when an output
//   buffer cannot hold the result and its terminator, KX_E_OUT_OF_MEMORY (0xE0FF0104) when a
//   buffer cannot be grown. Outputs are written only on success unless stated otherwise.
// - Functions with a character-buffer and a std::string form implement the buffer form; the
//   string form gives the buffer form enough room, calls it and trims the string to the new
//   terminator.
// - Nothing throws (the std::string forms may raise std::bad_alloc when the string must grow);
//   only PathMatch logs.
// - Thread safety: every function is reentrant; none keeps state.
#pragma once

#include <cstdint>
#include <string>

#include "base/kxStatus.h"

class KCString;
class KBuffer;


namespace kxPath {

// Classification of a path, one bit per format so that a set of accepted formats is their OR.
enum eFormat : uint32_t {
    eInvalid = 0,         // anything else, relative paths included
    eUnc = 1,             // \\server\share...
    eLongUnc = 2,         // \\?\UNC\server\share...
    eDos = 4,             // a letter, ":" and "\"
    eLongDos = 8,         // \\?\ followed by a letter, ":" and "\"
    eRemoteDos = 16,      // host, ":", then a letter, ":" and "\"
    eRemoteLongDos = 32,  // host, ":", then \\?\ and a letter, ":" and "\"
    eUnix = 64,           // starts with "/"
    eRemoteUnix = 128     // host, ":", then "/"
};
constexpr eFormat operator|(eFormat a, eFormat b) {
    return static_cast<eFormat>(static_cast<uint32_t>(a) | static_cast<uint32_t>(b));
}

enum ePathMatchType : uint32_t {
    eExact = 0,
    eChild = 1,
    eExactOrChild = 2,
    eParent = 3,
    eExactOrParent = 4
};

// Limits of the UNC splitters, in characters without the terminator. Output buffers for the
// server, share and remainder must hold one more byte than these.
constexpr unsigned long kMaxUncServer = 255;
constexpr unsigned long kMaxUncShare = 80;
constexpr unsigned long kMaxUncRemainder = 256;

// True for "\" and "/".
bool IsSlash(char c);

// Classifies p. The tests run in this order: null or empty; "\\" (long prefix or UNC); "/";
// letter, ":" and "\"; finally host, ":" and what follows the first colon. A drive written with a
// forward slash (D:/x) is therefore eRemoteUnix with host "D": deliberate, remote names are
// recognised by the colon alone.
eFormat GetFormat(const char* p);

// True when p's format is not eInvalid and is one of the bits of `accepted`.
bool ValidateFormat(const char* p, eFormat accepted);

// Length of a long-path prefix at the start of p: 8 for "\\?\UNC\" followed by a server name,
// 4 for "\\?\" followed by a letter, ":" and "\", 0 when p does not start with two separators
// and "?" (null and empty included). Returns false when p starts with two separators and "?" but
// the prefix is malformed (its separators must be "\"; "UNC" may be in any case). *isDrive, when
// given, is set to (length == 4). `length` is always written.
bool GetLongPathPrefixLen(const char* p, int& length, bool* isDrive);

// 0: not a valid UNC path (also when the remainder starts with a separator or holds two adjacent
// separators); 1: server only; 2: server and share; 3: server, share and a non-empty remainder.
int GetUncPathContents(const char* p);

// True when p holds any of the nine characters \ / : * ? " < > | except those whose bit is set
// in `allowed` (1, 2, 4, 8, 16, 32, 64, 128, 256 in that order). When `list` is given it
// receives the characters still illegal, in that order, separated by single blanks. Null or
// empty p: false, and `list` is left alone.
bool HasIllegalPathChars(const char* p, unsigned long allowed, KCString* list);

// The last separator of either kind in p, or null (also for a null p).
const char* GetLastSlash(const char* p);
char* GetLastSlash(char* p);
// The first "\" in p; with alsoForward, whichever of the first "\" and the first "/" comes
// first. Null when there is none or p is null.
const char* GetNextSlash(const char* p, bool alsoForward);
char* GetNextSlash(char* p, bool alsoForward);

// The first node of p: "/" for a Unix path; after skipping a leading "\\" or a long prefix, the
// text up to the first separator or colon, except that a drive ("D:\") is returned with its
// colon and backslash. For a remote name this is the host. `size` counts the terminator.
// Null p or out: KX_E_BAD_ARGUMENT; too small: KX_E_BUFFER_TOO_SMALL.
long GetFirstNode(const char* p, char* out, unsigned long size);
long GetFirstNode(const char* p, std::string& out);

// The last node of p: "/" for "/" itself; otherwise one trailing separator is ignored and the
// node is the text after the last separator before it. The scan never looks at the first
// character, so a name without any separator loses its first character ("abc" gives "bc"):
// kept on purpose, callers pass full paths. Errors as GetFirstNode.
long GetLastNode(const char* p, char* out, unsigned long size);
long GetLastNode(const char* p, std::string& out);

// Splits "\\server\share\remainder" or "\\?\UNC\server\share\remainder" (either separator
// inside). Refused (KX_E_BAD_ARGUMENT): p not starting with "\\" and a character other than
// "\"; a malformed long prefix or one of a drive; an empty server; two adjacent separators after
// the server or after the share; a server above kMaxUncServer or a share above kMaxUncShare
// characters. The share runs to the next separator or the end and may be empty. Outputs may be
// null; server and share buffers must hold kMaxUncServer + 1 and kMaxUncShare + 1 bytes.
// SplitUnc2 points `remainder` into p just after the share's separator (null when there is no
// separator after the share; on failure it is set to null).
long SplitUnc2(const char* p, char* server, char* share, const char*& remainder);
// As SplitUnc2, but copies the remainder into a buffer of kMaxUncRemainder + 1 bytes (empty
// when there is none; a longer remainder is refused).
long SplitUnc(const char* p, char* server, char* share, char* remainder);
// Splits a DFS name "\\server\share[\...]" into its namespace server and root share, with the
// prefix rules of SplitUnc2. A DFS name must name both, so an empty share is refused too;
// whatever follows the share is the link path inside the namespace and is not returned.
long SplitDfs(const char* p, char* server, char* share);

// Compares two paths: eExact equal; eChild a is below b (a starts with b and the next character
// of a is a separator); eParent/eExactOrParent are eChild/eExactOrChild with a and b exchanged.
// Both null or empty: true; one of them: false. Because a child needs a separator right after
// b, nothing is a child of a b that ends with a separator ("/" included). An unknown type logs
// "unknown match type" and returns false.
bool PathMatch(const char* a, const char* b, ePathMatchType type, bool caseSensitive);

// Appends `more` to `path` behind one separator. separator 0 chooses "\" for the drive and UNC
// formats and "/" for the Unix ones, and fails (false, path untouched) when path is eInvalid.
// The separator is added when path is empty or does not end with one; one leading separator of
// `more` is dropped. The caller's buffer must hold strlen(path) + 1 + strlen(more) + 1 bytes.
// Null path: false.
bool Append(char* path, const char* more, char separator);
bool Append(std::string& path, const char* more, char separator);

// Remove leading (resp. trailing) characters that are white space (when `blanks`) or
// separators (when `slashes`). Deliberately asymmetric: StripLeading removes nothing when every
// character would go, StripTrailing then leaves the empty string. Null p does nothing.
void StripLeading(char* p, bool blanks, bool slashes);
void StripLeading(std::string& s, bool blanks, bool slashes);
void StripTrailing(char* p, bool blanks, bool slashes);
void StripTrailing(std::string& s, bool blanks, bool slashes);

// Removes the spaces that lead the path and those that end each component; the root (a long
// prefix, "\\", or one leading separator) is kept as it is. Spaces inside a component and at the
// start of a component other than the first are kept: they are part of the name. Returns false,
// leaving p untouched, when a component below the root is empty after tightening (two adjacent
// separators, or a component of blanks only) other than after a final separator; also for a
// null p.
bool TightenPath(char* p);
bool TightenPath(std::string& s);

// Rewrites s into its canonical form for comparison: eUnix keeps its case and uses "/";
// eRemoteUnix lower-cases the host and uses "/"; every other format (eInvalid included) is
// lower-cased entirely and uses "\".
void Normalize(std::string& s);

// Turns a list of quoted file specifications ("*.log" "tmp/") into a list of wildcard
// patterns, each zero-terminated, the list ending with one more terminator, held in `storage`;
// `out` points at the first pattern. Absolute items and items starting with "*" are kept as
// they are; relative ones are prefixed with "*/" or "*\" (both, as two patterns, when the item
// uses both separators or none) so that they match at any depth; an item ending with a
// separator gets a trailing "*". Null or empty list: out null, storage emptied, 0.
// KX_E_OUT_OF_MEMORY when storage cannot be grown (out is then null).
long SetPathSpecListString(const char* list, const char*& out, KBuffer& storage);

}  // namespace kxPath
