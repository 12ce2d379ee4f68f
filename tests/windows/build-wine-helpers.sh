#!/bin/sh
# Builds the helpers that let a Windows QSerialPort receive under Wine 8.0
# into OUT_DIR: ptyshim.so (Linux, LD_PRELOAD'ed into Wine), wineapcfix.dll
# and winehookrun.exe (Windows). See the comments in their sources.
#
#   tests/windows/build-wine-helpers.sh OUT_DIR
#
# Exit codes: 0 built, 1 a compiler failed (its messages on stderr), 2 bad
# command line.
set -u
if [ $# -ne 1 ]; then
    echo "usage: $0 OUT_DIR" >&2
    exit 2
fi
here=$(cd "$(dirname "$0")" && pwd)
out=$1
mkdir -p "$out" || exit 1
gcc -shared -fPIC -O2 -o "$out/ptyshim.so" "$here/ptyshim.c" -ldl &&
    x86_64-w64-mingw32-gcc -O2 -shared -o "$out/wineapcfix.dll" "$here/wineapcfix.c" -lpsapi &&
    x86_64-w64-mingw32-gcc -O2 -municode -o "$out/winehookrun.exe" "$here/winehookrun.c" ||
    exit 1
