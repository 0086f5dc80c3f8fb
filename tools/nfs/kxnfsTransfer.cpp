// cat, get and put: file contents moved in pieces of a few MiB, never whole files in memory.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <memory>
#include <vector>

#include "kxTextEscape.h"
#include "kxnfsCommands.h"
#include "kxnfsProgress.h"

using namespace kxNFSUtils;

namespace kxnfs {

namespace {

// The most one Read or Write call moves. The client cuts each call into chunks of the file's
// preferred size and waits for each reply in turn, so a piece only bounds the memory; a whole
// number of chunks per piece avoids a short chunk at every piece's end.
constexpr uint32_t kPieceBytes = 4u << 20;
constexpr int kStopped = -1;

size_t PieceSize(uint32_t chunk) {
    if (chunk == 0 || chunk >= kPieceBytes) return kPieceBytes;
    return static_cast<size_t>(kPieceBytes / chunk) * chunk;
}

FILE* ProgressStream() { return isatty(STDERR_FILENO) ? stderr : nullptr; }

std::string Shown(const std::string& local) { return kxtools::TerminalText(local, false); }

int LocalFailure(const std::string& local, const char* what, int error) {
    Complain(Shown(local) + ": " + what + strerror(error));
    return kExitLocal;
}

bool WriteAll(int fd, const char* data, size_t n) {
    while (n > 0) {
        const ssize_t w = write(fd, data, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        data += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

// Fills up to n bytes; fewer only at the end of the input. -1 on an error.
ssize_t ReadFull(int fd, char* data, size_t n) {
    size_t got = 0;
    while (got < n) {
        const ssize_t r = read(fd, data + got, n - got);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) return -1;
        if (r == 0) break;
        got += static_cast<size_t>(r);
    }
    return static_cast<ssize_t>(got);
}

// The regular file at path (a symbolic link followed; path becomes the path opened), with the
// export's transfer sizes filled in. Null after the error line; exit is set then.
std::unique_ptr<DirEntry> OpenForReading(Session& s, std::string& path, int& exit) {
    std::unique_ptr<DirEntry> file = s.OpenFollowing(path, exit);
    if (!file) return nullptr;
    if (file->type != kDirEntryRegular) {
        exit = s.Fail(path, KX_E_NFS_WRONG_TYPE,
                      file->type == kDirEntryDirectory ? "is a directory" : "not a regular file");
        return nullptr;
    }
    s.FillTransferSizes(path, *file);
    return file;
}

// Copies the file into fd. kExitOk, kStopped, or the exit code after the error line. Reading
// ends at the first short piece at or past the size the file had when opened, or at a piece
// of nothing (a file cut short meanwhile ends the copy there).
int Download(Session& s, const std::string& path, const DirEntry& file, int fd,
             const std::string& local, FILE* progress) {
    NFSBrowse& browse = s.Browse();
    // Read cuts its chunks by the file's preferred write size (the two sizes are crossed).
    const size_t piece = PieceSize(file.writePreferred);
    std::vector<char> buffer(piece);
    Progress bar(progress, file.size);
    uint64_t offset = 0;
    for (;;) {
        if (g_stopSignal != 0) {
            bar.Finish(offset);
            return kStopped;
        }
        const unsigned long n = browse.Read(file, buffer.data(), static_cast<long long>(offset),
                                            static_cast<unsigned long>(piece));
        if (n == 0) {
            if (g_stopSignal != 0) continue;
            bar.Finish(offset);
            if (offset < file.size && browse.GetLastObjectError() != 0) return s.FailLast(path);
            return kExitOk;
        }
        if (!WriteAll(fd, buffer.data(), n)) {
            const int error = errno;
            bar.Finish(offset);
            return LocalFailure(local, "", error);
        }
        offset += n;
        bar.Update(offset);
        if (n < piece && offset >= file.size) break;
    }
    bar.Finish(offset);
    return kExitOk;
}

// Copies fd to the file from offset 0. kExitOk, kStopped, or the exit code after the error
// line. The server's size afterwards must be the bytes written.
int Upload(Session& s, const std::string& path, DirEntry& file, int fd, const std::string& local,
           uint64_t total) {
    NFSBrowse& browse = s.Browse();
    // Write cuts its chunks by the file's preferred read size (the two sizes are crossed).
    const size_t piece = PieceSize(file.readPreferred);
    std::vector<char> buffer(piece);
    Progress bar(ProgressStream(), total);
    uint64_t offset = 0;
    for (;;) {
        if (g_stopSignal != 0) {
            bar.Finish(offset);
            return kStopped;
        }
        const ssize_t n = ReadFull(fd, buffer.data(), piece);
        if (n < 0) {
            const int error = errno;
            bar.Finish(offset);
            return LocalFailure(local, "", error);
        }
        if (n == 0) break;
        // A short write leaves the rest of the piece to send again from where it stopped.
        for (size_t done = 0; done < static_cast<size_t>(n);) {
            const unsigned long w =
                browse.Write(file, buffer.data() + done, static_cast<long long>(offset),
                             static_cast<unsigned long>(static_cast<size_t>(n) - done));
            if (w == 0) {
                bar.Finish(offset);
                if (g_stopSignal != 0) return kStopped;
                return s.FailLast(path);
            }
            done += w;
            offset += w;
            bar.Update(offset);
        }
    }
    bar.Finish(offset);
    if (!browse.GetAttributes(file)) return s.FailLast(path);
    if (file.size != offset) {
        char text[128];
        snprintf(text, sizeof text, "the server reports %" PRIu64 " bytes after %" PRIu64
                 " were written", file.size, offset);
        return s.Fail(path, 0, text);
    }
    return kExitOk;
}

std::string LocalDirectory(const std::string& local) {
    const size_t slash = local.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : local.substr(0, slash);
}

std::string LocalBaseName(const std::string& local) {
    std::string s = local;
    while (s.size() > 1 && s.back() == '/') s.pop_back();
    const size_t slash = s.rfind('/');
    return slash == std::string::npos ? s : s.substr(slash + 1);
}

}  // namespace

int RunCat(Session& s) {
    std::string path = s.Args().path;
    int exit = kExitOk;
    std::unique_ptr<DirEntry> file = OpenForReading(s, path, exit);
    if (!file) return exit;
    const int rc = Download(s, path, *file, STDOUT_FILENO, "standard output", nullptr);
    if (rc == kStopped) DieOfStopSignal();
    return rc;
}

int RunGet(Session& s) {
    std::string path = s.Args().path;
    int exit = kExitOk;
    std::unique_ptr<DirEntry> file = OpenForReading(s, path, exit);
    if (!file) return exit;

    std::string local = s.Args().local;
    struct stat st {};
    if (stat(local.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) local += "/" + LastName(path);
    // Written under a temporary name beside the target and renamed into place, so the target
    // is either the old file or the whole new one, never a half.
    std::string temp = LocalDirectory(local) + "/." + LocalBaseName(local) + ".kxnfs-XXXXXX";
    const int fd = mkostemp(&temp[0], O_CLOEXEC);
    if (fd < 0) return LocalFailure(local, "cannot create a temporary file beside it: ", errno);
    // Like cp: the remote permission bits, less the umask.
    fchmod(fd, static_cast<mode_t>(file->mode & 0777u) & ~CurrentUmask());
    int rc = Download(s, path, *file, fd, local, ProgressStream());
    if (close(fd) != 0 && rc == kExitOk) rc = LocalFailure(local, "", errno);
    if (rc == kExitOk && rename(temp.c_str(), local.c_str()) != 0)
        rc = LocalFailure(local, "", errno);
    if (rc != kExitOk) unlink(temp.c_str());
    if (rc == kStopped) DieOfStopSignal();
    return rc;
}

int RunPut(Session& s) {
    const std::string& local = s.Args().local;
    const bool fromStdin = local == "-";
    const int fd = fromStdin ? STDIN_FILENO : open(local.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return LocalFailure(local, "", errno);
    struct stat st {};
    if (fstat(fd, &st) != 0) return LocalFailure(local, "", errno);
    if (S_ISDIR(st.st_mode)) return LocalFailure(local, "", EISDIR);
    const uint64_t total = S_ISREG(st.st_mode) ? static_cast<uint64_t>(st.st_size) : 0;
    const uint32_t mode =
        static_cast<uint32_t>((S_ISREG(st.st_mode) ? st.st_mode & 0777 : 0666) & ~CurrentUmask());

    NFSBrowse& browse = s.Browse();
    std::string path = s.Args().path;
    int exit = kExitOk;
    std::unique_ptr<DirEntry> file = s.OpenFollowing(path, exit, true);
    if (file && file->type == kDirEntryDirectory) {
        // Into a directory under the local file's name, as cp does.
        if (fromStdin) return s.Fail(path, KX_E_NFS_WRONG_TYPE, "is a directory; name the file");
        path = NormalisePath(path + "/" + LocalBaseName(local));
        file = s.OpenFollowing(path, exit, true);
    }
    if (!file && exit != Session::kMissing) return exit;
    if (file) {
        if (file->type != kDirEntryRegular)
            return s.Fail(path, KX_E_NFS_WRONG_TYPE,
                          file->type == kDirEntryDirectory ? "is a directory"
                                                           : "not a regular file");
        // Replaced like a file opened with O_TRUNC: cut to nothing, then written.
        file->size = 0;
        if (!browse.SetAttributes(*file, 0x08)) return s.FailLast(path);
    } else {
        // Created by the caller's user and group with the local permission bits, which
        // CreateObject sends (Open's own creation would make it 0777 and owned by root).
        std::string name;
        std::unique_ptr<DirEntry> dir = s.OpenParent(path, name, exit);
        if (!dir) return exit;
        file.reset(new DirEntry);
        s.Describe(*dir, name, kDirEntryRegular, mode, *file);
        if (!browse.CreateObject(*dir, *file)) return s.FailLast(path);
    }
    s.FillTransferSizes(path, *file);
    const int rc = Upload(s, path, *file, fd, fromStdin ? "standard input" : local, total);
    if (!fromStdin) close(fd);
    if (rc == kStopped) DieOfStopSignal();
    return rc;
}

}  // namespace kxnfs
