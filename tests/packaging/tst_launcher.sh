#!/bin/sh
# Cases of the installed launcher (bin/orv-tool): first start, second start,
# the language choice, refreshing the translation files, XDG_DATA_HOME, a
# read-only home directory and the dialout hint. The launcher runs from a
# scratch install tree whose program is a stand-in that records where and
# how it was started.
#   tst_launcher.sh LAUNCHER ORV-SETTINGS TRANSLATIONS-DIR
set -u
# shellcheck source=tests/packaging/checks.sh
. "$(dirname "$0")/checks.sh"
launcher="$1"
settings="$2"
texts="$3"

tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
chmod 755 "$tmp"


# The install tree.
prefix="$tmp/usr"
mkdir -p "$prefix/bin" "$prefix/lib/orv-tool" "$prefix/share/orv-tool"
cp "$launcher" "$prefix/bin/orv-tool"
cp "$settings" "$prefix/lib/orv-tool/orv-settings"
cp "$texts/ORV_translate_cn.txt" "$texts/ORV_translate_en.txt" "$prefix/share/orv-tool/"
cat >"$prefix/lib/orv-tool/orv-tool" <<'FAKE'
#!/bin/sh
# Stand-in for the program: records its directory and arguments.
{
    echo "cwd=$(pwd)"
    echo "args=$*"
} >"${ORV_FAKE_RECORD:?}"
exit "${ORV_FAKE_EXIT:-0}"
FAKE
chmod 755 "$prefix/bin/orv-tool" "$prefix/lib/orv-tool/orv-tool" "$prefix/lib/orv-tool/orv-settings"
chmod -R a+rX "$tmp"
shipped="$prefix/share/orv-tool"
record="$tmp/record"
# A symbolic link to the launcher, as /usr/local/bin links often are.
ln -s "$prefix/bin/orv-tool" "$tmp/orv-tool-link"

run() { # HOME LANG [extra env...] -> status in $status, stderr in $err
    h="$1"
    l="$2"
    shift 2
    rm -f "$record"
    status=0
    err="$(env -i PATH="$PATH" HOME="$h" LANG="$l" ORV_FAKE_RECORD="$record" \
        ORV_DEVICE_DIR="$tmp/nodev" "$@" "$prefix/bin/orv-tool" -platform offscreen 2>&1 >/dev/null)" ||
        status=$?
}

# First start: the working directory is made, the texts are copied, the
# language follows the locale, the program runs there with the arguments.
home="$tmp/home1"
mkdir "$home"
run "$home" en_US.UTF-8
wd="$home/.local/share/orv-tool"
check "first start status" 0 "$status"
check "first start stderr" "" "$err"
check "first start record" "$(printf 'cwd=%s\nargs=-platform offscreen' "$wd")" "$(cat "$record" 2>/dev/null)"
check "cn copied" "$(cat "$shipped/ORV_translate_cn.txt")" "$(cat "$wd/ORV_translate_cn.txt" 2>/dev/null)"
check "en copied" "$(cat "$shipped/ORV_translate_en.txt")" "$(cat "$wd/ORV_translate_en.txt" 2>/dev/null)"
check "english stored" "$(printf '[language]\nindex=1')" "$(cat "$wd/ORV_conf.ini" 2>/dev/null)"
check "nothing else in home" ".local" "$(ls -A "$home")"

# Second start in a Chinese locale: the stored language stays.
run "$home" zh_CN.UTF-8
check "second start status" 0 "$status"
check "second start language" 1 "$("$settings" get "$wd/ORV_conf.ini" language index)"
check "second start ran" "cwd=$wd" "$(head -n 1 "$record" 2>/dev/null)"

# A language changed in the window is kept, whatever the locale.
"$settings" set "$wd/ORV_conf.ini" language index 0
"$settings" set "$wd/ORV_conf.ini" comm port ttyUSB0
run "$home" en_US.UTF-8
check "window language kept" 0 "$("$settings" get "$wd/ORV_conf.ini" language index)"
check "port kept" ttyUSB0 "$("$settings" get "$wd/ORV_conf.ini" comm port)"

