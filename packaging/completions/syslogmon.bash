# bash completion for syslogmon(1). Commands, options and values are read from the program's own --help, so
# they are always those of the program that is installed.

# The names in a section of a help text, one a line: the first word of each entry.
_syslogmon_section() {
    sed -n "/^$1:/,/^\$/s/^  \([^ ][^ ]*\).*/\1/p"
}

# The values that an option or argument accepts, when the help names them: "--type TEXT:{sz,dword}".
_syslogmon_choices() {
    sed -n "s/^  \(.*,\)\{0,1\}$1 [^ ]*{\([^}]*\)}.*/\2/p" | tr , ' '
}

_syslogmon_takes_value() {
    grep -qE "^  ([^ ]*,)?$1(,[^ ]*)? [A-Z]"
}

# What may stand for an argument of that name; nothing when it cannot be known.
_syslogmon_values() {
    local name=$1 verb=$2 before=$3
    case $verb:$name in
        event*:source) "${program[@]}" event list 2>/dev/null | cut -f 1 | sort -u ;;
        event*:id) "${program[@]}" event list 2>/dev/null | awk -F '\t' -v s="$before" '$1 == s { print $2 }' ;;
        "input add:kind") printf '%s\n' files journal ;;
        "input add:name") ;; # a new one
        input*:name) "${program[@]}" input list 2>/dev/null | cut -f 1 ;;
        "sink add:kind") sed -n 's/^  \([a-z]*\): .*/\1/p' <<<"$help" ;;
        "sink add:name") ;; # a new one
        sink*:name) "${program[@]}" sink list 2>/dev/null | cut -f 1 ;;
        get:setting | set:setting) "${program[@]}" get 2>/dev/null | cut -f 1 ;;
        set:value)
            case $before in
                fault-tolerant) echo on off default ;;
                trace-level) echo detail error system notable off default ;;
                customer-file | file-monitor) compgen -f -- "$word" ;;
                *) echo default ;;
            esac
            ;;
        "trace level:level") echo detail error system notable off ;;
    esac
}

_syslogmon() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local program=("$1") verb=() arguments=() help top i subcommands last=
    top=$("$1" --help 2>/dev/null) || return
    help=$top
    subcommands=$(_syslogmon_section Subcommands <<<"$help")
    # What stands before the cursor: the words of the command, then its arguments.
    for ((i = 1; i < COMP_CWORD; i++)); do
        local w=${COMP_WORDS[i]}
        case $w in
            --root)
                program+=(--root "${COMP_WORDS[++i]-}")
                continue
                ;;
            -*)
                if _syslogmon_takes_value "$w" <<<"$help"; then ((++i)); fi
                continue
                ;;
        esac
        if [ -n "$subcommands" ] && grep -qxF -- "$w" <<<"$subcommands"; then
            verb+=("$w")
            help=$("$1" "${verb[@]}" --help 2>/dev/null) || return
            subcommands=$(_syslogmon_section Subcommands <<<"$help")
        else
            arguments+=("$w")
            last=$w
        fi
    done

    local candidates
    if [ "$previous" = --root ]; then
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
        return
    elif [[ $previous == -* ]] && _syslogmon_takes_value "$previous" <<<"$help"; then
        candidates=$(_syslogmon_choices "$previous" <<<"$help")
    elif [[ $word == -* ]]; then
        candidates=$( (_syslogmon_section Options <<<"$help" && _syslogmon_section Options <<<"$top") | tr , '\n')
    elif [ -n "$subcommands" ]; then
        candidates=$subcommands
    else
        local names name
        mapfile -t names < <(_syslogmon_section Positionals <<<"$help")
        name=${names[${#arguments[@]}]-}
        [ -n "$name" ] || return
        case $name in
            file | files | FILE)
                mapfile -t COMPREPLY < <(compgen -f -- "$word")
                return
                ;;
        esac
        candidates=$(_syslogmon_choices "$name" <<<"$help")
        [ -n "$candidates" ] || candidates=$(_syslogmon_values "$name" "${verb[*]}" "$last")
    fi
    mapfile -t COMPREPLY < <(compgen -W "$candidates" -- "$word")
}
complete -F _syslogmon syslogmon

_syslogmond() {
    local word=${COMP_WORDS[COMP_CWORD]}
    if [ "${COMP_WORDS[COMP_CWORD - 1]}" = --root ]; then
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -W "$("$1" --help 2>/dev/null | _syslogmon_section Options | tr , ' ')" -- "$word")
    fi
}
complete -F _syslogmond syslogmond
