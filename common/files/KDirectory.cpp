#include "files/KDirectory.h"

#include <cstring>

#include "base/kxLog.h"
#include "platform/KFile.h"

KDirectory::KDirectory(kxEnv* env) : m_pEnv(kxEnv::Or(env)) { memset(&m_glob, 0, sizeof m_glob); }

KDirectory::~KDirectory() { Clear(); }

long KDirectory::Clear() {
    m_pEnv->Globfree(&m_glob);
    memset(&m_glob, 0, sizeof m_glob);
    m_index = 0;
    return KX_OK;
}

bool KDirectory::GetNext(_WIN32_FIND_DATAA* data, const char* caller) {
    if (caller == nullptr || caller[0] == '\0') caller = "KDirectory::GetNext";
    if (!m_bMore || data == nullptr) return false;
    if (m_bFirstCall) {
        m_bFirstCall = false;
        const int rc = m_pEnv->Glob(m_pattern.c_str(), 0, nullptr, &m_glob);
        if (rc != 0) {
            if (rc != GLOB_NOMATCH) {
                kxLogPrintfA(KX_E_PATTERN_MATCH, kxLogSevFailure,
                             "%s: error %d matching file pattern <%s>", caller, rc,
                             m_pattern.c_str());
            }
            m_bMore = false;
            return false;
        }
    }
    if (m_index >= m_glob.gl_pathc) {
        m_bMore = false;
        return false;
    }
    // A fresh handle without an implementation: see the class comment.
    KFile file(m_pEnv);
    if (file.GetWinFindData(m_glob.gl_pathv[m_index], data) < 0) {
        m_bMore = false;
        return false;
    }
    ++m_index;
    ++m_count;
    if (m_index >= m_glob.gl_pathc) m_bMore = false;
    return true;
}
