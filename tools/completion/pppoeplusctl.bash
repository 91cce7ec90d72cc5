# bash completion for pppoeplusctl                        -*- shell-script -*-
#
# Completes the commands and their subcommands, the options, the names of
# the settings and counters, the words a setting takes, the diagnostic
# functions and events, and interface names (/sys/class/net).
#
# The vocabulary is not written down here: it is read from the tool's own
# help (pppoeplusctl --help, help names, help if, help shell, help event, help config) the
# first time it is needed, and kept for the shell session, per tool, so that
# the completion always offers what the installed tool takes.

# Reads the tool's help and prints its vocabulary, one item a line:
#   cmd WORD | opt WORD [ARG] | topic WORD | gname NAME ACCESS |
#   iname NAME ACCESS | gval NAME WORD... | ival NAME WORD... |
#   ifword WORD | ifsub WORD | func NAME [ARG...] | event NAME [ARG...] | config NAME [ARG...]
# ACCESS is get, set or getset.
_pppoeplusctl_parse()
{
    local tool=$1
    {
        echo '@@main';  LC_ALL=C "$tool" --help 2>/dev/null
        echo '@@names'; LC_ALL=C "$tool" help names 2>/dev/null
        echo '@@if';    LC_ALL=C "$tool" help if 2>/dev/null
        echo '@@shell'; LC_ALL=C "$tool" help shell 2>/dev/null
        echo '@@event'; LC_ALL=C "$tool" help event 2>/dev/null
        echo '@@config'; LC_ALL=C "$tool" help config 2>/dev/null
    } | awk '
        function flushvalues(   text, n, i, w, words, out) {
            if (vname == "") return
            text = vtext
            sub(/\(.*/, "", text)              # explanations in brackets
            n = split(text, words, /[ ,]+/)
            out = ""
            for (i = 1; i <= n; i++) {
                w = words[i]
                if (w !~ /^[a-z][a-z0-9+-]*$/ || w in stop) continue
                out = out " " w
            }
            if (out != "") print vkind "val " vname out
            vname = ""; vtext = ""
        }
        BEGIN {
            split("or and a an number numbers joined by commas anything also", s, " ")
            for (i in s) stop[s[i]] = 1
        }
        /^@@/ { flushvalues(); sect = substr($0, 3); part = ""; usage = 0; next }

        # Sections of the usage: "Commands:", "Options (before the command):".
        sect == "main" && /^[A-Z][a-z]*[ :]/ { part = $1; sub(/:$/, "", part); next }
        sect == "main" && /^$/ { part = ""; next }
        sect == "main" && part == "Commands" && /^  [a-z]/ {
            if (!($1 in seen)) { seen[$1] = 1; print "cmd " $1 }
            if ($0 ~ /topic:/) { topics = $0; sub(/.*topic:/, "", topics); intopic = 1 }
            else intopic = 0
            next
        }
        sect == "main" && part == "Commands" && intopic && /^    / { topics = topics " " $0; next }
        sect == "main" && part == "Options" && /^  -/ {
            n = 0; arg = ""
            for (i = 1; i <= NF && $i ~ /^-/; i++) { o = $i; sub(/,$/, "", o); opts[++n] = o }
            if (i <= NF && $i ~ /^[A-Z]+$/) arg = $i
            for (j = 1; j <= n; j++) print "opt " opts[j] (arg != "" ? " " arg : "")
            next
        }

        sect == "names" && /^Global/ { flushvalues(); kind = "g"; next }
        sect == "names" && /^Interface/ { flushvalues(); kind = "i"; next }
        sect == "names" && kind != "" && /^ +[0-9]+  +[a-z]/ {
            flushvalues()
            access = ""
            if ($0 ~ /\(get/) access = "get"
            if ($0 ~ /set[ ,)]/ || $0 ~ /set only/) access = access "set"
            print kind "name " $2 " " access
            cur = $2
            next
        }
        sect == "names" && kind != "" && /^ +values:/ {
            vname = cur; vkind = kind; vtext = $0; sub(/^ +values:/, "", vtext); next
        }
        sect == "names" && vname != "" && /^ {6,}[^ ]/ { vtext = vtext " " $0; next }
        sect == "names" { flushvalues(); next }

        # The usage lines of a topic: from "Usage:" to the first blank line.
        /^Usage:/ { usage = 1 }
        /^$/ { usage = 0 }

        sect == "if" && usage && /pppoeplusctl/ {
            for (i = 1; i < NF; i++) if ($i == "if") break
            if ($(i + 1) ~ /^[A-Z]+$/) { if ($(i + 2) != "") print "ifsub " $(i + 2) }
            else if ($(i + 1) != "") print "ifword " $(i + 1)
            next
        }

        sect == "shell" && /^[A-Z][a-z]*:$/ { part = $1; next }
        sect == "shell" && /^$/ { part = ""; next }
        sect == "shell" && part == "Functions:" && /^  [A-Za-z]/ {
            args = ""; names = ""
            for (i = 1; i <= NF && $i ~ /,$/; i++) { f = $i; sub(/,$/, "", f); names = names " " f }
            names = names " " $i
            for (i++; i <= NF && $i ~ /^([A-Z]+|[0-9|]+)$/; i++) args = args " " $i
            n = split(names, fl, " ")
            for (j = 1; j <= n; j++) print "func " fl[j] args
            next
        }

        sect == "config" && usage && /pppoeplusctl/ {
            for (i = 1; i < NF; i++) if ($i == "config") break
            line = "config " $(i + 1)
            for (j = i + 2; j <= NF; j++) line = line " " $j
            print line
            next
        }
        sect == "event" && usage && /pppoeplusctl/ {
            for (i = 1; i < NF; i++) if ($i == "event") break
            line = "event " $(i + 1)
            for (j = i + 2; j <= NF; j++) line = line " " $j
            print line
            next
        }
        END {
            flushvalues()
            n = split(topics, t, /[ ,]+/)
            for (i = 1; i <= n; i++) if (t[i] ~ /^[a-z]+$/) print "topic " t[i]
        }'
}

# Loads the vocabulary of tool $1 into the _pppoeplusctl_* variables, once
# per tool.
_pppoeplusctl_load()
{
    local tool=$1
    [[ ${_pppoeplusctl_tool-} == "$tool" ]] && return 0
    _pppoeplusctl_commands= _pppoeplusctl_options= _pppoeplusctl_topics=
    _pppoeplusctl_gget= _pppoeplusctl_gset= _pppoeplusctl_iget= _pppoeplusctl_iset=
    _pppoeplusctl_ifwords= _pppoeplusctl_ifsubs= _pppoeplusctl_funcs= _pppoeplusctl_events=
    _pppoeplusctl_configs=
    unset _pppoeplusctl_optarg _pppoeplusctl_values _pppoeplusctl_args
    declare -gA _pppoeplusctl_optarg=() _pppoeplusctl_values=() _pppoeplusctl_args=()
    local kind name rest
    while read -r kind name rest; do
        case $kind in
            cmd) _pppoeplusctl_commands+=" $name" ;;
            opt) _pppoeplusctl_options+=" $name"
                 [[ -n $rest ]] && _pppoeplusctl_optarg[$name]=$rest ;;
            topic) _pppoeplusctl_topics+=" $name" ;;
            gname) [[ $rest == *get* ]] && _pppoeplusctl_gget+=" $name"
                   [[ $rest == *set* ]] && _pppoeplusctl_gset+=" $name" ;;
            iname) [[ $rest == *get* ]] && _pppoeplusctl_iget+=" $name"
                   [[ $rest == *set* ]] && _pppoeplusctl_iset+=" $name" ;;
            gval|ival) _pppoeplusctl_values[${kind:0:1}:$name]=$rest ;;
            ifword) _pppoeplusctl_ifwords+=" $name" ;;
            ifsub) _pppoeplusctl_ifsubs+=" $name" ;;
            func) _pppoeplusctl_funcs+=" $name"; _pppoeplusctl_args[f:$name]=$rest ;;
            event) _pppoeplusctl_events+=" $name"; _pppoeplusctl_args[e:$name]=$rest ;;
            config) _pppoeplusctl_configs+=" $name"; _pppoeplusctl_args[c:$name]=$rest ;;
        esac
    done < <(_pppoeplusctl_parse "$tool")
    [[ -n $_pppoeplusctl_commands ]] || return 1
    _pppoeplusctl_tool=$tool
}

