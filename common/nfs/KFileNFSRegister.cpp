// Makes KFile open names of other hosts ("host:path") through KFileNFS, with nothing for a
// program to call: the registration runs while the program starts.
//
// A static library contributes an object file only when something the program uses refers to
// it, and nothing refers to a self-registering object: the NFS library's link options name
// kxKFileNFSRegistered (common/nfs/CMakeLists.txt), so every program that links the library
// links this object and with it the registration. The file layer below knows nothing of it.
#include <new>

#include "nfs/KFileNFS.h"
#include "platform/KFile.h"

namespace {

KFileABC* NewRemoteFile() { return new (std::nothrow) KFileNFS; }

}  // namespace

// Initialised at start-up, before main. Its value means nothing: the link options name it.
extern "C" {
extern const int kxKFileNFSRegistered;
const int kxKFileNFSRegistered = (KFile::SetRemoteFactory(&NewRemoteFile), 1);
}
