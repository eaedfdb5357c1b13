/// libTRCUtilities: last error, pixel format names, the error report.
///
/// Threads: any thread. The last error belongs to the calling thread.
#ifndef TARN_GEVSERVER_LIBRARY_TR_UTILITIES_H
#define TARN_GEVSERVER_LIBRARY_TR_UTILITIES_H

#include <wchar.h>

#include "gevserver/library/tr_types.h"

TR_BEGIN_C

/// Code and text of this thread's last failed call of a library of the family. Code 0, empty text: none yet.
/// Two-call protocol: with `text` null, `*size` receives the characters needed including the terminating
/// zero; with a buffer, `*size` is its size in characters on entry and what was written on return.
TR_API TR_STATUS TRCGetLastErrorW(TR_STATUS* code, wchar_t* text, size_t* size);

/// For the sibling libraries: records a failure for TRCGetLastErrorW on this thread. `text` is UTF-8.
TR_API void TRCSetLastError(TR_STATUS code, const char* text);

/// For the sibling libraries: this thread's last text as UTF-8; valid until the thread's next failure.
TR_API const char* TRCLastErrorText(void);

/// PFNC name of a pixel format value, for example "Mono8" for 0x01080001. Two-call protocol, bytes.
/// TR_E_NOT_FOUND when the value is none of the standard's.
TR_API TR_STATUS TRCGetPFNCValueName(uint32_t value, char* name, size_t* size);

/// Records a failed library call in the system's log (syslog, facility user).
TR_API void ReportTARNErrorEx(TR_STATUS code, const char* message, const char* function_name);

TR_END_C

#endif
