# bash completion for tavctl. Verbs, options and operations are asked of tavctl itself.

_tavctl() {
    local cur prev words cword
    _init_completion -n : || return
    local verb=${words[1]}
    if ((cword == 1)); then
        mapfile -t COMPREPLY < <(compgen -W "--help --version $("$1" --help 2>/dev/null |
            awk 'tolower($0) == "subcommands:" { on = 1; next } /^$/ { on = 0 } on { print $1 }')" -- "$cur")
        return
    fi
    case $prev in
        --protocol) mapfile -t COMPREPLY < <(compgen -W "binary compact json" -- "$cur") ;;
        --transport) mapfile -t COMPREPLY < <(compgen -W "buffered framed" -- "$cur") ;;
        --format) mapfile -t COMPREPLY < <(compgen -W "auto raw hex capture" -- "$cur") ;;
        --ca | --cert | --key | --credential-file | --write) _filedir ;;
        --run) _tavctl_operations "$1" TavEmp. ;;
        *)
            if [[ $cur == -* ]]; then
                mapfile -t COMPREPLY < <(compgen -W "$("$1" "$verb" --help 2>/dev/null |
                    grep -o -- '--[a-z-]*' | sort -u)" -- "$cur")
            elif [[ $verb == call && $cword -eq 3 || $verb == describe ]]; then
                _tavctl_operations "$1" ""
            elif [[ $verb == serve && $cword -eq 2 ]]; then
                mapfile -t COMPREPLY < <(compgen -W "broker emp event" -- "$cur")
            elif [[ $verb == decode ]]; then
                _filedir
            fi
            ;;
    esac
}

# The operations of a service, whose name is left out; of all, with their names, if it is empty.
_tavctl_operations() {
    mapfile -t COMPREPLY < <(compgen -W "$("$1" describe --quiet 2>/dev/null |
        sed -n "s/^$2//p")" -- "$cur")
}

complete -F _tavctl tavctl
