#!/bin/sh
# Packaging test: builds the .deb, checks it with lintian, installs it with
# apt into a fresh Debian 12 root (debootstrap --variant=minbase from this
# machine's own apt sources, cached as a tarball outside the checkout), and
# there, as an ordinary user in the group dialout, runs the desktop entry's
# command against radar-sim (from the package) on an X server of the test:
# the window appears with its texts, one click on the open button shows the
# simulated people, the settings file and log/ appear in the user's working
# directory and nowhere else, and the tool exits with 0 when its window is
# closed. The service's unit passes systemd-analyze verify and security
# (the host's systemd-analyze on the root) and its settings are a conffile.
# Then the package is purged and the user's files must remain.
#
#   tst_deb_chroot.sh BUILD-DIR PROBE
#
# Needs root, debootstrap, chroot and mounts; exits 77 (skipped) with the
# reason otherwise. The root is cached in ${ORV_CHROOT_CACHE:-/var/cache/orv-tool-test}
# (bookworm-minbase.tar, and the downloaded packages in archives/); delete
# it to start afresh.
set -eu
# shellcheck source=tests/packaging/checks.sh
. "$(dirname "$0")/checks.sh"
# shellcheck source=tests/packaging/serveunit.sh
. "$(dirname "$0")/serveunit.sh"
build="$(cd "$1" && pwd)"
probe="$2"
cache="${ORV_CHROOT_CACHE:-/var/cache/orv-tool-test}"
tarball="$cache/bookworm-minbase.tar"

skip() {
    echo "SKIPPED: $*"
    exit 77
}
say() { echo "== $(date +%T) $*"; }

[ "$(id -u)" -eq 0 ] || skip "the packaging test needs root (chroot, mounts); run scripts/test as root"
command -v debootstrap >/dev/null || skip "debootstrap is not installed (scripts/setup installs it)"
command -v chroot >/dev/null || skip "chroot is not available"
for tool in lintian Xvfb xdotool import systemd-analyze; do
    command -v "$tool" >/dev/null || skip "$tool is not installed (scripts/setup installs it)"
done

tmp="$(mktemp -d /tmp/orv-deb-test.XXXXXX)"
root="$tmp/root"
mounted=""
xvfb_pid=""

# shellcheck disable=SC2317 # called by the trap
cleanup() {
    set +e
    # Processes still running inside the root, by their ids.
    for p in /proc/[0-9]*; do
        if [ "$(readlink "$p/root" 2>/dev/null)" = "$root" ]; then
            kill -9 "${p#/proc/}" 2>/dev/null
        fi
    done
    [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null
    for m in $mounted; do # last mounted first
        umount "$m" 2>/dev/null || umount -l "$m" 2>/dev/null
    done
    if grep -q " $tmp/" /proc/mounts; then
        echo "packaging test: mounts left under $tmp; not removing it" >&2
    else
        rm -rf --one-file-system "$tmp"
    fi
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

mnt() { # mount arguments... target (the last argument)
    mount "$@"
    for target; do :; done
    mounted="$target $mounted"
}

# Mounts must work here (a container may forbid them).
mkdir -p "$tmp/probe-proc"
if ! mount -t proc proc "$tmp/probe-proc" 2>/dev/null; then
    skip "this machine does not allow mounts (needed for /proc in the chroot)"
fi
umount "$tmp/probe-proc"

# The package.
say "building the package"
start=$(date +%s)
(cd "$build" && cpack -G DEB -B "$tmp/deb" >"$tmp/cpack.log" 2>&1) || {
    cat "$tmp/cpack.log"
    echo "FAIL cpack"
    exit 1
}
deb="$(ls "$tmp"/deb/orv-tool_*.deb)"
version="$(dpkg-deb -f "$deb" Version)"
arch="$(dpkg-deb -f "$deb" Architecture)"
[ "$(basename "$deb")" = "orv-tool_${version}_${arch}.deb" ] || {
    echo "FAIL package file name $(basename "$deb")"
    exit 1
}
dpkg-deb -f "$deb" Depends | grep -q 'fonts-wqy-microhei | fonts-noto-cjk' || {
    echo "FAIL no font dependency: $(dpkg-deb -f "$deb" Depends)"
    exit 1
}
say "lintian"
if ! lintian --fail-on error "$deb" >"$tmp/lintian.log" 2>&1; then
    cat "$tmp/lintian.log"
    echo "FAIL lintian reports errors"
    exit 1
fi
grep -E '^[EW]:' "$tmp/lintian.log" || true

# The mirror: the first Debian archive of this machine's apt sources that
# serves bookworm (one-line .list files and deb822 .sources files).
sources() {
    for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [ -f "$f" ] && awk '$1 == "deb" { o = 2; if ($2 ~ /^\[/) { while ($o !~ /\]$/) o++; o++ }
            print $o, $(o + 1) }' "$f"
    done
    for f in /etc/apt/sources.list.d/*.sources; do
        [ -f "$f" ] && awk 'BEGIN { RS = ""; FS = "\n" }
            { uris = ""; suites = ""; enabled = 1; deb = 0
              for (i = 1; i <= NF; i++) {
                  if ($i ~ /^URIs:/) { uris = $i; sub(/^URIs:[ \t]*/, "", uris) }
                  if ($i ~ /^Suites:/) { suites = $i; sub(/^Suites:[ \t]*/, "", suites) }
                  if ($i ~ /^Types:.*deb( |$)/) deb = 1
                  if ($i ~ /^Enabled:[ \t]*no/) enabled = 0 }
              if (deb && enabled) {
                  n = split(uris, u, " "); m = split(suites, s, " ")
                  for (a = 1; a <= n; a++) for (b = 1; b <= m; b++) print u[a], s[b] } }' "$f"
    done
}
mirror="$(sources | awk '$2 == "bookworm" { print $1; exit }')"
security="$(sources | awk '$2 == "bookworm-security" { print $1; exit }')"
[ -n "$mirror" ] || skip "no apt source of this machine serves bookworm"

