# bash completion for tavctl. Verbs, options, operations and their keys are asked of tavctl itself.

_tavctl() {
    local cur prev words cword
    _init_completion -n := || return
    local program=$1 verb=${words[1]} choices="auto raw hex capture pcap"
    local -A services=([broker]=TavBroker [emp]=TavEmp [event]=TavEmpEvent)
    if ((cword == 1)); then
        _tavctl_offer "--help --version $("$program" --help 2>/dev/null |
            awk 'tolower($0) == "subcommands:" { on = 1; next } /^$/ { on = 0 } on { print $1 }')"
        return
    fi
    case $prev in
        --protocol) _tavctl_offer "binary compact json" ;;
        --transport) _tavctl_offer "buffered framed" ;;
        --format)
            [[ $verb == encode ]] && choices="raw hex"
            _tavctl_offer "$choices" ;;
        --ca | --cert | --key | --credential-file | --write) _filedir ;;
        --run) _tavctl_offer "$(_tavctl_operations TavEmp)" ;;
        --reply | --fail | --delay)
            _tavctl_offer "$(_tavctl_operations "${services[${words[2]}]-none}" | sed 's/$/=/')" ;;
        *)
            if [[ $cur == -* ]]; then
                _tavctl_offer "$("$program" "$verb" --help 2>/dev/null |
                    grep -o -- '--[a-z-]*' | sort -u)"
            elif [[ $verb == @(call|bench|encode|open) ]]; then
                _tavctl_call
            elif [[ $verb == describe ]]; then
                _tavctl_offer "$("$program" describe --quiet 2>/dev/null)"
            elif [[ $verb == serve && $cword -eq 2 ]]; then
                _tavctl_offer "${!services[*]}"
            elif [[ $verb == decode ]]; then
                _filedir
            fi
            ;;
    esac
}

_tavctl_offer() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$cur")
    if [[ ${COMPREPLY[0]-} == *= ]]; then
        compopt -o nospace 2>/dev/null
    fi
}

# The operations of a service, without its name.
_tavctl_operations() {
    "$program" describe --quiet 2>/dev/null | sed -n "s/^$1[.]//p"
}

# An operation, or the keys of that which stands there already.
_tavctl_call() {
    local operations word operation=
    operations=" $("$program" describe --quiet 2>/dev/null | tr '\n' ' ') $(_tavctl_operations '[A-Za-z]*' | tr '\n' ' ') "
    for word in "${words[@]:2:cword-2}"; do
        if [[ $word == --run ]]; then
            operation=
        elif [[ $operations == *" $word "* ]]; then
            operation=$word
        fi
    done
    if [[ -z $operation ]]; then
        [[ $verb == open ]] || _tavctl_offer "$("$program" describe --quiet 2>/dev/null)"
        return
    fi
    [[ $verb == open ]] && operation=TavEmp.$operation
    # Fields of a record are written as RECORD.FIELD=. A credential is not written here.
    _tavctl_offer "$("$program" describe 2>/dev/null | awk -v wanted="$operation" '
        /^[^ ]/ { part = $1; sub(/[:,]$/, "", part) }
        /^ / { fields[part] = fields[part] " " $2; type[part, $2] = $3
               if (part == wanted || part ~ "[.]" wanted "$") found = part }
        END {
            count = split(fields[found], names)
            for (i = 1; i <= count; ++i) {
                inner = split(fields[type[found, names[i]]], parts)
                for (j = 1; j <= inner; ++j) print names[i] "." parts[j] "="
                if (inner == 0 && names[i] != "credential") print names[i] "="
            }
        }')"
}

complete -F _tavctl tavctl
