#!/bin/bash
# The portable zip as a Windows user gets it: under 15 MB; the programs, the
# plugins, qt.conf, the translation files (the same bytes as the sources) and
# README.txt in one folder; orv-tool.exe a GUI program with an icon and
# version information; every DLL that a program or plugin imports either in
# the zip or one of Windows' own, and no DLL in the zip that nothing imports;
# and, unpacked alone, orv-cli.exe runs under Wine with no other DLL path.
#
#   tests/windows/tst_windows_zip.sh ZIP SOURCE_DIR
#
# Exit codes: 0 all checks passed, 1 a check failed, 77 no zip (skipped), 2 bad
# command line.
set -u
if [ $# -ne 2 ]; then
    echo "usage: $0 ZIP SOURCE_DIR" >&2
    exit 2
fi
zip=$1
src=$2
if [ ! -f "$zip" ]; then
    echo "SKIP: no zip at $zip (scripts/windows makes it)"
    exit 77
fi

failed=0
check() { # check DESCRIPTION COMMAND...
    local what=$1
    shift
    if "$@"; then
        echo "PASS: $what"
    else
        echo "FAIL: $what"
        failed=$((failed + 1))
    fi
}

work=$(mktemp -d /tmp/tst_windows_zip.XXXXXX)
trap 'WINEPREFIX=$work/prefix wineserver -k >/dev/null 2>&1; rm -rf "$work"' EXIT
unzip -q "$zip" -d "$work" || { echo "FAIL: unzip"; exit 1; }
dir=$(find "$work" -mindepth 1 -maxdepth 1 -type d)
name=$(basename "$zip" .zip)

check "the zip is under 15 MB ($(du -k "$zip" | cut -f1) KiB)" test "$(stat -c %s "$zip")" -lt 15728640
check "one folder named after the zip" test "$(basename "$dir")" = "$name"
for f in orv-tool.exe orv-cli.exe qt.conf README.txt platforms/qwindows.dll \
    styles/qwindowsvistastyle.dll Qt5Core.dll Qt5Gui.dll Qt5Widgets.dll Qt5SerialPort.dll; do
    check "$f is there" test -s "$dir/$f"
done
for f in ORV_translate_cn.txt ORV_translate_en.txt; do
    check "$f is the source's" cmp -s "$dir/$f" "$src/app/$f"
done
check "qt.conf names the folder as prefix" grep -q '^Prefix = \.' "$dir/qt.conf"
check "README.txt has Windows line ends" grep -q $'\r$' "$dir/README.txt"

headers=$(x86_64-w64-mingw32-objdump -p "$dir/orv-tool.exe")
check "orv-tool.exe is a GUI program (no console window)" grep -q 'Subsystem.*Windows GUI' <<<"$headers"
check "orv-tool.exe has resources" grep -q '\.rsrc' <(x86_64-w64-mingw32-objdump -h "$dir/orv-tool.exe")
# Version strings are UTF-16 in the resources.
version=$(sed -n 's/^project(orv-tool VERSION \([0-9.]*\).*/\1/p' "$src/CMakeLists.txt")
check "orv-tool.exe's version information says orv-tool $version" python3 - "$dir/orv-tool.exe" "$version" <<'PY'
import sys
data = open(sys.argv[1], 'rb').read()
def has(key, value):  # a version string: key, padding, value, all UTF-16LE
    k = key.encode('utf-16-le')
    at = data.find(k)
    return at >= 0 and value.encode('utf-16-le') in data[at:at + 64 + 2 * len(value)]
sys.exit(0 if has('ProductName', 'orv-tool') and has('FileVersion', sys.argv[2]) else 1)
PY
check "orv-tool.exe has an icon and a version resource" python3 - "$dir/orv-tool.exe" <<'PY'
import struct, sys
data = open(sys.argv[1], 'rb').read()
pe = struct.unpack_from('<I', data, 0x3c)[0]
count = struct.unpack_from('<H', data, pe + 6)[0]
optsize = struct.unpack_from('<H', data, pe + 20)[0]
opt = pe + 24
rsrc_rva = struct.unpack_from('<I', data, opt + 112 + 2 * 8)[0]  # PE32+ data directory 2
for i in range(count):
    header = opt + optsize + 40 * i
    vsize, va, rawsize, raw = struct.unpack_from('<IIII', data, header + 8)
    if va <= rsrc_rva < va + max(vsize, rawsize):
        root = raw + (rsrc_rva - va)
        named, ids = struct.unpack_from('<HH', data, root + 12)
        types = {struct.unpack_from('<I', data, root + 16 + 8 * k)[0] for k in range(named + ids)}
        # RT_ICON 3, RT_GROUP_ICON 14, RT_VERSION 16
        sys.exit(0 if {3, 14, 16} <= types else 1)
sys.exit(1)
PY

# Every import resolved inside the zip or by Windows itself; nothing unused.
# Windows' own DLLs that Qt and the MinGW runtime import.
windows_dlls=' ADVAPI32 COMDLG32 CRYPT32 DWMAPI GDI32 IMM32 KERNEL32 MPR NETAPI32 OLE32 OLEAUT32 SETUPAPI SHELL32 SHLWAPI USER32 USERENV UXTHEME VERSION WINMM WS2_32 WTSAPI32 MSVCRT D3D9 D3D11 DXGI DWRITE D2D1 WINSPOOL '
missing=""
imported=" "
while IFS= read -r f; do
    for dll in $(x86_64-w64-mingw32-objdump -p "$f" | sed -n 's/^[[:space:]]*DLL Name: //p'); do
        imported="$imported$dll "
        upper=$(tr '[:lower:]' '[:upper:]' <<<"${dll%.*}")
        if [ ! -f "$dir/$dll" ] && [[ "$windows_dlls" != *" $upper "* ]]; then
            missing="$missing $(basename "$f")->$dll"
        fi
    done
done < <(find "$dir" -name '*.exe' -o -name '*.dll')
check "every imported DLL is in the zip or Windows' own${missing:+ (missing:$missing)}" test -z "$missing"
unused=""
for f in "$dir"/*.dll; do
    [[ "$imported" == *" $(basename "$f") "* ]] || unused="$unused $(basename "$f")"
done
check "no DLL that nothing imports${unused:+ (unused:$unused)}" test -z "$unused"

# The folder alone runs: orv-cli.exe with no DLL path but its own folder.
if command -v wine >/dev/null; then
    export WINEPREFIX=$work/prefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" WINEPATH=
    # To a file: Wine's services, started by the first program in a prefix,
    # would hold a pipe open after the program ends.
    (cd "$dir" && timeout 120 wine orv-cli.exe --version >"$work/version.txt" 2>/dev/null)
    out=$(tr -d '\r' <"$work/version.txt")
    check "orv-cli.exe --version runs from the unpacked folder ($out)" grep -q "$version" <<<"$out"
fi

[ "$failed" = 0 ]
