#include "kxnfsArgs.h"

#include <cstring>

namespace kxnfs {

namespace {

// AUTH_UNIX carries at most 16 group ids; more would be cut silently by the RPC layer.
constexpr size_t kMaxGroups = 16;

struct CommandName {
    const char* name;
    Command command;
};

constexpr CommandName kCommands[] = {
    {"exports", Command::Exports}, {"ping", Command::Ping},   {"ls", Command::Ls},
    {"stat", Command::Stat},       {"cat", Command::Cat},     {"get", Command::Get},
    {"put", Command::Put},         {"mkdir", Command::Mkdir}, {"rmdir", Command::Rmdir},
    {"rm", Command::Rm},           {"mv", Command::Mv},       {"ln", Command::Symlink},
    {"readlink", Command::Readlink}, {"lock", Command::Lock},
};

// A decimal id in 0..2^32-1: digits only, no sign, no blanks.
bool ParseId(const std::string& text, uint32_t& id) {
    if (text.empty() || text.size() > 10) return false;
    uint64_t v = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        v = v * 10 + static_cast<uint64_t>(c - '0');
    }
    if (v > 0xFFFFFFFFull) return false;
    id = static_cast<uint32_t>(v);
    return true;
}

bool ParseGroups(const std::string& text, std::vector<uint32_t>& gids) {
    gids.clear();
    size_t at = 0;
    for (;;) {
        const size_t comma = text.find(',', at);
        uint32_t g;
        if (!ParseId(text.substr(at, comma == std::string::npos ? std::string::npos : comma - at),
                     g))
            return false;
        gids.push_back(g);
        if (comma == std::string::npos) return gids.size() <= kMaxGroups;
        at = comma + 1;
    }
}

// The argument vector from a position on, with the option clusters of one command.
class Cursor {
public:
    Cursor(int argc, const char* const* argv, int at) : m_argc(argc), m_argv(argv), m_at(at) {}

