#include "log/kxLogging.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/kxLog.h"
#include "base/kxLogSink.h"
#include "log/KLogStream.h"
#include "platform/KFileUnix.h"
#include "platform/kxDirectoryTree.h"
#include "platform/kxWin32.h"

KLogStream* g_pKLogStreamDefault = nullptr;
KLogStream* g_pKLogStreamEvents = nullptr;
KLogStream* g_pKLogStreamPerfCtrs = nullptr;
unsigned long g_KLogStreamDefaultSize = 0;
unsigned long g_KLogStreamEventsSize = 0;
unsigned long g_KLogStreamPerfCtrsSize = 0;
bool g_LoggingInitialized = false;
bool g_bLoggingDoAutoInit = true;
uint32_t g_CurrentProcessId = 0;
HINSTANCE g_hInstance = nullptr;

KLogInfo g_KLogInfo[3] = {
    {&g_pKLogStreamDefault, "Default.log", &g_KLogStreamDefaultSize, "LogDefaultSize", {0, 0}},
    {&g_pKLogStreamEvents, "Events.log", &g_KLogStreamEventsSize, "LogEventsSize", {0, 0}},
    {&g_pKLogStreamPerfCtrs, "PerfCtrs.log", &g_KLogStreamPerfCtrsSize, "LogPerfCtrsSize", {0, 0}},
};

namespace {

// The streams this start-up opened. The shut-down closes only these, so that a stream another
// party put in place of one of them (a test's stand-in) is left alone.
KLogStream* g_pOwned[3] = {nullptr, nullptr, nullptr};

constexpr size_t kMaxDir = 260;

void Begin(HINSTANCE module, const char* dir) {
    g_LoggingInitialized = true;
    g_CurrentProcessId = static_cast<uint32_t>(getpid());
    g_hInstance = module != nullptr
                      ? module
                      : reinterpret_cast<HINSTANCE>(static_cast<intptr_t>(g_CurrentProcessId));
    kxLogStreamObjectsInit(dir);
    kxLogPrintModuleMessage("logging starting", g_hInstance);
}

void End() {
    kxLogPrintModuleMessage("logging stopping", g_hInstance);
    kxLogStreamObjectsTerm();
    g_LoggingInitialized = false;
}

}  // namespace

namespace kxLogging {

long StartLogging(bool restart, const char* dir, unsigned long defaultKB, unsigned long eventsKB,
                  unsigned long perfCtrsKB) {
    g_KLogStreamDefaultSize = defaultKB;
    g_KLogStreamEventsSize = eventsKB;
    g_KLogStreamPerfCtrsSize = perfCtrsKB;
    if (restart && g_LoggingInitialized) End();
    if (g_LoggingInitialized) return KX_OK;
    Begin(nullptr, dir);
    return KX_OK;
}

long StopLogging() {
    End();
    return KX_OK;
}

}  // namespace kxLogging

long kxLogInitDll(HINSTANCE module) {
    if (g_LoggingInitialized) End();
    Begin(module, nullptr);
    return KX_OK;
}

long kxLogStreamObjectsInit(const char* dir) {
    try {
        std::string path;
        if (dir != nullptr && *dir != '\0') {
            path = dir;
        } else {
            const char* env = getenv("KX_LOG_DIR");
            if (env == nullptr || strlen(env) > kMaxDir) return KX_OK;
            if (*env == '\0') return KX_E_BAD_NAME;
            path = env;
        }
        if (kxLogIsRelativePath(path.c_str())) {
            char pub[kMaxDir + 1];
            unsigned long size = sizeof pub;
            const long status = kxLogGetPublicDataPath(pub, size);
            if (status != KX_OK) return status;
            const std::string base = pub;
            const char sep = base.find('/') != std::string::npos ? '/' : '\\';
            const bool baseEnds = !base.empty() && (base.back() == '/' || base.back() == '\\');
            const bool dirBegins = path[0] == '/' || path[0] == '\\';
            path = base + (baseEnds || dirBegins ? "" : std::string(1, sep)) + path;
            if (kxLogIsRelativePath(path.c_str())) return KX_E_LOG_NO_STREAM;
        }
        while (path.size() > 3 && (path.back() == '/' || path.back() == '\\')) path.pop_back();

        _WIN32_FIND_DATAA found;
        KFileUnix probe;
        if (probe.GetWinFindData(path.c_str(), &found) != KX_OK) {
            const long status = kxLogCreateDirectoryTree(path.c_str(), nullptr);
            if (status != KX_OK) return status;
        } else if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            return KX_E_LOG_NO_STREAM;
        }

        kxLogInfoMessages(true);
        long last = KX_OK;
        for (KLogInfo& info : g_KLogInfo) {
            const long status = kxLogStreamObjectInit(path.c_str(), nullptr, false, &info);
            if (status != KX_OK) last = status;
        }
        return last;
    } catch (...) {
        kxLogEventStringA("unhandled exception in kxLogStreamObjectsInit", KX_E_UNHANDLED_EXCEPTION,
                          kxLogSevError, nullptr);
        return KX_E_UNHANDLED_EXCEPTION;
    }
}

