#!/bin/bash
# The Windows orv-cli.exe under Wine, talking to the native radar-sim over a
# pseudo-terminal mapped to a COM port: probe, show, areas set and watch must
# give the simulated module's rate, areas and targets.
#
#   tests/windows/tst_wine_serial.sh RADAR_SIM ORV_CLI_EXE [WORK_DIR]
#
# RADAR_SIM is the native Linux radar-sim, ORV_CLI_EXE the cross-built
# orv-cli.exe. WORK_DIR (default: a temporary directory, removed at the end)
# holds the helpers built here and the private Wine prefix; a prefix already
# there is reused, which saves the 20 s its creation takes. The Qt SDK comes
# from ORV_QT_WIN_PREFIX (default /var/cache/orv-tool/win64/qt5-win64).
#
# Two helpers make Wine 8.0 deliver received bytes to QSerialPort (see their
# comments): ptyshim.so gives the pseudo-terminal modem lines, and
# wineapcfix.dll, loaded into orv-cli.exe by winehookrun.exe, runs the
# completion routine of WaitCommEvent that Wine 8.0 never calls.
#
# Exit codes: 0 all checks passed, 1 a check failed, 77 Wine or a compiler is
# missing (skipped), 2 bad command line.
set -u

if [ $# -lt 2 ] || [ $# -gt 3 ]; then
    echo "usage: $0 RADAR_SIM ORV_CLI_EXE [WORK_DIR]" >&2
    exit 2
fi
sim=$(readlink -f "$1")
cli=$(readlink -f "$2")
here=$(cd "$(dirname "$0")" && pwd)
sdk=${ORV_QT_WIN_PREFIX:-/var/cache/orv-tool/win64/qt5-win64}
port=COM7
rate=19200

for tool in wine wineserver gcc x86_64-w64-mingw32-gcc; do
    if ! command -v "$tool" >/dev/null; then
        echo "SKIP: $tool is not installed"
        exit 77
    fi
done
for file in "$sim" "$cli" "$sdk/bin/Qt5Core.dll"; do
    if [ ! -e "$file" ]; then
        echo "FAIL: $file does not exist"
        exit 1
    fi
done

if [ $# -eq 3 ]; then
    work=$(readlink -f "$3")
    mkdir -p "$work"
    removeWork=0
else
    work=$(mktemp -d /tmp/tst_wine_serial.XXXXXX)
    removeWork=1
fi
logs=$work/logs
rm -rf "$logs"
mkdir -p "$logs"

export WINEPREFIX=$work/wine-prefix
export WINEDEBUG=-all
export WINEARCH=win64
libstdcxx=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-file-name=libstdc++-6.dll 2>/dev/null || echo /nonexistent/x)")
export WINEPATH="$sdk/bin;$libstdcxx;/usr/x86_64-w64-mingw32/lib"
# Wine passes WINEQT_X on to the program as QT_X.
export WINEQT_QPA_PLATFORM=offscreen
export WINEQT_PLUGIN_PATH=$sdk/plugins
export WINEDLLOVERRIDES="mscoree,mshtml="

simPid=
cleanup() {
    if [ -n "$simPid" ]; then
        kill "$simPid" 2>/dev/null
        wait "$simPid" 2>/dev/null
    fi
    wineserver -k >/dev/null 2>&1
    if [ "$removeWork" = 1 ]; then
        rm -rf "$work"
    fi
}
trap cleanup EXIT
trap 'exit 1' INT TERM

SECONDS=0

# The helpers, built for this run from their sources.
if ! "$here/build-wine-helpers.sh" "$work" 2>"$logs/build.txt"; then
    echo "FAIL: the helpers do not build:"
    cat "$logs/build.txt"
    exit 1
fi

# A private Wine prefix; its server runs until the end of the test.
wineserver -k >/dev/null 2>&1
if [ ! -f "$WINEPREFIX/system.reg" ]; then
    if ! timeout 180 wineboot -i >"$logs/wineboot.txt" 2>&1; then
        echo "FAIL: the Wine prefix cannot be created:"
        cat "$logs/wineboot.txt"
        exit 1
    fi
    wineserver -w
fi

# The simulated module: two people standing still and area 1 preset.
"$sim" --baud "$rate" --fixed 1.5,3 --fixed -2,5 --area 1,0,-1.5,4,2,1 >"$logs/sim.out" 2>"$logs/sim.err" &
simPid=$!
pty=
for _ in $(seq 300); do
    pty=$(head -n1 "$logs/sim.out" 2>/dev/null)
    [ -n "$pty" ] && break
    sleep 0.1
done
if [ -z "$pty" ]; then
    echo "FAIL: radar-sim printed no port"
    cat "$logs/sim.err"
    exit 1
fi

# COM7 is the pseudo-terminal; the mapping is read when Wine's services start.
if ! wine reg add 'HKLM\Software\Wine\Ports' /v "$port" /d "$pty" /f >"$logs/reg.txt" 2>&1; then
    echo "FAIL: cannot map $port to $pty:"
    cat "$logs/reg.txt"
    exit 1
fi
wineserver -k >/dev/null 2>&1
wineserver -w
wineserver -p30 >"$logs/wineserver.txt" 2>&1

passed=0
failed=0
pass() {
    echo "PASS: $1"
    passed=$((passed + 1))
}
fail() {
    echo "FAIL: $1"
    failed=$((failed + 1))
}

# Runs orv-cli.exe with the helpers (without them when ORV_WINE_SERIAL_BARE is
# 1, to see Wine's own behaviour); stdout (without CRs) in $out, exit code in $rc.
runCli() {
    local name=$1
    shift
    if [ "${ORV_WINE_SERIAL_BARE:-0}" = 1 ]; then
        timeout 60 wine "$cli" "$@" >"$logs/$name.out" 2>"$logs/$name.err"
    else
        LD_PRELOAD="$work/ptyshim.so${LD_PRELOAD:+:$LD_PRELOAD}" timeout 60 \
            wine "$work/winehookrun.exe" "$work/wineapcfix.dll" "$cli" "$@" >"$logs/$name.out" 2>"$logs/$name.err"
    fi
    rc=$?
    out=$(tr -d '\r' <"$logs/$name.out")
}
showLogs() {
    echo "  exit code $rc; standard output:"
    sed 's/^/    /' "$logs/$1.out"
    echo "  standard error:"
    sed 's/^/    /' "$logs/$1.err" | tail -n 20
}

# 0. ports lists COM7 (it opens every port to see that it can be opened).
runCli ports ports --json
if [ "$rc" = 0 ] && grep -q "\"name\": \"$port\"" <<<"$out"; then
    pass "ports lists $port"
else
    fail "ports: expected exit code 0 and $port in the list"
    showLogs ports
fi

# 1. probe finds the module's rate among the 13.
runCli probe probe --port "$port"
if [ "$rc" = 0 ] && [ "$out" = "$rate" ]; then
    pass "probe finds $rate baud"
else
    fail "probe: expected $rate with exit code 0"
    showLogs probe
fi

# 2. show reads the display type and the preset area.
runCli show show --port "$port" --baud "$rate"
expected="port $port at $rate baud
display: area (area mode)
area 1: detect (-1.5, 4.0) to (2.0, 1.0)
area 2: unset
area 3: unset"
if [ "$rc" = 0 ] && [ "$out" = "$expected" ]; then
    pass "show reads the display type and area 1"
else
    fail "show: expected exit code 0 and:"
    echo "$expected" | sed 's/^/    /'
    showLogs show
fi

# 3. areas set writes area 2 (the module confirms it), show reads it back.
runCli set areas set 2 --type exclude --from=-4,6 --to=-1,4 --port "$port" --baud "$rate"
if [ "$rc" = 0 ] && [ "$out" = "area 2: exclude (-4.0, 6.0) to (-1.0, 4.0)" ]; then
    pass "areas set 2 is confirmed"
else
    fail "areas set 2: expected exit code 0 and the area"
    showLogs set
fi
runCli show2 show --port "$port" --baud "$rate"
if [ "$rc" = 0 ] && grep -qx 'area 2: exclude (-4.0, 6.0) to (-1.0, 4.0)' <<<"$out"; then
    pass "show reads area 2 back"
else
    fail "show after areas set: area 2 missing"
    showLogs show2
fi

# 4. watch gets the reports: both people where they stand, each in its area.
runCli watch watch --port "$port" --baud "$rate" --count 6 --format csv
targets=$(grep -c ',targets,2,1\.5 3\.0;-2\.0 5\.0,,,$' <<<"$out")
areas=$(grep -c ',areas,,,1,1,0$' <<<"$out")
lines=$(grep -c . <<<"$out")
if [ "$rc" = 0 ] && [ "$lines" = 7 ] && [ "$targets" -ge 2 ] && [ "$areas" -ge 2 ] \
    && [ $((targets + areas)) = 6 ]; then
    pass "watch reports both targets and areas 1 and 2 occupied"
else
    fail "watch: expected a header and 6 reports (targets 1.5 3.0;-2.0 5.0, areas 1,1,0)"
    showLogs watch
fi

echo "radar-sim on $pty as $port, ${SECONDS} s"
echo "$passed passed, $failed failed"
[ "$failed" = 0 ]