    bool AtEnd() const { return m_at >= m_argc; }
    std::string Peek() const { return m_argv[m_at] != nullptr ? m_argv[m_at] : ""; }
    std::string Take() {
        if (AtEnd()) return std::string();
        const char* a = m_argv[m_at++];
        return a != nullptr ? a : "";
    }
    // True when the next argument is an option cluster ("-l", "-la"); "--" is consumed and
    // ends the options, "-" alone is an operand.
    bool NextIsOptions() {
        if (AtEnd() || m_endOfOptions) return false;
        const std::string a = Peek();
        if (a == "--") {
            ++m_at;
            m_endOfOptions = true;
            return false;
        }
        return a.size() > 1 && a[0] == '-';
    }

private:
    int m_argc;
    const char* const* m_argv;
    int m_at;
    bool m_endOfOptions = false;
};

bool Fail(std::string& error, const std::string& why) {
    error = why;
    return false;
}

bool ValidHost(const std::string& host, std::string& error) {
    if (host.empty()) return Fail(error, "the host name is empty");
    if (host.find(':') != std::string::npos)
        return Fail(error, "HOST is a name or an IPv4 address, without ':'");
    return true;
}

bool TakeRemote(Cursor& c, Arguments& args, std::string& error) {
    if (c.AtEnd()) return Fail(error, "HOST:PATH is missing");
    return ParseRemote(c.Take(), args.host, args.path, error) && ValidHost(args.host, error);
}

bool TakeLocal(Cursor& c, std::string& local, std::string& error) {
    if (c.AtEnd()) return Fail(error, "the local file name is missing");
    local = c.Take();
    return !local.empty() || Fail(error, "the local file name is empty");
}

// Option clusters of the command; `allowed` lists the letters it takes.
bool TakeFlags(Cursor& c, const char* command, const char* allowed, std::string& flags,
               std::string& error) {
    while (c.NextIsOptions()) {
        const std::string a = c.Take();
        for (size_t k = 1; k < a.size(); ++k) {
            if (a[k] == '\0' || strchr(allowed, a[k]) == nullptr)
                return Fail(error, std::string(command) + ": unknown option -" + a[k]);
            flags += a[k];
        }
    }
    return true;
}

bool NoMore(const Cursor& c, std::string& error) {
    return c.AtEnd() || Fail(error, "too many arguments");
}

bool ParseCommand(Cursor& c, const std::string& word, Arguments& args, std::string& error) {
    std::string flags;
    switch (args.command) {
    case Command::Exports:
    case Command::Ping:
        if (!TakeFlags(c, word.c_str(), "", flags, error)) return false;
        if (c.AtEnd()) return Fail(error, word + ": HOST is missing");
        args.host = c.Take();
        return ValidHost(args.host, error) && NoMore(c, error);
    case Command::Ls:
        if (!TakeFlags(c, "ls", "la", flags, error)) return false;
        args.longFormat = flags.find('l') != std::string::npos;
        args.all = flags.find('a') != std::string::npos;
        return TakeRemote(c, args, error) && NoMore(c, error);
    case Command::Stat:
    case Command::Cat:
    case Command::Mkdir:
    case Command::Rmdir:
    case Command::Rm:
    case Command::Readlink:
        return TakeFlags(c, word.c_str(), "", flags, error) && TakeRemote(c, args, error) &&
               NoMore(c, error);
    case Command::Get:
        return TakeFlags(c, "get", "", flags, error) && TakeRemote(c, args, error) &&
               TakeLocal(c, args.local, error) && NoMore(c, error);
    case Command::Put:
        return TakeFlags(c, "put", "", flags, error) && TakeLocal(c, args.local, error) &&
               TakeRemote(c, args, error) && NoMore(c, error);
    case Command::Mv:
        if (!TakeFlags(c, "mv", "", flags, error) || !TakeRemote(c, args, error)) return false;
        if (c.AtEnd()) return Fail(error, "mv: NEWNAME is missing");
        args.name = c.Take();
        if (args.name.empty() || args.name == "." || args.name == ".." ||
            args.name.find('/') != std::string::npos)
            return Fail(error, "mv: NEWNAME is one name in the same directory, without '/'");
        return NoMore(c, error);
    case Command::Symlink:
        if (!TakeFlags(c, "ln", "s", flags, error)) return false;
        if (flags.empty())
            return Fail(error, "ln: only symbolic links are made: ln -s TARGET HOST:PATH");
        if (c.AtEnd()) return Fail(error, "ln: TARGET is missing");
        args.name = c.Take();
        if (args.name.empty()) return Fail(error, "ln: TARGET is empty");
        return TakeRemote(c, args, error) && NoMore(c, error);
    case Command::Lock:
        if (!TakeFlags(c, "lock", "sx", flags, error)) return false;
        if (flags.find('s') != std::string::npos && flags.find('x') != std::string::npos)
            return Fail(error, "lock: -s and -x cannot be combined");
        args.exclusive = flags.find('s') == std::string::npos;
        if (!TakeRemote(c, args, error)) return false;
        if (c.AtEnd()) return Fail(error, "lock: COMMAND is missing");
        while (!c.AtEnd()) args.program.push_back(c.Take());
        return !args.program[0].empty() || Fail(error, "lock: COMMAND is empty");
    }
    return Fail(error, "unknown command");
}

}  // namespace

std::string NormalisePath(const std::string& path) {
    std::vector<std::string> names;
    size_t at = 0;
    while (at <= path.size()) {
        size_t slash = path.find('/', at);
        if (slash == std::string::npos) slash = path.size();
        const std::string name = path.substr(at, slash - at);
        if (name == "..") {
            if (!names.empty()) names.pop_back();
        } else if (!name.empty() && name != ".") {
            names.push_back(name);
        }
        at = slash + 1;
    }
    std::string out;
    for (const std::string& n : names) out += "/" + n;
    return out.empty() ? "/" : out;
}

bool ParseRemote(const std::string& text, std::string& host, std::string& path,
                 std::string& error) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) return Fail(error, "expected HOST:PATH, got '" + text + "'");
    host = text.substr(0, colon);
    if (host.empty()) return Fail(error, "no host before ':' in '" + text + "'");
    const std::string rest = text.substr(colon + 1);
    if (rest.empty() || rest[0] != '/')
        return Fail(error, "the path after '" + host + ":' must start with '/'");
    path = NormalisePath(rest);
    return true;
}

