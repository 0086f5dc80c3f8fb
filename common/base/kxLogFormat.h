// Formatting of log messages: vsnprintf's result, faster for the conversions log lines use.
//
// Thread safety: plain function, no state.
#pragma once

#include <cstdarg>
#include <cstddef>

// Exactly what vsnprintf(out, size, format, args) writes and returns. Formats made only of
// text and the conversions %d %i %u %x %X %c %s %% (flags "-+ 0", a decimal width, a precision
// on %s, sizes hh h l ll z j t) are formatted here without the C library's stream machinery;
// anything else (floating point, "*", "#", positional arguments, a null string, a result that
// does not fit) is handed to vsnprintf itself. args is not consumed (the caller still owns it).
int kxLogFormat(char* out, size_t size, const char* format, va_list args);
