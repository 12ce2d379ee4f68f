#!/bin/sh
# "cmake --install BUILD --prefix DIR" gives the package's layout: the
# launcher and the programs, the translation files, a valid desktop entry
# whose command is installed, icons whose pictures have the size their
# directory names, and manual pages that format without warnings. With
# orv-cli, the service's unit and its settings (beside the prefix: /etc in the
# package), checked with systemd-analyze in a tree laid out as the package.
#   tst_install_layout.sh BUILD-DIR WITH-CLI(0|1)
set -u
# shellcheck source=tests/packaging/checks.sh
. "$(dirname "$0")/checks.sh"
# shellcheck source=tests/packaging/serveunit.sh
. "$(dirname "$0")/serveunit.sh"
build="$1"
with_cli="$2"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
ok() { passes=$((passes + 1)); }
bad() {
    failures=$((failures + 1))
    echo "FAIL $*"
}

if ! cmake --install "$build" --prefix "$tmp/p" >"$tmp/install.log" 2>&1; then
    cat "$tmp/install.log"
    echo "0 passed, 1 failed"
    exit 1
fi
p="$tmp/p"

expected="bin/orv-tool
bin/radar-sim
lib/orv-tool/orv-settings
lib/orv-tool/orv-tool
share/applications/orv-tool.desktop
share/doc/orv-tool/changelog.gz
share/doc/orv-tool/copyright
share/icons/hicolor/128x128/apps/orv-tool.png
share/icons/hicolor/16x16/apps/orv-tool.png
share/icons/hicolor/22x22/apps/orv-tool.png
share/icons/hicolor/24x24/apps/orv-tool.png
share/icons/hicolor/256x256/apps/orv-tool.png
share/icons/hicolor/32x32/apps/orv-tool.png
share/icons/hicolor/48x48/apps/orv-tool.png
share/icons/hicolor/64x64/apps/orv-tool.png
share/icons/hicolor/scalable/apps/orv-tool.svg
share/man/man1/orv-tool.1.gz
share/man/man1/radar-sim.1.gz
share/orv-tool/ORV_translate_cn.txt
share/orv-tool/ORV_translate_en.txt"
if [ "$with_cli" = 1 ]; then
    expected="$(printf '%s\n' "$expected" bin/orv-cli share/man/man1/orv-cli.1.gz \
        lib/systemd/system/orv-serve@.service share/doc/orv-tool/systemd.md)"
fi
expected="$(printf '%s\n' "$expected" | LC_ALL=C sort)"
actual="$(cd "$p" && find . -type f | sed 's|^\./||' | LC_ALL=C sort)"
if [ "$expected" = "$actual" ]; then ok; else
    bad "layout"
    printf '%s\n' "$expected" >"$tmp/e"
    printf '%s\n' "$actual" >"$tmp/a"
    diff "$tmp/e" "$tmp/a"
fi

for f in bin/orv-tool bin/radar-sim lib/orv-tool/orv-tool lib/orv-tool/orv-settings; do
    if [ -x "$p/$f" ]; then ok; else bad "$f is not executable"; fi
done
for f in share/orv-tool/ORV_translate_en.txt share/applications/orv-tool.desktop; do
    if [ "$(stat -c %a "$p/$f")" = 644 ]; then ok; else bad "$f mode $(stat -c %a "$p/$f")"; fi
done

desktop="$p/share/applications/orv-tool.desktop"
if out="$(desktop-file-validate "$desktop" 2>&1)" && [ -z "$out" ]; then ok; else bad "desktop-file-validate: $out"; fi
exec_cmd="$(sed -n 's/^Exec=//p' "$desktop")"
if [ -x "$p/bin/${exec_cmd%% *}" ]; then ok; else bad "Exec=$exec_cmd is not in bin/"; fi
if [ "$(sed -n 's/^Icon=//p' "$desktop")" = orv-tool ]; then ok; else bad "Icon"; fi

for dir in "$p"/share/icons/hicolor/*x*; do
    size="${dir##*/}"
    got="$(file -b "$dir/apps/orv-tool.png" | sed -n 's/^PNG image data, \([0-9]*\) x \([0-9]*\),.*/\1x\2/p')"
    if [ "$got" = "$size" ]; then ok; else bad "icon in $size is $got"; fi
done

for page in "$p"/share/man/man1/*.1.gz; do
    if ! gzip -t "$page"; then
        bad "$page is not gzip"
        continue
    fi
    warnings="$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)"
    if [ -z "$warnings" ]; then ok; else bad "man $page: $warnings"; fi
    name="$(basename "$page" .1.gz)"
    if LC_ALL=C.UTF-8 MANWIDTH=80 man -l "$page" 2>/dev/null | grep -q "EXIT STATUS"; then ok; else
        bad "$page has no EXIT STATUS"
    fi
    if [ -x "$p/bin/$name" ]; then ok; else bad "man page $name.1 for a program that is not installed"; fi
done

if [ "$with_cli" = 1 ]; then
    check "settings beside the prefix" yes "$([ -f "$tmp/etc/default/orv-serve" ] && echo yes || echo no)"
    # The package's tree: prefix /usr, settings in /etc.
    if cmake --install "$build" --prefix "$tmp/root/usr" >"$tmp/install-root.log" 2>&1; then
        check_serve_unit "$tmp/root"
    else
        cat "$tmp/install-root.log"
        bad "install into $tmp/root/usr"
    fi
fi

# The launcher finds its tree at this prefix.
if "$p/bin/orv-tool" --version | grep -q '^orv-tool [0-9]'; then ok; else bad "launcher --version"; fi

echo "$passes passed, $failures failed"
[ "$failures" -eq 0 ]
