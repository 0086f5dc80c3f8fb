// KDirectoryBase: the interface of a one-pass enumeration of the names that match a wildcard
// pattern. Init starts an enumeration, GetNext hands out one entry per call until it returns
// false, Clear releases what the enumeration holds.
//
// Thread safety: none; an enumeration belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include "base/kxWin32Types.h"

class KDirectoryBase {
public:
    KDirectoryBase() = default;
    KDirectoryBase(const KDirectoryBase&) = delete;
    KDirectoryBase& operator=(const KDirectoryBase&) = delete;

    // Describes the next entry into *data and returns true, or returns false when the
    // enumeration has ended (and keeps returning false until the next Init). `caller` names
    // the log messages; null or empty means the implementation's own name.
    virtual bool GetNext(_WIN32_FIND_DATAA* data, const char* caller) = 0;
    // Starts a new enumeration of `pattern` (null counts as empty): Clear(), then InitBase.
    // Returns the status of Clear (0).
    virtual long Init(const char* pattern);
    // Releases the results of the current enumeration; returns 0.
    virtual long Clear() = 0;
    virtual ~KDirectoryBase() = default;

    // Entries handed out by GetNext since the last Init.
    int32_t GetCount() const { return m_count; }

protected:
    // Stores the pattern and resets the counter and both flags.
    void InitBase(const char* pattern);

    std::string m_pattern;
    int32_t m_count = 0;
    bool m_bMore = true;       // false once the enumeration has ended
    bool m_bFirstCall = true;  // true until GetNext has started the enumeration
};
