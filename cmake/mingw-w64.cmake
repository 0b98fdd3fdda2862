# Cross-building for 64-bit Windows with Debian's MinGW-w64 (POSIX threads).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(ORL_MINGW x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${ORL_MINGW}-gcc-posix)
set(CMAKE_CXX_COMPILER ${ORL_MINGW}-g++-posix)
set(CMAKE_RC_COMPILER ${ORL_MINGW}-windres)

# Static run-time libraries: what is built needs nothing but the system's own DLLs.
foreach(kind IN ITEMS EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-static")
endforeach()

set(CMAKE_FIND_ROOT_PATH /usr/${ORL_MINGW})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

cmake_path(SET CMAKE_CROSSCOMPILING_EMULATOR NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../tools/wine-run)
