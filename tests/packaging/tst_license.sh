#!/bin/sh
# LICENSE at the root says what the package's copyright file says: the same
# holders and years, and the same licence text word for word.
#   tst_license.sh LICENSE COPYRIGHT
set -u
# shellcheck source=tests/packaging/checks.sh
. "$(dirname "$0")/checks.sh"
license="$1"
copyright="$2"

words() { tr -s ' \n' '  ' | sed 's/^ //; s/ $//'; }

holders="$(sed -n 's/^Copyright: //p' "$copyright")"
contact="$(sed -n 's/^Upstream-Contact: //p' "$copyright")"
name="$(sed -n 's/^Upstream-Name: //p' "$copyright")"
# The licence text: the continuation lines after "License:".
text="$(sed -n '/^License:/,/^[^ ]/{/^ /p}' "$copyright" | sed 's/^ //; s/^\.$//' | words)"

check "copyright file has a licence text" yes "$([ -n "$text" ] && echo yes || echo no)"
check "LICENSE names the program" "$name" "$(head -n 1 "$license")"
contains "LICENSE names the holders" "Copyright $holders" "$(cat "$license")"
contains "LICENSE names the contact" "$contact" "$(cat "$license")"
contains "LICENSE has the copyright file's licence text" "$text" "$(words <"$license")"
finish
