#!/usr/bin/env bash
# The bash completion of pppoeplusctl, driven the way bash drives it
# (COMP_WORDS, COMP_CWORD), against the tool that was built.
#
#   completion_test.sh COMPLETION-SCRIPT PPPOEPLUSCTL
set -uo pipefail
script=$1
tool=$2
failures=0

# shellcheck source=/dev/null
source "$script" || { echo "FAIL: cannot source $script"; exit 1; }
complete -p pppoeplusctl >/dev/null 2>&1 || { echo "FAIL: no completion registered for pppoeplusctl"; exit 1; }

# What the completion offers for a command line; a line ending in a blank
# completes a new, empty word. Prints the offers sorted, one line.
offers() {
    local line=$1
    read -r -a COMP_WORDS <<<"$line"
    [[ $line == *' ' ]] && COMP_WORDS+=('')
    COMP_WORDS[0]=$tool
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMP_LINE=$line
    COMP_POINT=${#line}
    COMPREPLY=()
    _pppoeplusctl pppoeplusctl "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
    printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort | tr '\n' ' ' | sed 's/ $//'
}

# expect LINE WORDS: the offers are exactly WORDS (sorted).
expect() {
    local got
    got=$(offers "$1")
    if [[ $got != "$2" ]]; then
        echo "FAIL: '$1' offers [$got], expected [$2]"
        failures=$((failures + 1))
    else
        echo "ok:   '$1' -> [$got]"
    fi
}

# expect_has LINE WORD...: the offers include every WORD.
expect_has() {
    local line=$1 got w
    shift
    got=" $(offers "$line") "
    for w in "$@"; do
        if [[ $got != *" $w "* ]]; then
            echo "FAIL: '$line' offers [${got:1:-1}], expected it to include '$w'"
            failures=$((failures + 1))
            return
        fi
    done
    echo "ok:   '$line' includes $*"
}

# expect_lacks LINE WORD...: the offers include none of the WORDs.
expect_lacks() {
    local line=$1 got w
    shift
    got=" $(offers "$line") "
    for w in "$@"; do
        if [[ $got == *" $w "* ]]; then
            echo "FAIL: '$line' offers '$w', which it should not"
            failures=$((failures + 1))
            return
        fi
    done
    echo "ok:   '$line' lacks $*"
}

# Commands and options.
expect 'pppoeplusctl se' 'set'
expect 'pppoeplusctl ' 'config event get help if metrics set shell sync'
expect 'pppoeplusctl --js' '--json'
expect_has 'pppoeplusctl -' --json --root --socket --shell-socket --event-socket --timeout --help --version
expect 'pppoeplusctl --json s' 'set shell sync'
expect 'pppoeplusctl --timeout 5 --root /tmp g' 'get'
expect 'pppoeplusctl help ' 'config event get if metrics names results set shell sync'
expect 'pppoeplusctl config ' 'check reload save show'

# Global names and their values.
expect 'pppoeplusctl set pol' 'police-burst police-rate policy'
expect 'pppoeplusctl sync pol' 'police-burst police-rate policy'
expect 'pppoeplusctl set policy ' 'default drop keep replace'
expect 'pppoeplusctl set enable ' 'off on'
expect 'pppoeplusctl set circuit-id-type ' 'ascii default userdefine'
expect 'pppoeplusctl set debug ' 'all dump error none startup trace'
expect 'pppoeplusctl set vendor-id ' ''
expect 'pppoeplusctl set circuit-id-format ' ''
expect_has 'pppoeplusctl get ' version nsr-info policy circuit-id-format
expect_lacks 'pppoeplusctl set ' version nsr-info default-vendor-id all-port-enable
expect 'pppoeplusctl get pon-' 'pon-agg-if-enable pon-circuit-id-format pon-circuit-id-type'

# Interfaces, their subcommands, names and values.
expect_has 'pppoeplusctl if ' list lo
expect 'pppoeplusctl if l' 'list lo'
expect 'pppoeplusctl if lo ' 'clear counters get recover set sync'
expect 'pppoeplusctl if list ' ''
expect 'pppoeplusctl if lo set pol' 'police-burst police-rate policy'
expect 'pppoeplusctl if lo set trust ' 'off on'
expect 'pppoeplusctl if 1 sync ignore-pkt ' 'off on'
expect_has 'pppoeplusctl if lo get ' padi-rcv total-send trust
expect_has 'pppoeplusctl if lo set ' trust enable policy ignore-pkt stat-clear
expect_lacks 'pppoeplusctl if lo set ' padi-rcv total-send
expect_lacks 'pppoeplusctl if lo get ' stat-clear
expect 'pppoeplusctl --json if lo get padi' 'padi-rcv'

# Diagnostic functions, events, option arguments.
expect_has 'pppoeplusctl shell ' pppoeplusShow pppoeplusPonTest gTestOnuInfo
expect 'pppoeplusctl shell pppoeplusShow' 'pppoeplusShow'
expect_has 'pppoeplusctl shell pppoeplusPonTest ' lo
expect 'pppoeplusctl shell pppoeplusPonTest lo ' ''
expect 'pppoeplusctl event ' 'reset-port reset-proto'
expect_has 'pppoeplusctl event reset-port ' lo
expect 'pppoeplusctl event reset-proto ' ''
expect 'pppoeplusctl set --h' '--help'
tmp=$(mktemp -d)
mkdir "$tmp/rundir"
expect "pppoeplusctl --root $tmp/run" "$tmp/rundir"
expect "pppoeplusctl --timeout " ''
rm -rf "$tmp"

# The tool found on PATH by its plain name, as an operator types it.
PATH="$(dirname "$tool"):$PATH"
tool=pppoeplusctl
expect 'pppoeplusctl if lo set pol' 'police-burst police-rate policy'

if [[ $failures -ne 0 ]]; then
    echo "$failures completion check(s) failed"
    exit 1
fi
echo "every completion check passed"