# First start in a Chinese locale stores Chinese; LC_ALL beats LANG.
home2="$tmp/home2"
mkdir "$home2"
run "$home2" zh_CN.UTF-8
check "chinese stored" 0 "$("$settings" get "$home2/.local/share/orv-tool/ORV_conf.ini" language index)"
home3="$tmp/home3"
mkdir "$home3"
run "$home3" en_US.UTF-8 LC_ALL=zh_TW.UTF-8
check "LC_ALL decides" 0 "$("$settings" get "$home3/.local/share/orv-tool/ORV_conf.ini" language index)"

# The program's exit status is the launcher's.
run "$home" en_US.UTF-8 ORV_FAKE_EXIT=7
check "exit status passed on" 7 "$status"

# Started through a symbolic link, the launcher finds its install tree.
rm -f "$record"
(env -i PATH="$PATH" HOME="$home" ORV_FAKE_RECORD="$record" ORV_DEVICE_DIR="$tmp/nodev" \
    "$tmp/orv-tool-link" >/dev/null 2>&1)
check "through a link" "cwd=$wd" "$(head -n 1 "$record" 2>/dev/null)"

# An upgrade brings new texts: an untouched copy is refreshed; a copy the
# user edited is kept (with one note on stderr); a deleted copy comes back.
printf '00000001 新中文\n' >>"$shipped/ORV_translate_cn.txt"
printf '00000001 New English\n' >>"$shipped/ORV_translate_en.txt"
printf '0000000B My own open\n' >>"$wd/ORV_translate_en.txt"
own="$(cat "$wd/ORV_translate_en.txt")"
run "$home" en_US.UTF-8
check "upgrade status" 0 "$status"
check "untouched copy refreshed" "$(cat "$shipped/ORV_translate_cn.txt")" "$(cat "$wd/ORV_translate_cn.txt")"
check "own copy kept" "$own" "$(cat "$wd/ORV_translate_en.txt")"
contains "own copy note" "keeping your own $wd/ORV_translate_en.txt" "$err"
run "$home" en_US.UTF-8
check "note only once" "" "$err"
check "own copy still kept" "$own" "$(cat "$wd/ORV_translate_en.txt")"
rm "$wd/ORV_translate_en.txt"
run "$home" en_US.UTF-8
check "deleted copy restored" "$(cat "$shipped/ORV_translate_en.txt")" "$(cat "$wd/ORV_translate_en.txt")"
printf '00000002 Newer English\n' >>"$shipped/ORV_translate_en.txt"
run "$home" en_US.UTF-8
check "restored copy refreshed again" "$(cat "$shipped/ORV_translate_en.txt")" "$(cat "$wd/ORV_translate_en.txt")"

# XDG_DATA_HOME is used when absolute and ignored when relative.
home4="$tmp/home4"
mkdir "$home4"
run "$home4" en_US.UTF-8 XDG_DATA_HOME="$tmp/xdg"
check "XDG_DATA_HOME" "cwd=$tmp/xdg/orv-tool" "$(head -n 1 "$record" 2>/dev/null)"
run "$home4" en_US.UTF-8 XDG_DATA_HOME=relative/dir
check "relative XDG_DATA_HOME ignored" "cwd=$home4/.local/share/orv-tool" "$(head -n 1 "$record" 2>/dev/null)"

# No HOME and no XDG_DATA_HOME: a clear error.
rm -f "$record"
status=0
err="$(env -i PATH="$PATH" ORV_FAKE_RECORD="$record" "$prefix/bin/orv-tool" 2>&1)" || status=$?
check "no HOME status" 1 "$status"
contains "no HOME message" "neither HOME nor XDG_DATA_HOME is set" "$err"
check "no HOME not started" "" "$(cat "$record" 2>/dev/null)"

# --help and --version answer without starting anything.
status=0
out="$("$prefix/bin/orv-tool" --help 2>&1)" || status=$?
check "--help status" 0 "$status"
contains "--help text" "Usage: orv-tool" "$out"
contains "--version" "orv-tool " "$("$prefix/bin/orv-tool" --version)"

# The remaining cases need a user without root's rights: as root, run them
# as "nobody" (root may write anywhere and open every device).
if [ "$(id -u)" -eq 0 ]; then
    as_user() { setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; }
    user=nobody
else
    as_user() { "$@"; }
    user="$(id -un)"
