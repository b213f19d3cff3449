# Completion for bash. Loaded by bash-completion when rovu-pack is completed for the first time.

_rovu_pack() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]} options=
    COMPREPLY=()
    if [[ $COMP_CWORD -eq 1 ]]; then
        mapfile -t COMPREPLY < <(compgen -W 'keygen secret build sign attach check rehearse inspect --help --version' -- "$current")
        return
    fi
    # bash makes three words of "--option=value".
    if [[ $current == = ]]; then
        current=
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    if [[ ${COMP_WORDS[*]:COMP_CWORD - 1:2} == *=* && $previous != --* ]]; then
        return # inside the value of --device
    fi
    case $previous in
    --out | --files)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
        ;;
    --key-pass)
        compopt -o nospace
        mapfile -t COMPREPLY < <(compgen -W 'file: fd: env:' -- "$current")
        return
        ;;
    --base-url | --set | --model | --kernel | --rootfs) return ;;
    --device)
        compopt -o nospace
        mapfile -t COMPREPLY < <(compgen -W 'model=' -- "$current")
        return
        ;;
    esac
    case $command in
    build) options='--out --key --key-pass --unsigned --base-url --secrets --set --follow-links --force --json --help' ;;
    sign) options='--key --key-pass --digest --help' ;;
    attach) options='--pub --help' ;;
    inspect) options='--pub --json --help' ;;
    check)
        options='--pub --unsigned --files --secrets --model --kernel --rootfs --device --fetch --verbose --strict --json --help'
        ;;
    rehearse)
        options='--pub --unsigned --files --secrets --model --kernel --rootfs --device --rovu --health --script-limit --host-tools --help'
        ;;
    *) options='--help' ;;
    esac
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
        return
    fi
    compopt -o filenames
    if [[ $command == keygen ]]; then
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}
complete -F _rovu_pack rovu-pack