mkdir -p "$cache/archives"
chmod 755 "$cache"
if [ ! -s "$tarball" ]; then
    say "making the Debian 12 root with debootstrap from $mirror (once; cached in $tarball)"
    t0=$(date +%s)
    (
        flock 9
        if [ ! -s "$tarball" ]; then
            fresh="$tmp/fresh"
            debootstrap --variant=minbase bookworm "$fresh" "$mirror" >"$tmp/debootstrap.log" 2>&1 || {
                tail -n 20 "$tmp/debootstrap.log"
                exit 1
            }
            {
                echo "deb $mirror bookworm main"
                echo "deb $mirror bookworm-updates main"
                [ -n "$security" ] && echo "deb $security bookworm-security main"
            } >"$fresh/etc/apt/sources.list"
            # dpkg need not sync every file of a throw-away root.
            echo force-unsafe-io >"$fresh/etc/dpkg/dpkg.cfg.d/unsafe-io"
            cp /etc/resolv.conf "$fresh/etc/resolv.conf"
            chroot "$fresh" apt-get update -qq >"$tmp/update.log" 2>&1 || {
                cat "$tmp/update.log"
                exit 1
            }
            chroot "$fresh" apt-get clean
            tar -C "$fresh" -cf "$tarball.tmp" . && mv "$tarball.tmp" "$tarball"
            rm -rf --one-file-system "$fresh"
        fi
    ) 9>"$cache/lock" || {
        echo "FAIL making the root"
        exit 1
    }
    say "root made in $(($(date +%s) - t0)) s"
fi

# A fresh root on a memory file system, unpacked from a tarball, with /proc,
# the pseudo-terminals, the package cache and the X sockets mounted.
unpack_root() { # tarball
    mkdir -p "$root"
    mnt -t tmpfs -o size=4g,mode=755 orv-deb-test "$root"
    tar -C "$root" -xf "$1"
    cp /etc/resolv.conf "$root/etc/resolv.conf"
    mnt -t proc proc "$root/proc"
    mnt --bind /dev/pts "$root/dev/pts"
    mnt --bind "$cache/archives" "$root/var/cache/apt/archives"
    mkdir -p "$root/tmp/.X11-unix"
    if [ ! -d /tmp/.X11-unix ]; then # no X server has run on this machine yet
        mkdir -p /tmp/.X11-unix
        chmod 1777 /tmp/.X11-unix
    fi
    mnt --bind /tmp/.X11-unix "$root/tmp/.X11-unix"
    cp "$deb" "$root/tmp/"
}
in_root() { chroot "$root" "$@"; }
# The package cache is shared by every run of this test on the machine (other
# checkouts too): one apt at a time uses it, the others wait for the lock.
apt_in_root() { flock "$cache/archives.lock" chroot "$root" apt-get "$@"; }
export DEBIAN_FRONTEND=noninteractive
install_deb() {
    apt_in_root install -y -q --no-install-recommends "/tmp/$(basename "$deb")" >"$tmp/apt.log" 2>&1 && return 0
    # The cached package lists may have gone stale.
    apt_in_root update -qq >>"$tmp/apt.log" 2>&1
    apt_in_root install -y -q --no-install-recommends "/tmp/$(basename "$deb")" >>"$tmp/apt.log" 2>&1 && return 0
    tail -n 30 "$tmp/apt.log"
    echo "FAIL apt install"
    exit 1
}