# Interface names of this network namespace.
_pppoeplusctl_interfaces()
{
    local d names=
    for d in /sys/class/net/*; do
        [[ -e $d ]] && names+=" ${d##*/}"
    done
    printf '%s' "$names"
}

# Completes word $2 (0-based position among the command's arguments $3...)
# of a function or event whose arguments are described by $1 (IF: an
# interface).
_pppoeplusctl_arg()
{
    local -a spec=($1)
    local pos=$2 cur=$3
    [[ ${spec[pos]-} == IF ]] && COMPREPLY=($(compgen -W "$(_pppoeplusctl_interfaces)" -- "$cur"))
}

_pppoeplusctl()
{
    local cur=${COMP_WORDS[COMP_CWORD]}
    local tool=${COMP_WORDS[0]}
    COMPREPLY=()
    if [[ $tool != */* ]]; then
        tool=$(type -P -- "$tool") || return 0
    fi
    [[ -x $tool ]] || return 0
    _pppoeplusctl_load "$tool" || return 0

    # The words before the cursor: options (with their arguments) and the
    # command's words.
    local -a args=()
    local i w want=
    for ((i = 1; i < COMP_CWORD; i++)); do
        w=${COMP_WORDS[i]}
        if [[ -n $want ]]; then
            want=
        elif [[ ${#args[@]} -eq 0 && $w == -* ]]; then
            [[ $w != *=* && -n ${_pppoeplusctl_optarg[$w]-} ]] && want=$w
        else
            args+=("$w")
        fi
    done

    # The argument of an option.
    if [[ -n $want ]]; then
        case ${_pppoeplusctl_optarg[$want]} in
            DIR) compopt -o filenames 2>/dev/null; COMPREPLY=($(compgen -d -- "$cur")) ;;
            PATH) compopt -o filenames 2>/dev/null; COMPREPLY=($(compgen -f -- "$cur")) ;;
        esac
        return 0
    fi

    if [[ ${#args[@]} -eq 0 ]]; then
        if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W "$_pppoeplusctl_options" -- "$cur"))
        else
            COMPREPLY=($(compgen -W "$_pppoeplusctl_commands" -- "$cur"))
        fi
        return 0
    fi
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "--help" -- "$cur"))
        return 0
    fi

    local n=${#args[@]} cmd=${args[0]} words=
    case $cmd in
        get)
            ((n == 1)) && words=$_pppoeplusctl_gget ;;
        set|sync)
            if ((n == 1)); then words=$_pppoeplusctl_gset
            elif ((n == 2)); then words=${_pppoeplusctl_values[g:${args[1],,}]-}
            fi ;;
        help)
            ((n == 1)) && words=$_pppoeplusctl_topics ;;
        if)
            if ((n == 1)); then
                words="$_pppoeplusctl_ifwords $(_pppoeplusctl_interfaces)"
            elif ((n == 2)); then
                [[ " $_pppoeplusctl_ifwords " == *" ${args[1]} "* ]] || words=$_pppoeplusctl_ifsubs
            elif ((n == 3)); then
                case ${args[2]} in
                    get) words=$_pppoeplusctl_iget ;;
                    set|sync) words=$_pppoeplusctl_iset ;;
                esac
            elif ((n == 4)); then
                case ${args[2]} in
                    set|sync) words=${_pppoeplusctl_values[i:${args[3],,}]-} ;;
                esac
            fi ;;
        shell)
            if ((n == 1)); then words=$_pppoeplusctl_funcs
            else _pppoeplusctl_arg "${_pppoeplusctl_args[f:${args[1]}]-}" $((n - 2)) "$cur"; return 0
            fi ;;
        config)
            if ((n == 1)); then words=$_pppoeplusctl_configs
            elif ((n == 2)) && [[ ${_pppoeplusctl_args[c:${args[1]}]-} == *FILE* ]]; then
                COMPREPLY=($(compgen -f -- "$cur"))
                return 0
            fi ;;
        event)
            if ((n == 1)); then words=$_pppoeplusctl_events
            else _pppoeplusctl_arg "${_pppoeplusctl_args[e:${args[1]}]-}" $((n - 2)) "$cur"; return 0
            fi ;;
    esac
    [[ -n $words ]] && COMPREPLY=($(compgen -W "$words" -- "$cur"))
    return 0
}

complete -F _pppoeplusctl pppoeplusctl
