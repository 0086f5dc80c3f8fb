// NFSBrowseImpl3: the browse interface over NFS version 3. Internal to the NFS client; the
// factory CreateNFSBrowse is the only way to make one.
//
// The operations are spread over one source file per concern:
//   NFSBrowseImpl3.cpp     export listing
//   NFSOpen3.cpp           object operations: Open and its walk, Lookup
//   NFSCreate3.cpp         object operations: making files, directories and symbolic links
//   NFSObjectOps3.cpp      object operations: remove, rename, hard links, symbolic link
//                          text, attributes, access (pure helpers in kxNFS3ObjectUtils.h)
//   NFSTransfer3.cpp       data transfer (READ and WRITE in chunks)
//   NFSDirList3.cpp        directory listing (READDIRPLUS), with NFS3GetNextHandle.h
// Locking is version-independent and lives with NFSBrowseImplCommon (NFSLock.cpp).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "nfs/NFSBrowseImplCommon.h"
#include "nfs/kxNFS3Pipeline.h"

struct write3args;
struct write3res;
struct read3args;
struct read3res;
struct diropres3ok;

namespace kxNFSUtils {

class NFSBrowseImpl3 final : public NFSBrowseImplCommon {
public:
    using NFSBrowseImplCommon::NFSBrowseImplCommon;

    // Export listing (NFSBrowseImpl3.cpp).
    bool Exports(std::vector<ExportInfo>& list) override;
    void ExportPaths(std::vector<std::string>& list) override;

    // ---- Object operations (NFSObjectOps3.cpp) ----
    DirEntry* Open(const std::string& path, bool create, bool nearest) override;
    bool Lookup(const DirEntry& dir, const std::string& name, DirEntry& entry) override;
    bool CreateObject(const DirEntry& dir, DirEntry& entry) override;
    bool DeleteObject(const DirEntry& dir, const DirEntry& entry) override;
    bool RenameObject(const DirEntry& dir, DirEntry& entry, const std::string& newName) override;
    bool ReadSymlink(const DirEntry& entry, KBuffer& target) override;
    bool CreateSymlink(const DirEntry& dir, DirEntry& entry, const KBuffer& target) override;
    bool Access(const DirEntry& entry, uint32_t& mask) override;
    bool MakeLink(const DirEntry& entry, const DirEntry& dir, const std::string& name) override;
    bool SetAttributes(DirEntry& entry, uint32_t selection) override;
    bool GetAttributes(DirEntry& entry) override;
    // ---- end of object operations ----

    // ---- Data transfer (NFSTransfer3.cpp) ----
    unsigned long Write(const DirEntry& file, const char* data, long long offset,
                        unsigned long count) override;
    unsigned long Read(const DirEntry& file, char* data, long long offset,
                       unsigned long count) override;
    // ---- end of data transfer ----

    // ---- Directory listing (NFSDirList3.cpp) ----
    bool Entries(const DirEntry& dir, std::vector<DirEntry>& list) override;
    NFSGetNextHandle* GetFirstDirEntry(const DirEntry& dir, DirEntry& first) override;
    bool GetNextDirEntry(NFSGetNextHandle* handle, DirEntry& next) override;
    // ---- end of directory listing ----

private:
    // ---- Object operations: private helpers ----
    // Each returns 0 or the code of a failure that was translated and logged; the callers
    // decide whether it becomes the last error.

    // Stores a failure code as the last error; true for KX_OK.
    bool Store(long rc);

    // LOOKUP of name in dir into entry, made afresh: both paths `path`, dir's preferred sizes,
    // handle and attributes (by GETATTR when the reply has none). Failures are logged with
    // the detail host ":" path, except that with quietNoEnt an NFS3ERR_NOENT comes back as
    // KX_E_NFS_NOENT without a log line (Open is about to create the name).
    long LookupName(const DirEntry& dir, const std::string& name, const std::string& path,
                    bool quietNoEnt, DirEntry& entry);
    // GETATTR into entry's attributes; logged with host ":" entry.serverPath.
    long FetchAttributes(DirEntry& entry);
    // Open's walk below the export root, one LOOKUP per name in a loop (so no path, however
    // long, can exhaust the stack). True with entry = the object at the end of names (created
    // there by CreateLeaf when `create` and it is missing); false with the last error set and
    // entry = the deepest object reached, the root itself when none.
    bool OpenLeaf(const ExportInfo& root, const std::vector<std::string>& names, bool create,
                  DirEntry& entry);
    // Open's CREATE of name in dir (UNCHECKED, 0777, owner 0, group 0, size 0, server times).
    long CreateLeaf(const DirEntry& dir, const std::string& name, const std::string& path,
                    DirEntry& entry);
    // CreateObject's MKDIR with every attribute of entry, size 0 included. A server that takes
    // no size for a directory answers NFS3ERR_INVAL, after making it (nfs-ganesha) or not: the
    // name is then looked up and, if it is a directory now, given the other attributes by
    // SETATTR; if it is missing, made again without the size.
    long MakeDirectory(const DirEntry& dir, const std::string& name, const std::string& path,
                       DirEntry& entry);
    // SETATTR of the selected attributes of entry, without the ctime guard.
    long SetAttr(const DirEntry& entry, uint32_t selection);
    // Makes entry the new object a CREATE, MKDIR or SYMLINK reply describes: both paths `path`,
    // dir's preferred sizes, handle and attributes from the reply, or by LOOKUP of name in dir
    // and GETATTR when the reply leaves them out.
    long AdoptNewObject(const DirEntry& dir, const std::string& name, const std::string& path,
                        const diropres3ok& reply, DirEntry& entry);
    // ---- end of object operations: private helpers ----

    // ---- Data transfer: private helpers ----
    // The sequential transfer: args comes filled for the first chunk (handle, offset, and
    // count = the chunk size); count comes in as the total to move. The number of chunks is
    // fixed before the first request (total / chunk, plus one for a remainder, which the last
    // chunk carries). Each chunk is one call that waits for its reply; offset and buffer
    // advance by the count the server reports, so a short reply shifts the later chunks and
    // the tail may stay unmoved. Cancellation between chunks ends the transfer as a success.
    // True with count = the bytes moved; false with count = 0 and the translated code in the
    // last error after the first failed chunk. res is the working result, released after each
    // chunk.
    bool StandardWrite(const char* data, unsigned int& count, write3args& args, write3res& res);
    bool StandardRead(char* data, unsigned int& count, read3args& args, read3res& res);
    // For the pipelined transfer: waits up to 10 seconds for the NFS socket to become readable
    // or writable. True when it did not (time-out or error), false when it is ready.
    bool Panic();
    // The pipelined transfer's own connection (kxNFS3ScatterGather.h), made on first use and
    // kept for the next transfer while it stays sound. Destroyed before the credentials it
    // uses (members of this class end before those of the base).
    std::unique_ptr<NFS3Pipeline> pipeline;
    // ---- end of data transfer: private helpers ----

    // ---- Directory listing: private helpers ----
    // ---- end of directory listing: private helpers ----
};

}  // namespace kxNFSUtils
