# shellcheck shell=sh
# Checks of the installed orv-serve@.service, shared by the packaging tests
# (sourced after checks.sh): the unit in a root that holds the package's
# files passes systemd-analyze verify, its exposure (systemd-analyze security
# --offline) is at most the 1.4 reached, and it runs orv-cli serve for
# /dev/INSTANCE as a dynamic user in dialout with its settings from
# /etc/default/orv-serve and its token in its state directory.
#   check_serve_unit ROOT
# ROOT is a scratch tree: the host's systemd targets are copied into it, since
# a package root without systemd has none and verify needs them.

check_serve_unit() {
    unit_root="$1"
    unit="$unit_root/usr/lib/systemd/system/orv-serve@.service"
    check "unit installed" yes "$([ -f "$unit" ] && echo yes || echo no)"
    check "settings installed" yes "$([ -f "$unit_root/etc/default/orv-serve" ] && echo yes || echo no)"
    # shellcheck disable=SC1091 # the installed settings file
    check "settings give ORV_SERVE_OPTS" yes \
        "$( (. "$unit_root/etc/default/orv-serve" && [ -n "${ORV_SERVE_OPTS:-}" ]) && echo yes || echo no)"
    for line in "DynamicUser=yes" "SupplementaryGroups=dialout" "StateDirectory=orv-serve" \
        "EnvironmentFile=-/etc/default/orv-serve" \
        "ExecStart=/usr/bin/orv-cli serve --port /dev/%I --token-file %S/orv-serve/%i.token \$ORV_SERVE_OPTS"; do
        check "unit has $line" yes "$(grep -qxF "$line" "$unit" && echo yes || echo no)"
    done
    check "unit runs no root" "" "$(grep -E '^(User=root|PermissionsStartOnly|ExecStart=[+!])' "$unit")"

    if ! command -v systemd-analyze >/dev/null; then
        check "systemd-analyze is installed (package systemd)" yes no
        return
    fi
    for f in /usr/lib/systemd/system/*.target; do
        [ -e "$unit_root/usr/lib/systemd/system/${f##*/}" ] || cp "$f" "$unit_root/usr/lib/systemd/system/"
    done
    verified="$(systemd-analyze verify --man=no --root="$unit_root" orv-serve@ttyUSB0.service 2>&1)"
    check "systemd-analyze verify orv-serve@ttyUSB0.service" "0:" "$?:$verified"
    security="$(systemd-analyze security --offline=true --root="$unit_root" orv-serve@ttyUSB0.service 2>&1)"
    exposure="$(printf '%s\n' "$security" | sed -n 's/.*Overall exposure level for orv-serve@ttyUSB0.service: \([0-9.]*\).*/\1/p')"
    echo "orv-serve@.service: systemd-analyze security exposure $exposure"
    low="$(awk -v e="$exposure" 'BEGIN { print (e != "" && e + 0 <= 1.4) ? "yes" : "no" }')"
    check "exposure at most 1.4 (systemd-analyze security)" yes "$low"
    [ "$low" = yes ] || printf '%s\n' "$security" | grep '✗'
}
