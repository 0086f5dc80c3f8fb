// Creating a directory together with its missing parents: the walk both directory-tree makers
// of the library share (the log start-up's and the file utilities'). They differ in what counts
// as a separator, how an existing level is checked and how failures are reported; the walk
// itself is here once.
//
// The walk examines the name, then each parent in turn, until it meets a level that exists; then
// it creates the missing levels from the top down. Walking rather than recursing keeps names of
// thousands of levels off the stack. A level that another process creates between the check and
// the mkdir counts as made.
//
// Thread safety: an object is used by one thread at a time; it races on the file system like
// any other file operation.
#pragma once

#include <cstddef>
#include <vector>

struct _SECURITY_ATTRIBUTES;  // ignored by CreateDirectoryA, passed through

class kxDirectoryTree {
public:
    kxDirectoryTree(const kxDirectoryTree&) = delete;
    kxDirectoryTree& operator=(const kxDirectoryTree&) = delete;

    // Makes the directory `name` (its first `length` characters, which the caller has already
    // stripped of trailing separators) and every missing parent. The name is cut with
    // terminators at its separators while levels are examined and is restored before returning.
    // A run of separators counts as one; the first character never counts as one (so "/x"
    // has no parent to make). *created (may be null) tells whether the last level was made by
    // this call (false when it existed, or another process made it meanwhile).
    // Returns 0, or the first failure of Examine or CreateFailed.
    long Make(char* name, size_t length, _SECURITY_ATTRIBUTES* sa, bool* created);

protected:
    // separators: the characters that end a level, as a C string ("/" or "/\\").
    explicit kxDirectoryTree(const char* separators) : separators_(separators) {}
    virtual ~kxDirectoryTree() = default;

    // Whether `level` is missing. Returns 0 for an existing directory or a missing name (with
    // `missing` set), otherwise the status that ends the walk (an existing non-directory, a
    // failed check), having reported it.
    virtual long Examine(const char* level, bool& missing) = 0;
    // CreateDirectoryA failed on `level` with `error` (its last error): reports it and returns
    // the status.
    virtual long CreateFailed(const char* level, int error) = 0;
    // Called once for every level below a failed one, deepest last, with the failure's status and
    // the name of the level above it that could not be made.
    virtual void ParentFailed(long status, const char* parent) {
        (void)status;
        (void)parent;
    }

private:
    bool IsSeparator(char c) const;
    // name_ cut to its first n characters, until the next Cut.
    const char* Cut(size_t n);
    long FailParents(long status, size_t failedLevel);

    const char* separators_;
    char* name_ = nullptr;
    size_t length_ = 0;
    size_t cut_ = 0;  // where a terminator stands in for a separator; length_ when none
    char cutSeparator_ = '/';  // the separator it stands in for
    std::vector<size_t> pending_;  // lengths of the levels to create, deepest first
};
