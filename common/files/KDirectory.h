// KDirectory: enumerates the paths that match a wildcard pattern (glob(3), no flags), one per
// GetNext call.
//
// Each matching path is described by a freshly constructed KFile through GetWinFindData. That
// KFile has no implementation object, so GetWinFindData always refuses (0x80000008) and clears
// the record: every enumeration ends at its first match and hands out nothing. This is the
// deliberate behaviour of this release, and CleanDirectory and CopyDirectoryTree inherit it
// (see files/kxFileUtils.h). Do not "fix" it here without changing those callers' contracts.
//
// Status and logging: GetNext returns a truth value; a glob failure other than "no match" is
// logged as "<caller>: error <n> matching file pattern <pattern>" with status 0xE002010B.
// Thread safety: none; one object belongs to one thread at a time.
#pragma once

#include <glob.h>

#include <cstddef>

#include "base/kxEnv.h"
#include "base/kxStatus.h"
#include "files/KDirectoryBase.h"

constexpr long KX_E_PATTERN_MATCH = kxStatus(0xE002010B);  // glob failed

class KDirectory : public KDirectoryBase {
public:
    // env: where glob runs (base/kxEnv.h); null means kxEnv::Default() as it is now.
    explicit KDirectory(kxEnv* env = nullptr);
    ~KDirectory() override;

    // False when the enumeration has ended or data is null. The first call runs the pattern;
    // no match ends the enumeration silently. A negative status of GetWinFindData ends it too
    // (which, as explained above, is what always happens).
    bool GetNext(_WIN32_FIND_DATAA* data, const char* caller) override;
    // Frees the glob result; returns 0.
    long Clear() override;

private:
    kxEnv* const m_pEnv;
    glob_t m_glob;
    size_t m_index = 0;  // next path of m_glob to describe
};
