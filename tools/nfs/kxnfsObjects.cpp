// mkdir, rmdir, rm, mv, ln -s and readlink: objects made, removed, renamed and read.
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/KBuffer.h"
#include "kxTextEscape.h"
#include "kxnfsCommands.h"

using namespace kxNFSUtils;

namespace kxnfs {

namespace {

// Opens the object at the session's path and the directory that holds it. False after the
// error line.
bool OpenWithParent(Session& s, std::unique_ptr<DirEntry>& entry, std::unique_ptr<DirEntry>& dir,
                    int& exit) {
    const std::string& path = s.Args().path;
    std::string name;
    dir = s.OpenParent(path, name, exit);
    if (!dir) return false;
    entry = s.Open(path, exit);
    return entry != nullptr;
}

// rmdir (directory) and rm. The removal procedure follows the entry's type, so the type the
// command names is checked here: rmdir removes no file and rm no directory.
int Remove(Session& s, bool directory) {
    std::unique_ptr<DirEntry> entry, dir;
    int exit = kExitOk;
    if (!OpenWithParent(s, entry, dir, exit)) return exit;
    if ((entry->type == kDirEntryDirectory) != directory)
        return s.Fail(s.Args().path, KX_E_NFS_WRONG_TYPE,
                      directory ? "not a directory" : "is a directory (use rmdir)");
    return s.Browse().DeleteObject(*dir, *entry) ? kExitOk : s.FailLast(s.Args().path);
}

}  // namespace

int RunMkdir(Session& s) {
    const std::string& path = s.Args().path;
    int exit = kExitOk;
    std::string name;
    std::unique_ptr<DirEntry> dir = s.OpenParent(path, name, exit);
    if (!dir) return exit;
    DirEntry entry;
    s.Describe(*dir, name, kDirEntryDirectory, 0777u & ~static_cast<uint32_t>(CurrentUmask()),
               entry);
    return s.Browse().CreateObject(*dir, entry) ? kExitOk : s.FailLast(path);
}

int RunRmdir(Session& s) { return Remove(s, true); }

int RunRm(Session& s) { return Remove(s, false); }

int RunMv(Session& s) {
    std::unique_ptr<DirEntry> entry, dir;
    int exit = kExitOk;
    if (!OpenWithParent(s, entry, dir, exit)) return exit;
    return s.Browse().RenameObject(*dir, *entry, s.Args().name) ? kExitOk
                                                                 : s.FailLast(s.Args().path);
}

int RunSymlink(Session& s) {
    const std::string& path = s.Args().path;
    int exit = kExitOk;
    std::string name;
    std::unique_ptr<DirEntry> dir = s.OpenParent(path, name, exit);
    if (!dir) return exit;
    DirEntry entry;
    s.Describe(*dir, name, kDirEntrySymlink, 0777u, entry);
    // The target's bytes, counted without a terminator; one follows them for readers that
    // take the buffer as a C string.
    const std::string& target = s.Args().name;
    KBuffer buffer(static_cast<unsigned long>(target.size() + 1));
    unsigned char* p = buffer.GetPtr();
    if (p == nullptr) return s.Fail(path, KX_E_OUT_OF_MEMORY);
    memcpy(p, target.data(), target.size());
    p[target.size()] = '\0';
    buffer.SetBytesUsed(static_cast<unsigned long>(target.size()));
    return s.Browse().CreateSymlink(*dir, entry, buffer) ? kExitOk : s.FailLast(path);
}

int RunReadlink(Session& s) {
    const std::string& path = s.Args().path;
    int exit = kExitOk;
    std::unique_ptr<DirEntry> link = s.Open(path, exit);
    if (!link) return exit;
    if (link->type != kDirEntrySymlink)
        return s.Fail(path, KX_E_NFS_WRONG_TYPE, "not a symbolic link");
    std::string target;
    if (!ReadLinkText(s, *link, target)) return s.FailLast(path);
    printf("%s\n", kxtools::TerminalText(target, false).c_str());
    return kExitOk;
}

}  // namespace kxnfs
