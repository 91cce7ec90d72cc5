#!/usr/bin/env bash
# The man pages: each renders with groff without a warning and is shown by
# man(1) without one; pppoeplusctl(8) names every command, option, help
# topic, setting and diagnostic function the built tool knows, and
# pppoeplus.conf(5) every key of the example configuration.
#
#   man_lint.sh PPPOEPLUSCTL EXAMPLE-CONF PAGE...
set -uo pipefail
tool=$1
example=$2
shift 2
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

command -v groff >/dev/null || { echo "FAIL: groff is missing (Debian package groff-base)"; exit 1; }
command -v man >/dev/null || { echo "FAIL: man is missing (Debian package man-db)"; exit 1; }

# The page's text as written, roff escapes of '-' and fonts taken out.
plain() { sed -e 's/\\-/-/g' -e 's/\\f[BIRP]//g' -e 's/\\(aq/'"'"'/g' "$1"; }

# require PAGE WHAT WORD...: the page's text holds every WORD.
require() {
    local page=$1 what=$2 text w missing=()
    shift 2
    text=$(plain "$page")
    for w in "$@"; do
        grep -qF -- "$w" <<<"$text" || missing+=("$w")
    done
    if [ ${#missing[@]} -ne 0 ]; then fail "$(basename "$page") does not name these $what: ${missing[*]}"
    else echo "ok:   $(basename "$page") names all $what ($#)"; fi
}

for page in "$@"; do
    name=$(basename "$page")
    [ -s "$page" ] || { fail "$page is missing or empty"; continue; }
    if grep -qE '@[A-Z_]+@' "$page"; then fail "$name holds a placeholder the build did not fill in"; fi

    out=$(groff -man -ww -z "$page" 2>&1)
    if [ -n "$out" ]; then fail "groff -man -ww -z $name:"; echo "$out"
    else echo "ok:   groff -man -ww -z $name"; fi

    err=$(mktemp)
    text=$(MANWIDTH=80 MANPAGER=cat PAGER=cat man --warnings -l "$page" 2>"$err")
    status=$?
    if [ $status -ne 0 ] || [ -s "$err" ]; then fail "man -l $name (status $status):"; cat "$err"
    elif ! grep -q '^NAME' <<<"$text" || ! grep -q '^SYNOPSIS' <<<"$text"; then fail "man -l $name shows no NAME and SYNOPSIS"
    else echo "ok:   man -l $name"; fi
    rm -f "$err"

    case $name in
        pppoeplusctl.8)
            help=$("$tool" --help)
            names=$("$tool" help names)
            shellhelp=$("$tool" help shell)
            # Commands: the first word of each line of the Commands section.
            mapfile -t words < <(awk '/^Commands:/ {c = 1; next} /^$/ {c = 0} c && /^  [a-z]/ {print $1}' <<<"$help" | sort -u)
            require "$page" commands "${words[@]}"
            mapfile -t words < <(awk '/^Options/ {c = 1; next} /^$/ {c = 0} c && /^  -/ {for (i = 1; i <= NF && $i ~ /^-/; i++) {sub(/,$/, "", $i); print $i}}' <<<"$help")
            require "$page" options "${words[@]}"
            mapfile -t words < <(sed -n 's/.*a topic://p' <<<"$help" | tr ' ' '\n'; awk '/a topic:/ {getline; print}' <<<"$help" | tr ' ' '\n')
            mapfile -t words < <(printf '%s\n' "${words[@]}" | grep -E '^[a-z]+$')
            require "$page" "help topics" "${words[@]}"
            mapfile -t words < <(awk '/^ +[0-9]+  +[a-z]/ {print $2}' <<<"$names" | sort -u)
            require "$page" "setting and counter names" "${words[@]}"
            mapfile -t words < <(awk '/^Functions:/ {c = 1; next} /^$/ {c = 0} c && /^  [A-Za-z]/ {for (i = 1; i <= NF && $i ~ /,$/; i++) {sub(/,$/, "", $i); print $i}; print $i}' <<<"$shellhelp")
            require "$page" "diagnostic functions" "${words[@]}"
            require "$page" "exit statuses" "EXIT STATUS" ".B 0" ".B 1" ".B 2" ".B 3"
            ;;
        pppoeplus.conf.5)
            mapfile -t words < <(grep -oE '^#?(pppoeplus|platform)\.[a-z.]+' "$example" | tr -d '#' | sort -u)
            [ ${#words[@]} -ge 20 ] || fail "found only ${#words[@]} keys in $example"
            require "$page" "configuration keys" "${words[@]}" "port."
            ;;
        pppoeplusd.8)
            require "$page" "environment variables, files and signals" PPPOEPLUS_CONF PPPOEPLUS_LOG PPPOEPLUS_ROOT \
                /etc/pppoeplus.conf /run/pppoeplus pppoeplusd.pid SIGTERM SIGINT SIGQUIT SIGHUP \
                CAP_NET_RAW CAP_NET_ADMIN CAP_CHOWN
            ;;
    esac
done

if [ $failures -ne 0 ]; then
    echo "$failures man page check(s) failed"
    exit 1
fi
echo "every man page check passed"