# Installing the dependencies (Qt, X libraries, fonts) is most of the time, so
# a second tarball keeps the root with them installed: made by installing the
# package with apt and purging it again with dpkg, and named after the
# package's Depends line, so that a changed dependency makes a new one. Each
# run then unpacks it and installs the package with apt as a user would.
depends="$(dpkg-deb -f "$deb" Depends)"
key="$(printf '%s\n%s\n' "$depends" "$(stat -c '%s %Y' "$tarball")" | sha256sum | cut -c1-16)"
layer="$cache/bookworm-orv-deps-$key.tar"
if [ ! -s "$layer" ]; then
    say "installing the dependencies once (cached in $layer)"
    unpack_root "$tarball"
    install_deb
    in_root dpkg --purge orv-tool >>"$tmp/apt.log" 2>&1
    rm -f "$cache"/bookworm-orv-deps-*.tar
    tar -C "$root" --one-file-system -cf "$layer.tmp" . && mv "$layer.tmp" "$layer"
else
    say "unpacking the root"
    unpack_root "$layer"
fi

say "apt install ./$(basename "$deb")"
install_deb
# shellcheck disable=SC2016 # dpkg-query's own format
check "installed" "install ok installed" "$(in_root dpkg-query -W -f='${Status}' orv-tool)"
# shellcheck disable=SC2016 # dpkg-query's own format
check "a font with Chinese glyphs" "yes" "$(in_root dpkg-query -W -f='${Status}\n' fonts-wqy-microhei fonts-noto-cjk \
    2>/dev/null | grep -q 'install ok installed' && echo yes || echo no)"
for f in /usr/bin/orv-tool /usr/bin/radar-sim /usr/lib/orv-tool/orv-tool; do
    check "$f" yes "$([ -x "$root$f" ] && echo yes || echo no)"
done

# orv-cli serve as a service: the unit, its settings as a conffile.
check_serve_unit "$root"
# shellcheck disable=SC2016 # dpkg-query's own format
contains "settings are a conffile" "/etc/default/orv-serve" "$(in_root dpkg-query -W -f='${Conffiles}' orv-tool)"

# An ordinary user in the group dialout.
in_root useradd -m -s /bin/sh -G dialout tester
check "tester in dialout" yes "$(in_root id -Gn tester | tr ' ' '\n' | grep -qx dialout && echo yes || echo no)"
home="/home/tester"
wd="$home/.local/share/orv-tool"

# The X server (the test's: the program and all its libraries are the root's).
# It picks a free display itself and writes its number once it is ready, so
# that tests starting their X servers at the same time never share one.
Xvfb -displayfd 3 -screen 0 1600x1000x24 -nolisten tcp 3>"$tmp/display" >"$tmp/xvfb.log" 2>&1 &
xvfb_pid=$!
tries=0
display=""
until [ -n "$display" ] && DISPLAY=":$display" xdotool getdisplaygeometry >/dev/null 2>&1; do
    display="$(head -n 1 "$tmp/display" 2>/dev/null)" || true
    tries=$((tries + 1))
    [ "$tries" -lt 300 ] || {
        cat "$tmp/xvfb.log"
        echo "FAIL Xvfb did not start"
        exit 1
    }
    sleep 0.1
done
export DISPLAY=":$display"

as_tester() { # command line run by the user's login shell environment
    in_root runuser -u tester -- env -i HOME="$home" USER=tester LOGNAME=tester SHELL=/bin/sh \
        PATH=/usr/local/bin:/usr/bin:/bin DISPLAY="$DISPLAY" LANG=C.UTF-8 "$@"
}

# radar-sim from the package, three people standing still.
as_tester /usr/bin/radar-sim --verbose --fixed -3,2 --fixed 0,4 --fixed 3,6 \
    >"$tmp/sim.out" 2>"$tmp/sim.err" &
tries=0
until [ -s "$tmp/sim.out" ]; do
    tries=$((tries + 1))
    [ "$tries" -lt 300 ] || {
        cat "$tmp/sim.err"
        echo "FAIL radar-sim printed no port"
        exit 1
    }
    sleep 0.1
done
port="$(head -n 1 "$tmp/sim.out")"