fi
urun() { # HOME [extra env...]
    h="$1"
    shift
    rm -f "$record"
    status=0
    err="$(as_user env -i PATH="$tmp/bin:$PATH" HOME="$h" USER="$user" LANG=en_US.UTF-8 \
        ORV_FAKE_RECORD="$record" "$@" "$prefix/bin/orv-tool" 2>&1 >/dev/null)" || status=$?
}
chmod 777 "$tmp"

# A read-only home directory: a clear error, a non-zero exit, no program.
rohome="$tmp/rohome"
mkdir "$rohome"
chmod 555 "$rohome"
urun "$rohome" ORV_DEVICE_DIR="$tmp/nodev"
check "read-only home status" 1 "$status"
contains "read-only home message" "cannot create the working directory $rohome/.local/share/orv-tool" "$err"
contains "read-only home advice" "XDG_DATA_HOME" "$err"
check "read-only home not started" "" "$(cat "$record" 2>/dev/null)"
# An existing working directory that cannot be written.
rohome2="$tmp/rohome2"
mkdir -p "$rohome2/.local/share/orv-tool"
chmod -R 555 "$rohome2"
urun "$rohome2" ORV_DEVICE_DIR="$tmp/nodev"
check "read-only workdir status" 1 "$status"
contains "read-only workdir message" "is not writable" "$err"

# The dialout hint, with a directory of stand-in devices: one USB adapter of
# the group dialout the user is not in, one console port without a UART
# (type 0: ignored), one port the user may open, one only root may open.
if [ "$(id -u)" -eq 0 ] && getent group dialout >/dev/null; then
    dev="$tmp/dev"
    sys="$tmp/sys"
    mkdir -p "$dev" "$sys/ttyS0" "$sys/ttyS1"
    : >"$dev/ttyUSB0"
    chgrp dialout "$dev/ttyUSB0"
    chmod 660 "$dev/ttyUSB0"
    : >"$dev/ttyS0"
    chgrp dialout "$dev/ttyS0"
    chmod 660 "$dev/ttyS0"
    echo 0 >"$sys/ttyS0/type"
    : >"$dev/ttyACM0"
    chmod 666 "$dev/ttyACM0"
    : >"$dev/ttyS1"
    chmod 600 "$dev/ttyS1"
    echo 4 >"$sys/ttyS1/type"
    # A notify-send that records its call.
    mkdir -p "$tmp/bin"
    printf '#!/bin/sh\nprintf "%%s\\n" "$@" >"%s/notified"\n' "$tmp" >"$tmp/bin/notify-send"
    chmod 755 "$tmp/bin/notify-send"
    uhome="$tmp/uhome"
    mkdir "$uhome"
    chown 65534 "$uhome"
    urun "$uhome" ORV_DEVICE_DIR="$dev" ORV_SYS_TTY_DIR="$sys" DISPLAY=:99
    check "dialout status" 0 "$status"
    contains "dialout lists the blocked port" "(group dialout): ttyUSB0." "$err"
    contains "dialout fix" "sudo usermod -aG dialout nobody" "$err"
    contains "dialout relogin" "log out and in again" "$err"
    case "$err" in *ttyS0* | *ttyS1* | *ttyACM0*) check "dialout only the blocked port" "" "$err" ;; esac
    check "dialout program started" "cwd=$uhome/.local/share/orv-tool" "$(head -n 1 "$record" 2>/dev/null)"
    tries=0
    while [ ! -s "$tmp/notified" ] && [ "$tries" -lt 300 ]; do
        tries=$((tries + 1))
        sleep 0.1
    done
    contains "dialout notification" "sudo usermod -aG dialout nobody" "$(cat "$tmp/notified" 2>/dev/null)"
    # No display: no notification.
    rm -f "$tmp/notified"
    urun "$uhome" ORV_DEVICE_DIR="$dev" ORV_SYS_TTY_DIR="$sys"
    sleep 0.3
    check "no display, no notification" "no" "$([ -e "$tmp/notified" ] && echo yes || echo no)"
    # A user who may open the port hears nothing.
    chmod 666 "$dev/ttyUSB0"
    urun "$uhome" ORV_DEVICE_DIR="$dev" ORV_SYS_TTY_DIR="$sys" DISPLAY=:99
    check "no blocked port, no hint" "" "$err"
else
    echo "SKIP dialout hint: needs root (to make stand-in devices of the group dialout)"
fi

finish
