// The few facts that differ between Windows and POSIX builds: the path separator used to build
// data-file paths and the file name of the processing plug-in. Everything else is portable.
#pragma once

#if defined(_WIN32)
#define OMBRIX_SEP "\\"
#define OMBRIX_PROCESSING_MODULE ".\\OmbrixProcessing.dll"
#else
#define OMBRIX_SEP "/"
#define OMBRIX_PROCESSING_MODULE "./OmbrixProcessing.so"
#endif
