# 32-bit Windows with Debian's MinGW-w64 (posix threads, so that the standard library's own locks exist).
set(LS_ARCH x86)
set(LS_TRIPLE i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/Toolchain-mingw.cmake)
