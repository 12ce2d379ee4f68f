#!/bin/sh
# scripts/cli-reference check fails, naming what is missing where, when the
# manual page, the command reference or the README's command table lacks a
# command or an option of orv-cli's help, or names one it does not have; and
# passes on the unchanged files.
#   tst_cli_reference.sh SCRIPT ORV_CLI MAN_PAGE REFERENCE
set -u
# shellcheck source=tests/packaging/checks.sh
. "$(dirname "$0")/../packaging/checks.sh"
script="$1"
cli="$2"
man="$3"
reference="$4"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT

# A README whose table lists exactly orv-cli --help's commands.
{
    echo "| Command | What it does |"
    echo "| --- | --- |"
    # shellcheck disable=SC2016 # backticks of Markdown
    "$cli" --help | sed -n '/^Commands:/,/^$/p' | sed -n 's/^  \([a-z][a-z]*\( [a-z][a-z]*\)\?\)  .*/| `\1` | x |/p'
} >"$tmp/README.md"
cp "$man" "$tmp/orv-cli.1"
cp "$reference" "$tmp/ref.md"

verdict() { # files... -> the check's output; its status in $status
    out="$("$script" check "$cli" --man "$1" --markdown "$2" --readme "$3" 2>&1)"
    status=$?
}

verdict "$tmp/orv-cli.1" "$tmp/ref.md" "$tmp/README.md"
check "unchanged files pass" 0 "$status"

# The manual page without --count of watch.
sed 's/\\-\\-count/\\-\\-kount/g' "$tmp/orv-cli.1" >"$tmp/no-count.1"
verdict "$tmp/no-count.1" "$tmp/ref.md" "$tmp/README.md"
check "man page without --count fails" 1 "$status"
contains "says what is missing where" "$tmp/no-count.1: --count of orv-cli watch is missing" "$out"

# The manual page without the section of render.
sed 's/^\.SH "ORV-CLI RENDER"/.SH "ORV-CLI RENDERING"/' "$tmp/orv-cli.1" >"$tmp/no-render.1"
verdict "$tmp/no-render.1" "$tmp/ref.md" "$tmp/README.md"
check "man page without render fails" 1 "$status"
contains "names the missing section" "no section ORV-CLI RENDER for the command render" "$out"
contains "names the unknown section" "section ORV-CLI RENDERING describes a command orv-cli --help does not list" "$out"

# The reference without the section of areas set, and with an option gone.
awk '/^## areas set$/ { skip = 1; next } /^## / { skip = 0 } !skip' "$tmp/ref.md" >"$tmp/no-set.md"
verdict "$tmp/orv-cli.1" "$tmp/no-set.md" "$tmp/README.md"
check "reference without areas set fails" 1 "$status"
contains "names the missing command" "$tmp/no-set.md: no section \"## areas set\" for the command areas set" "$out"
contains "says how to update it" "update it: scripts/cli-reference markdown" "$out"
sed 's/--trail-minutes/--trail-hours/' "$tmp/ref.md" >"$tmp/no-trail.md"
verdict "$tmp/orv-cli.1" "$tmp/no-trail.md" "$tmp/README.md"
check "reference without --trail-minutes fails" 1 "$status"
contains "names the missing option" "--trail-minutes of orv-cli render is missing" "$out"
# One word of a description changed: out of date.
sed 's/cancel all three areas/cancel every area/' "$tmp/ref.md" >"$tmp/stale.md"
verdict "$tmp/orv-cli.1" "$tmp/stale.md" "$tmp/README.md"
check "a stale reference fails" 1 "$status"
contains "says it is stale" "$tmp/stale.md is not what orv-cli's help makes now" "$out"

# The README's table without stats, and with a command orv-cli does not have.
# shellcheck disable=SC2016 # backticks of Markdown
grep -v '`stats`' "$tmp/README.md" >"$tmp/no-stats.md"
# shellcheck disable=SC2016
echo '| `areas shuffle` | x |' >>"$tmp/no-stats.md"
verdict "$tmp/orv-cli.1" "$tmp/ref.md" "$tmp/no-stats.md"
check "README without stats fails" 1 "$status"
contains "names the missing command" "$tmp/no-stats.md: the command table lacks \`stats\`" "$out"
contains "names the extra command" "the command table lists \`areas shuffle\`, which orv-cli --help does not" "$out"
printf '# orv-tool\n\nNo table here.\n' >"$tmp/no-table.md"
verdict "$tmp/orv-cli.1" "$tmp/ref.md" "$tmp/no-table.md"
check "README without a table fails" 1 "$status"
contains "says the table is missing" "$tmp/no-table.md: no command table" "$out"

finish
