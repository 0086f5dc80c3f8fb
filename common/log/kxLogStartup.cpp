// The automatic logging start-up: logging starts while the program's static objects are built
// and stops at exit (see g_bLoggingDoAutoInit in log/kxLogging.h).
//
// Nothing calls into this file by name, so a static library would leave it out of every program.
// The link anchor below is what keeps it in: the logging library's link options name it
// (common/log/CMakeLists.txt), except for programs whose target sets KX_NO_LOG_STARTUP. Being
// its own file, it is linked only through that anchor, never as a side effect of another call.
#include <cstdlib>

#include "log/kxLogging.h"

namespace {

void StopAtExit() {
    if (g_LoggingInitialized) kxLogging::StopLogging();
}

struct AutoStart {
    AutoStart() {
        // No directory and no sizes: "KX_LOG_DIR" and "KX_LOG_SIZE" decide. The sizes are still
        // the constant-initialised zeros here, so StartLogging stores nothing new.
        if (g_bLoggingDoAutoInit && !g_LoggingInitialized)
            kxLogging::StartLogging(false, nullptr, 0, 0, 0);
        atexit(StopAtExit);
    }
};
AutoStart g_AutoStart;

}  // namespace

extern "C" const char kx_log_startup_anchor = 0;
