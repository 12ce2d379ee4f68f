# Cross-compiling orv-tool for 64-bit Windows on Debian with MinGW-w64 (posix
# threads) against the Qt SDK that scripts/windows-sdk builds. Tests run
# through Wine.
#
#   cmake -S . -B build-win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake \
#         -DORV_QT_WIN_PREFIX=/var/cache/orv-tool/win64/qt5-win64
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

if(NOT ORV_QT_WIN_PREFIX)
    set(ORV_QT_WIN_PREFIX "$ENV{ORV_QT_WIN_PREFIX}")
endif()
if(NOT ORV_QT_WIN_PREFIX)
    set(ORV_QT_WIN_PREFIX /var/cache/orv-tool/win64/qt5-win64)
endif()
set(ORV_QT_WIN_PREFIX "${ORV_QT_WIN_PREFIX}" CACHE PATH "Qt SDK for Windows")

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 "${ORV_QT_WIN_PREFIX}")
set(CMAKE_PREFIX_PATH "${ORV_QT_WIN_PREFIX}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR wine)
