#include "files/KDirectoryBase.h"

long KDirectoryBase::Init(const char* pattern) {
    const long status = Clear();
    InitBase(pattern);
    return status;
}

void KDirectoryBase::InitBase(const char* pattern) {
    m_pattern = pattern != nullptr ? pattern : "";
    m_count = 0;
    m_bMore = true;
    m_bFirstCall = true;
}
