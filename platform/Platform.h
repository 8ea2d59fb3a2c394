// The few facts that differ between Windows and POSIX builds: the path separator used to build
// data-file paths and the file name of the processing plug-in (relative to the working
// directory, and bare, for a program that loads it from its own folder). Everything else is
// portable.
#pragma once

#if defined(_WIN32)
#define OMBRIX_SEP "\\"
#define OMBRIX_PROCESSING_MODULE ".\\OmbrixProcessing.dll"
#define OMBRIX_PROCESSING_FILE "OmbrixProcessing.dll"
#else
#define OMBRIX_SEP "/"
#define OMBRIX_PROCESSING_MODULE "./OmbrixProcessing.so"
#define OMBRIX_PROCESSING_FILE "OmbrixProcessing.so"
#endif
