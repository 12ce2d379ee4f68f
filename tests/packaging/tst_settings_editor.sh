#!/bin/sh
# Cases of packaging/orv-settings, the settings-file editor that the launcher
# and scripts/run use: what it writes must read back through QSettings-style
# lines, other keys and groups must stay, and set-if-absent must never
# overwrite a stored value.
#   tst_settings_editor.sh PATH-TO-orv-settings
set -u
# shellcheck source=tests/packaging/checks.sh
. "$(dirname "$0")/checks.sh"
tool="$1"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT


f="$tmp/ORV_conf.ini"

# A new file: groups in the order they were set, a blank line between them.
"$tool" set "$f" comm port pts/7
"$tool" set "$f" comm baudrate 115200
"$tool" set-if-absent "$f" language index 1
check "new file" "$(printf '[comm]\nport=pts/7\nbaudrate=115200\n\n[language]\nindex=1')" "$(cat "$f")"

# set replaces in place; set-if-absent keeps the stored value.
"$tool" set "$f" comm port pts/9
"$tool" set-if-absent "$f" language index 0
check "replace" "$(printf '[comm]\nport=pts/9\nbaudrate=115200\n\n[language]\nindex=1')" "$(cat "$f")"
check "get" "pts/9" "$("$tool" get "$f" comm port)"
check "get language" "1" "$("$tool" get "$f" language index)"

# A file as the window writes it (CR LF kept, other groups and keys kept,
# a key added to an existing group lands after its last line).
printf '[XYAXIS]\r\nX1=-5\r\nX2=5\r\n\r\n[comm]\r\nbaudrate=9600\r\nport=COM3\r\n\r\n[language]\r\nindex=0\r\n' >"$f"
"$tool" set "$f" comm port pts/2
"$tool" set "$f" XYAXIS Y2 8
"$tool" set-if-absent "$f" language index 1
check "window file" "$(printf '[XYAXIS]\r\nX1=-5\r\nX2=5\r\nY2=8\r\n\r\n[comm]\r\nbaudrate=9600\r\nport=pts/2\r\n\r\n[language]\r\nindex=0\r')" "$(cat "$f")"

# Spaces around "=" and a key that only starts like ours.
printf '[comm]\nportname=x\nport = ttyS0\n' >"$f"
check "spaced get" "ttyS0" "$("$tool" get "$f" comm port)"
"$tool" set "$f" comm port pts/1
check "spaced set" "$(printf '[comm]\nportname=x\nport=pts/1')" "$(cat "$f")"

# A key of the same name in another group is not ours.
printf '[other]\nindex=5\n' >"$f"
"$tool" set-if-absent "$f" language index 1
check "other group" "$(printf '[other]\nindex=5\n\n[language]\nindex=1')" "$(cat "$f")"
"$tool" get "$f" comm port >/dev/null 2>&1
check "absent key exit" "1" "$?"
"$tool" get "$tmp/none.ini" comm port >/dev/null 2>&1
check "absent file exit" "1" "$?"

# Values QSettings would quote are refused, the file is untouched.
before="$(cat "$f")"
"$tool" set "$f" comm port 'a b' 2>/dev/null
check "refused value exit" "2" "$?"
"$tool" set "$f" comm port 'x,y' 2>/dev/null
check "refused comma" "2" "$?"
check "refused value file" "$before" "$(cat "$f")"
"$tool" 2>/dev/null
check "usage exit" "2" "$?"

# A directory that cannot be written: exit 3 and nothing changed.
if [ "$(id -u)" -ne 0 ]; then
    mkdir "$tmp/ro"
    printf '[comm]\nport=a\n' >"$tmp/ro/ORV_conf.ini"
    chmod 555 "$tmp/ro"
    "$tool" set "$tmp/ro/ORV_conf.ini" comm port b 2>/dev/null
    check "read-only exit" "3" "$?"
    chmod 755 "$tmp/ro"
fi

# The locale decides: LC_ALL, then LC_MESSAGES, then LANG.
lang() { env -u LC_ALL -u LC_MESSAGES -u LANG "$@" "$tool" locale-language; }
check "zh LANG" 0 "$(lang LANG=zh_CN.UTF-8)"
check "en LANG" 1 "$(lang LANG=en_US.UTF-8)"
check "zh_TW" 0 "$(lang LANG=zh_TW.UTF-8)"
check "C" 1 "$(lang LANG=C)"
check "nothing set" 1 "$(lang)"
check "LC_ALL wins" 1 "$(lang LC_ALL=de_DE.UTF-8 LC_MESSAGES=zh_CN.UTF-8 LANG=zh_CN.UTF-8)"
check "LC_MESSAGES before LANG" 0 "$(lang LC_MESSAGES=zh_CN.UTF-8 LANG=en_GB.UTF-8)"
check "empty LC_ALL skipped" 0 "$(lang LC_ALL= LANG=zh_SG.UTF-8)"

finish
