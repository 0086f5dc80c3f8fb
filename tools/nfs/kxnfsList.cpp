// ls and stat: objects described.
#include <cstdio>
#include <memory>

#include "base/KBuffer.h"
#include "kxTextEscape.h"
#include "kxnfsCommands.h"
#include "kxnfsFormat.h"

using namespace kxNFSUtils;

namespace kxnfs {

namespace {

// Prints one entry in the form the options ask for. A symbolic link's target is read only for
// the long and JSON forms; when that fails the link is shown without it.
void PrintEntry(Session& s, const DirEntry& e, const std::string& name) {
    const Arguments& args = s.Args();
    std::string target;
    if (e.type == kDirEntrySymlink && (args.longFormat || args.json)) ReadLinkText(s, e, target);
    if (args.json)
        printf("%s\n", JsonEntry(e, name, target).c_str());
    else if (args.longFormat)
        printf("%s\n", LongLine(e, name, target).c_str());
    else
        printf("%s\n", kxtools::TerminalText(name, false).c_str());
}

}  // namespace

bool ReadLinkText(Session& s, const DirEntry& link, std::string& target) {
    KBuffer buffer;
    if (!s.Browse().ReadSymlink(link, buffer)) return false;
    const unsigned char* p = buffer.GetPtr();
    if (p != nullptr)
        target.assign(reinterpret_cast<const char*>(p), buffer.GetBytesUsed());
    else
        target.clear();
    while (!target.empty() && target.back() == '\0') target.pop_back();
    return true;
}

int RunLs(Session& s) {
    const std::string& path = s.Args().path;
    int exit = kExitOk;
    std::unique_ptr<DirEntry> dir = s.Open(path, exit);
    if (!dir) return exit;
    // Like ls, a non-directory operand is listed as itself.
    if (dir->type != kDirEntryDirectory) {
        PrintEntry(s, *dir, path);
        return kExitOk;
    }
    // Entries are printed as they arrive, in the server's order: the enumeration holds one
    // reply at a time, so a directory of any size lists in constant memory.
    NFSBrowse& browse = s.Browse();
    DirEntry entry;
    std::unique_ptr<NFSGetNextHandle> listing(browse.GetFirstDirEntry(*dir, entry));
    bool more = listing != nullptr;
    while (more) {
        const std::string name = entry.Name();
        if (s.Args().all || name.empty() || name[0] != '.') PrintEntry(s, entry, name);
        more = browse.GetNextDirEntry(listing.get(), entry);
    }
    if (g_stopSignal != 0) DieOfStopSignal();
    // The end of the listing leaves 0; a failed batch its code.
    if (browse.GetLastObjectError() != 0) return s.FailLast(path);
    return kExitOk;
}

int RunStat(Session& s) {
    const std::string& path = s.Args().path;
    int exit = kExitOk;
    std::unique_ptr<DirEntry> e = s.Open(path, exit);
    if (!e) return exit;
    std::string target;
    if (e->type == kDirEntrySymlink) ReadLinkText(s, *e, target);
    if (s.Args().json)
        printf("%s\n", JsonEntry(*e, path, target).c_str());
    else
        printf("%s", StatText(*e, s.Where(path), target).c_str());
    return kExitOk;
}

}  // namespace kxnfs