exec_line="$(sed -n 's/^Exec=//p' "$root/usr/share/applications/orv-tool.desktop")"
window=""
start_tool() { # log-name
    # From the home directory, as a desktop menu starts it.
    as_tester ORV_EXTRA_PORTS="$port" sh -c "cd && exec $exec_line" >"$tmp/$1.out" 2>"$tmp/$1.err" &
    tool_pid=$!
    window="$(timeout 30 xdotool search --sync --onlyvisible --name 'ORV_KM7318_TOOL_V1.02' | head -n 1)" || true
    [ -n "$window" ] || {
        tail -n 20 "$tmp/$1.err"
        echo "FAIL the window did not appear"
        exit 1
    }
    eval "$(xdotool getwindowgeometry --shell "$window")"
    geometry="$X $Y $WIDTH $HEIGHT"
    # First paint: the settings column with the open button is on the screen.
    tries=0
    # shellcheck disable=SC2086 # four numbers
    until "$probe" open-button "$(shot "$1-paint")" $geometry >/dev/null 2>&1; do
        tries=$((tries + 1))
        [ "$tries" -lt 100 ] || {
            echo "FAIL the window was not painted"
            exit 1
        }
        sleep 0.2
    done
}
close_tool() { # -> status in $tool_status
    "$probe" close "$DISPLAY" "$window"
    tool_status=0
    wait "$tool_pid" || tool_status=$?
}
shot() { import -window root "$tmp/$1.png" && echo "$tmp/$1.png"; }

say "the desktop entry's command: $exec_line"
start_tool first
# shellcheck disable=SC2086 # four numbers
ink_en="$("$probe" button-ink "$(shot first)" $geometry)"
check "open button has its English caption" yes "$([ "$ink_en" -gt 40 ] && echo yes || echo no)"
# shellcheck disable=SC2086,SC2046 # four numbers in, two out
xdotool mousemove $("$probe" open-button "$tmp/first.png" $geometry) click 1
# The people, as soon as they are painted (or after 30 s).
tries=0
# shellcheck disable=SC2086
until [ "$("$probe" discs "$(shot first-open)" $geometry)" = 3 ] || [ "$tries" -ge 150 ]; do
    tries=$((tries + 1))
    sleep 0.2
done
# shellcheck disable=SC2086
check "the three people on the plane" 3 "$("$probe" discs "$(shot first-open)" $geometry)"
# The log reaches its file about 5 s later: wait for it (at most 60 s).
tries=0
until grep -qs 'RecvData:FF EE DD' "$root$wd"/log/*/logfile_0.txt || [ "$tries" -ge 300 ]; do
    tries=$((tries + 1))
    sleep 0.2
done
close_tool
check "exit status after closing the window" 0 "$tool_status"

# Chinese, as the window stores it after a language change.
as_tester /usr/lib/orv-tool/orv-settings set "$wd/ORV_conf.ini" language index 0
start_tool second
# shellcheck disable=SC2086
ink_cn="$("$probe" button-ink "$(shot second)" $geometry)"
check "open button has its Chinese caption" yes "$([ "$ink_cn" -gt 40 ] && [ "$ink_cn" != "$ink_en" ] && echo yes || echo no)"
close_tool
check "exit status in Chinese" 0 "$tool_status"

# The user's files, in the working directory and nowhere else.
found="$(cd "$root" && find . -xdev \( -name ORV_conf.ini -o -name 'logfile_*.txt' -o -name 'ORV_translate_*.txt' \) \
    -not -path ./usr/share/orv-tool/\* | sort | sed 's|/[0-9]\{8\}/|/DAY/|')"
check "files only in the working directory" "$(printf '.%s\n' "$wd/ORV_conf.ini" "$wd/ORV_translate_cn.txt" \
    "$wd/ORV_translate_en.txt" "$wd/log/DAY/logfile_0.txt" | sort)" "$found"
check "settings: port as listed" "pts/${port#/dev/pts/}" \
    "$(in_root /usr/lib/orv-tool/orv-settings get "$wd/ORV_conf.ini" comm port)"
check "log holds the session" yes \
    "$(grep -q 'RecvData:FF EE DD' "$root$wd"/log/*/logfile_0.txt && echo yes || echo no)"
check "files owned by the user" "" "$(find "$root$home" ! -user "$(stat -c %u "$root$home")")"

say "apt purge orv-tool"
apt_in_root purge -y -q orv-tool >"$tmp/purge.log" 2>&1 || {
    cat "$tmp/purge.log"
    echo "FAIL apt purge"
    exit 1
}
check "program removed" no "$([ -e "$root/usr/bin/orv-tool" ] && echo yes || echo no)"
check "service settings purged" no "$([ -e "$root/etc/default/orv-serve" ] && echo yes || echo no)"
check "user's files kept" "$found" "$(cd "$root" && find . -xdev \( -name ORV_conf.ini -o -name 'logfile_*.txt' \
    -o -name 'ORV_translate_*.txt' \) | sort | sed 's|/[0-9]\{8\}/|/DAY/|')"

say "done in $(($(date +%s) - start)) s"
finish