void kxLogStreamObjectsTerm() {
    for (size_t i = 0; i < 3; ++i) {
        KLogStream* owned = g_pOwned[i];
        if (owned == nullptr) continue;
        // Unpublish before destroying, so that no caller picks up a dying stream.
        if (g_pKLogSinkDefault == owned) g_pKLogSinkDefault = nullptr;
        if (*g_KLogInfo[i].stream == owned) *g_KLogInfo[i].stream = nullptr;
        g_pOwned[i] = nullptr;
        delete owned;
    }
}

long kxLogStreamObjectInit(const char* dir, HKEY key, bool useEnv, KLogInfo* info) {
    if (info == nullptr || info->stream == nullptr) return KX_E_BAD_ARGUMENT;
    if (*info->stream != nullptr) return KX_OK;
    unsigned long sizeKB = info->size != nullptr ? *info->size : 0;
    if (sizeKB == 0) {
        if (key != nullptr && !useEnv) return KX_OK;
        const char* env = getenv("KX_LOG_SIZE");
        sizeKB = env != nullptr ? strtoul(env, nullptr, 0) : 0;
    }
    if (sizeKB == 0) return KX_OK;
    KLogStream* stream = new KLogStream(dir, info->fileName, sizeKB, 16384, true);
    if (!stream->IsLive()) {
        delete stream;
        return KX_E_LOG_NO_STREAM;
    }
    *info->stream = stream;
    g_pOwned[info - g_KLogInfo] = stream;
    if (info->stream == &g_pKLogStreamDefault) g_pKLogSinkDefault = stream;
    return KX_OK;
}

long kxLogPrintModuleMessage(const char* text, HINSTANCE) {
    return kxLogPrintfEx(KX_S_INFORMATION, kxLogSevProgress, 2, "%s",
                         text != nullptr ? text : "App Info");
}

long kxLogGetPublicDataPath(char* buf, unsigned long& size) {
    // Read once: later changes of the environment do not move the logs.
    static std::string* cached = nullptr;
    if (cached == nullptr) {
        const char* env = getenv("KX_LOG_DIR");
        if (env == nullptr) env = getenv("HOME");
        if (env == nullptr) return KX_E_NOT_FOUND;
        cached = new std::string(env);
    }
    if (buf == nullptr || cached->size() >= size) return KX_E_BUFFER_TOO_SMALL;
    memcpy(buf, cached->c_str(), cached->size() + 1);
    size = static_cast<unsigned long>(cached->size());
    return KX_OK;
}

bool kxLogIsRelativePath(const char* path) {
    if (path == nullptr || *path == '\0') return true;
    if (path[1] == ':' && path[2] == '\\') return false;
    return path[0] != '/';
}

long kxLogPathExists(const char* path, bool& exists, unsigned long* attributes) {
    if (path == nullptr) return KX_E_BAD_ARGUMENT;
    const DWORD attrs = GetFileAttributesA(path);
    if (attrs != INVALID_FILE_ATTRIBUTES) {
        exists = true;
        if (attributes != nullptr) *attributes = attrs;
        return KX_OK;
    }
    if (errno == ERROR_FILE_NOT_FOUND || errno == ERROR_PATH_NOT_FOUND) {
        exists = false;
        return KX_OK;
    }
    return KX_E_FILE_FIND;
}

namespace {

// The start-up's rules for the shared walk: "/" and "\" both separate levels, an existing
// non-directory is a bad argument, and nothing is logged (this runs while the log streams are
// being set up).
class LogDirectoryTree : public kxDirectoryTree {
public:
    LogDirectoryTree() : kxDirectoryTree("/\\") {}

private:
    long Examine(const char* level, bool& missing) override {
        bool exists = false;
        unsigned long attrs = 0;
        const long status = kxLogPathExists(level, exists, &attrs);
        missing = !exists;
        if (status != KX_OK || !exists) return status;
        return (attrs & FILE_ATTRIBUTE_DIRECTORY) != 0 ? KX_OK : KX_E_BAD_ARGUMENT;
    }
    long CreateFailed(const char*, int) override { return KX_E_DIRECTORY; }
};

}  // namespace

long kxLogCreateDirectoryTree(const char* path, _SECURITY_ATTRIBUTES* sa) {
    if (path == nullptr || strlen(path) > kMaxDir) return KX_E_BAD_ARGUMENT;
    std::string p = path;
    if (!p.empty() && (p.back() == '/' || p.back() == '\\')) p.pop_back();
    if (p.empty()) return KX_OK;
    LogDirectoryTree tree;
    return tree.Make(&p[0], p.size(), sa, nullptr);
}