ParseResult ParseArguments(int argc, const char* const* argv, Arguments& args,
                           std::string& error) {
    args = Arguments();
    error.clear();
    bool tcp = false, udp = false;
    int i = 1;
    for (; i < argc; ++i) {
        const std::string a = argv[i] != nullptr ? argv[i] : "";
        if (a == "--help") return ParseResult::Help;
        if (a == "--") {
            ++i;
            break;
        }
        if (a.size() < 2 || a[0] != '-') break;
        for (size_t k = 1; k < a.size(); ++k) {
            const char letter = a[k];
            if (letter == 't') {
                tcp = true;
            } else if (letter == 'u') {
                udp = true;
            } else if (letter == 'j') {
                args.json = true;
            } else if (letter == 'S') {
                args.pipelined = false;
            } else if (letter == 'h') {
                return ParseResult::Help;
            } else if (letter == 'U' || letter == 'G') {
                // The value is the rest of the cluster ("-U0") or the next argument.
                std::string value;
                if (k + 1 < a.size()) {
                    value = a.substr(k + 1);
                } else if (i + 1 < argc && argv[i + 1] != nullptr) {
                    value = argv[++i];
                } else {
                    error = std::string("-") + letter + " needs a value";
                    return ParseResult::Usage;
                }
                if (letter == 'U') {
                    if (!ParseId(value, args.uid)) {
                        error = "-U takes a user id from 0 to 4294967295, not '" + value + "'";
                        return ParseResult::Usage;
                    }
                    args.haveUid = true;
                } else if (!ParseGroups(value, args.gids)) {
                    error = "-G takes 1 to 16 group ids from 0 to 4294967295 separated by "
                            "commas, not '" + value + "'";
                    return ParseResult::Usage;
                }
                break;
            } else {
                error = std::string("unknown option -") + (letter == '\0' ? '?' : letter);
                return ParseResult::Usage;
            }
        }
    }
    if (tcp && udp) {
        error = "-t and -u cannot be combined";
        return ParseResult::Usage;
    }
    args.protocol = tcp ? kxNFSUtils::eUseTCP : udp ? kxNFSUtils::eUseUDP
                                                    : kxNFSUtils::eUseTCPThenUDP;
    if (i >= argc) {
        error = "a command is needed";
        return ParseResult::Usage;
    }
    const std::string word = argv[i] != nullptr ? argv[i] : "";
    bool known = false;
    for (const CommandName& c : kCommands) {
        if (word == c.name) {
            args.command = c.command;
            known = true;
        }
    }
    if (!known) {
        error = "unknown command '" + word + "'";
        return ParseResult::Usage;
    }
    Cursor cursor(argc, argv, i + 1);
    return ParseCommand(cursor, word, args, error) ? ParseResult::Run : ParseResult::Usage;
}

void PrintUsage(FILE* out) {
    fputs(
        "usage: kxnfs [options] COMMAND ...\n"
        "  exports HOST                  list the exports with sizes and free space\n"
        "  ping HOST                     check that MOUNT and NFS answer\n"
        "  ls [-l] [-a] HOST:DIR         list a directory (-l long form, -a dot entries too)\n"
        "  stat HOST:PATH                show an object's attributes\n"
        "  cat HOST:PATH                 write a file to standard output\n"
        "  get HOST:PATH LOCAL           copy a file from the server\n"
        "  put LOCAL HOST:PATH           copy a file (or standard input, '-') to the server\n"
        "  mkdir HOST:PATH               make a directory\n"
        "  rmdir HOST:PATH               remove an empty directory\n"
        "  rm HOST:PATH                  remove a file or symbolic link\n"
        "  mv HOST:PATH NEWNAME          rename within the directory\n"
        "  ln -s TARGET HOST:PATH        make a symbolic link\n"
        "  readlink HOST:PATH            show a symbolic link's target\n"
        "  lock [-s|-x] HOST:PATH COMMAND [ARGS...]\n"
        "                                run COMMAND holding a shared or exclusive (default)\n"
        "                                lock on the file\n"
        "HOST is a name or a dotted IPv4 address; PATH is absolute and lies under an export.\n"
        "options:\n"
        "  -t         TCP only (default: TCP, falling back to UDP)\n"
        "  -u         UDP only for NFS\n"
        "  -j         exports, ls, stat: one JSON object per line\n"
        "  -S         transfers one request at a time (default: several in flight over TCP)\n"
        "  -U uid     user id sent to the server, 0-4294967295 (default: yours)\n"
        "  -G g1,g2   1 to 16 group ids, the first being the primary one (default: your group)\n"
        "  -h         this text\n"
        "exit status: 0 success, 1 the server failed or refused, 100 usage, 111 local error;\n"
        "lock: the command's status\n",
        out);
}

}  // namespace kxnfs
