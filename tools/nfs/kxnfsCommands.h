// The commands of kxnfs, one function each, grouped by file:
//   kxnfsServer.cpp     exports, ping
//   kxnfsList.cpp       ls, stat
//   kxnfsTransfer.cpp   cat, get, put
//   kxnfsObjects.cpp    mkdir, rmdir, rm, mv, ln -s, readlink
//   kxnfsLock.cpp       lock
// Each takes a connected session and returns the exit status; every error line is printed
// already (kxnfsSession.h).
#pragma once

#include "kxnfsSession.h"

namespace kxnfs {

int RunExports(Session& s);
int RunPing(Session& s);
int RunLs(Session& s);
int RunStat(Session& s);
int RunCat(Session& s);
int RunGet(Session& s);
int RunPut(Session& s);
int RunMkdir(Session& s);
int RunRmdir(Session& s);
int RunRm(Session& s);
int RunMv(Session& s);
int RunSymlink(Session& s);
int RunReadlink(Session& s);
int RunLock(Session& s);

// A symbolic link's target as text (a terminating zero the server or library kept dropped);
// false when READLINK failed.
bool ReadLinkText(Session& s, const kxNFSUtils::DirEntry& link, std::string& target);

}  // namespace kxnfs
