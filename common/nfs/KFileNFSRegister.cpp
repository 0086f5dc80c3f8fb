// Makes KFile open names of other hosts ("host:path") through KFileNFS, with nothing for a
// program to call: the registration runs while the program starts.
//
// A static library contributes an object file only when something the program uses refers to
// it, and nothing would refer to a self-registering object: KFile.cpp refers to
// kxKFileNFSRegistered, so every program that uses KFile links this object and with it the
// registration.
#include <new>

#include "nfs/KFileNFS.h"
#include "platform/KFile.h"

namespace {

KFileABC* NewRemoteFile() { return new (std::nothrow) KFileNFS; }

}  // namespace

// Initialised at start-up, before main. Its value means nothing: KFile.cpp refers to its name.
extern "C" {
extern const int kxKFileNFSRegistered;
const int kxKFileNFSRegistered = (KFile::SetRemoteFactory(&NewRemoteFile), 1);
}
