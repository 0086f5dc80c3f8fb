// The standard log streams and the logging start-up.
//
// Every process that links the library owns up to three standard streams: the default stream
// (all kxLog... calls write to it), an events stream and a performance-counters stream, the files
// "Default.log", "Events.log" and "PerfCtrs.log" in one log directory. While the program's static
// objects are built, logging starts by itself: when "KX_LOG_DIR" names the directory and
// "KX_LOG_SIZE" the size in KB (decimal, 0x hexadecimal or 0 octal), the directory tree is made,
// the three files are opened (a new file starts with a "STRT" record), informational messages
// are switched on and "logging starting" is written to the default stream. At exit "logging
// stopping" is written and the streams are closed. Without both variables logging stays off and
// every logging call returns KX_E_LOG_NO_STREAM.
//
// Convention: functions return a status (base/kxStatus.h); nothing throws.
// Thread safety: start-up and shut-down run while the process is single-threaded (static
// initialisation, exit, or the caller's own care); the rest may be called from any thread.
#pragma once

#include <cstdint>

#include "base/kxStatus.h"

class KLogStream;
struct _SECURITY_ATTRIBUTES;


// The module handle of the Win32-shaped interface; here the process id, as a pointer.
typedef void* HINSTANCE;
// A configuration-store key; this system reads no store and always passes null.
typedef void* HKEY;

// The process's default stream; null until the start-up has opened it and again after shutdown.
// While it is open it is also the default sink (g_pKLogSinkDefault), which every kxLog... call
// writes to: kxLogStreamObjectInit installs it there, kxLogStreamObjectsTerm takes it away before
// closing it. Counts as live only while its signature says so (KLogStream::IsLive).
extern KLogStream* g_pKLogStreamDefault;
extern KLogStream* g_pKLogStreamEvents;
extern KLogStream* g_pKLogStreamPerfCtrs;
// Sizes in KB given by StartLogging; 0 means "KX_LOG_SIZE".
extern unsigned long g_KLogStreamDefaultSize;
extern unsigned long g_KLogStreamEventsSize;
extern unsigned long g_KLogStreamPerfCtrsSize;
extern bool g_LoggingInitialized;
// True: logging starts by itself while static objects are built (see log/kxLogStartup.cpp). A
// program that must not write to the standard log files even when KX_LOG_DIR is set (a log
// reader, say) leaves the start-up out of its link instead: the build property
// KX_NO_LOG_STARTUP on its target (cmake/KxTargets.cmake).
extern bool g_bLoggingDoAutoInit;
extern uint32_t g_CurrentProcessId;
extern HINSTANCE g_hInstance;

// One standard stream.
struct KLogInfo {
    KLogStream** stream;        // where the opened stream is stored (null while none)
    const char* fileName;       // file name inside the log directory
    unsigned long* size;        // size in KB (0: not set)
    const char* sizeValueName;  // name of the (unused) configuration value for the size
    unsigned long reserved[2];
};
extern KLogInfo g_KLogInfo[3];

namespace kxLogging {

// Stores the three sizes; stops logging first when restart is set; once initialised does
// nothing more. Otherwise opens the streams in dir (null: "KX_LOG_DIR") and writes
// "logging starting". Always 0.
long StartLogging(bool restart, const char* dir, unsigned long defaultKB, unsigned long eventsKB,
                  unsigned long perfCtrsKB);
// Writes "logging stopping", closes the streams. Always 0.
long StopLogging();

}  // namespace kxLogging

// Re-initialises logging for a module: stops it if running, then starts it with no directory.
long kxLogInitDll(HINSTANCE module);

// Opens the three standard streams in dir (null or empty: "KX_LOG_DIR"; unset or longer than
// 260: 0 and nothing opened; set but empty: KX_E_BAD_NAME). A relative directory is placed
// under the public data path; the result must be absolute (else KX_E_LOG_NO_STREAM). Note that
// a relative "KX_LOG_DIR" is therefore prefixed with itself and fails: kept for compatibility.
// Creates the directory when missing. Switches informational messages on. Returns the last
// failure of the three streams, or 0.
long kxLogStreamObjectsInit(const char* dir);
// Closes the three standard streams and forgets them.
void kxLogStreamObjectsTerm();
// Opens one standard stream unless it exists: size from the record, else "KX_LOG_SIZE"; size 0
// opens nothing (0). KX_E_LOG_NO_STREAM when the stream does not become live.
long kxLogStreamObjectInit(const char* dir, HKEY key, bool useEnv, KLogInfo* info);

// kxLogPrintfEx(KX_S_INFORMATION, 1, 2, "%s", text or "App Info").
long kxLogPrintModuleMessage(const char* text, HINSTANCE module);

// Copies "KX_LOG_DIR", else "HOME" (read once, then cached for the process's life) into buf.
// size: in, the buffer's size; out, the text's length. KX_E_NOT_FOUND when neither is
// set; KX_E_BUFFER_TOO_SMALL when the text does not fit with its terminator.
long kxLogGetPublicDataPath(char* buf, unsigned long& size);

// True for null or empty; false for "X:\..." and for paths beginning with '/'.
bool kxLogIsRelativePath(const char* path);
// exists/attributes from GetFileAttributesA. KX_E_BAD_ARGUMENT for null; KX_E_FILE_FIND when the
// lookup fails other than by "not found".
long kxLogPathExists(const char* path, bool& exists, unsigned long* attributes);
// Makes path and its missing parents. 0 (also for "" or an existing directory);
// KX_E_BAD_ARGUMENT (null, longer than 260, or an existing non-directory); KX_E_DIRECTORY.
long kxLogCreateDirectoryTree(const char* path, _SECURITY_ATTRIBUTES* sa);
