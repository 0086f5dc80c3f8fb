// NFSBrowseImpl3: the browse interface over NFS version 3. Internal to the NFS client; the
// factory CreateNFSBrowse is the only way to make one.
#pragma once

#include "nfs/NFSBrowseImplCommon.h"

namespace kxNFSUtils {

class NFSBrowseImpl3 final : public NFSBrowseImplCommon {
public:
    using NFSBrowseImplCommon::NFSBrowseImplCommon;

    bool Exports(std::vector<ExportInfo>& list) override;
    void ExportPaths(std::vector<std::string>& list) override;

    // Object operations, data transfer and directory listing are not available yet: each
    // refuses, with KX_E_REFUSED in the last error (0 bytes, or null, where it answers so).
    bool Entries(const DirEntry& dir, std::vector<DirEntry>& list) override;
    DirEntry* Open(const std::string& path, bool create, bool nearest) override;
    bool Lookup(const DirEntry& dir, const std::string& name, DirEntry& entry) override;
    unsigned long Write(const DirEntry& file, const char* data, long long offset,
                        unsigned long count) override;
    unsigned long Read(const DirEntry& file, char* data, long long offset,
                       unsigned long count) override;
    bool CreateObject(const DirEntry& dir, DirEntry& entry) override;
    bool DeleteObject(const DirEntry& dir, const DirEntry& entry) override;
    bool RenameObject(const DirEntry& dir, DirEntry& entry, const std::string& newName) override;
    bool ReadSymlink(const DirEntry& entry, KBuffer& target) override;
    bool CreateSymlink(const DirEntry& dir, DirEntry& entry, const KBuffer& target) override;
    bool Access(const DirEntry& entry, uint32_t& mask) override;
    bool MakeLink(const DirEntry& entry, const DirEntry& dir, const std::string& name) override;
    NFSGetNextHandle* GetFirstDirEntry(const DirEntry& dir, DirEntry& first) override;
    bool GetNextDirEntry(NFSGetNextHandle* handle, DirEntry& next) override;
    bool SetAttributes(DirEntry& entry, uint32_t selection) override;
    bool GetAttributes(DirEntry& entry) override;

private:
    bool Refuse() {
        lastError = KX_E_REFUSED;
        return false;
    }
};

}  // namespace kxNFSUtils
