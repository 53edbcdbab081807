# Cross-compiles the Windows build with Debian's mingw-w64 (posix threads variant).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(QZ_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${QZ_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${QZ_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${QZ_MINGW_PREFIX}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${QZ_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# Test programs run under Wine, each run in a prefix of its own.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../tests/wine/wine-run.sh)
