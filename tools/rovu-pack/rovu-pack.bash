# Completion for bash. Loaded by bash-completion when rovu-pack is completed for the first time.

_rovu_pack() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]} options=
    COMPREPLY=()
    if [[ $COMP_CWORD -eq 1 ]]; then
        mapfile -t COMPREPLY < <(compgen -W 'keygen secret build sign --help --version' -- "$current")
        return
    fi
    case $previous in
    --out)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
        ;;
    --base-url) return ;;
    esac
    case $command in
    build) options='--out --key --base-url --secrets --help' ;;
    sign) options='--key --help' ;;
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
