# Cross compilation for 64-bit Windows with Debian's MinGW-w64 (g++-mingw-w64-x86-64-posix: the
# POSIX threads variant, which std::thread and std::mutex need). Programs run under wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(OMBRIX_MINGW_TRIPLET x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${OMBRIX_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${OMBRIX_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${OMBRIX_MINGW_TRIPLET}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${OMBRIX_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The GCC runtime, the C++ library and winpthread are linked into every program and DLL, so that
# a test run needs no MinGW DLL on wine's search path.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")

find_program(OMBRIX_WINE NAMES wine wine64)
if(OMBRIX_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${OMBRIX_WINE})
endif()
