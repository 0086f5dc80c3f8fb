// Placeholder until the object operations land: each refuses with KX_E_REFUSED.
#include "nfs/NFSBrowseImpl3.h"

namespace kxNFSUtils {

DirEntry* NFSBrowseImpl3::Open(const std::string&, bool, bool) {
    lastError = KX_E_REFUSED;
    return nullptr;
}
bool NFSBrowseImpl3::Lookup(const DirEntry&, const std::string&, DirEntry&) { lastError = KX_E_REFUSED; return false; }
bool NFSBrowseImpl3::CreateObject(const DirEntry&, DirEntry&) { lastError = KX_E_REFUSED; return false; }
bool NFSBrowseImpl3::DeleteObject(const DirEntry&, const DirEntry&) { lastError = KX_E_REFUSED; return false; }
bool NFSBrowseImpl3::RenameObject(const DirEntry&, DirEntry&, const std::string&) { lastError = KX_E_REFUSED; return false; }
bool NFSBrowseImpl3::ReadSymlink(const DirEntry&, KBuffer&) { lastError = KX_E_REFUSED; return false; }
bool NFSBrowseImpl3::CreateSymlink(const DirEntry&, DirEntry&, const KBuffer&) { lastError = KX_E_REFUSED; return false; }
bool NFSBrowseImpl3::Access(const DirEntry&, uint32_t&) { return false; }
bool NFSBrowseImpl3::MakeLink(const DirEntry&, const DirEntry&, const std::string&) { lastError = KX_E_REFUSED; return false; }
bool NFSBrowseImpl3::SetAttributes(DirEntry&, uint32_t) { lastError = KX_E_REFUSED; return false; }
bool NFSBrowseImpl3::GetAttributes(DirEntry&) { lastError = KX_E_REFUSED; return false; }

}  // namespace kxNFSUtils
