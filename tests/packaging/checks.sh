# shellcheck shell=sh
# Assertions shared by the packaging tests (sourced). Each counts a pass or
# prints what differed; finish prints the tally and fails on any failure.
failures=0
passes=0

check() { # name expected actual
    if [ "$2" = "$3" ]; then
        passes=$((passes + 1))
    else
        failures=$((failures + 1))
        printf 'FAIL %s\n--- expected\n%s\n--- got\n%s\n' "$1" "$2" "$3"
    fi
}

contains() { # name needle haystack
    case "$3" in
    *"$2"*) passes=$((passes + 1)) ;;
    *)
        failures=$((failures + 1))
        printf 'FAIL %s: "%s" not in\n%s\n' "$1" "$2" "$3"
        ;;
    esac
}

finish() {
    echo "$passes passed, $failures failed"
    [ "$failures" -eq 0 ]
}
