# Completion for bash. Loaded by bash-completion when rovu-sim is completed for the first time.

_rovu_sim() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]} options= word
    COMPREPLY=()
    if [[ $COMP_CWORD -eq 1 ]]; then
        mapfile -t COMPREPLY < <(compgen -W 'init run restart show calls volume --help --version' -- "$current")
        return
    fi
    compopt -o filenames 2>/dev/null
    for word in "${COMP_WORDS[@]:2:COMP_CWORD - 2}"; do
        if [[ $word == -- ]]; then # the command that runs inside, and its arguments
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
        fi
    done
    case $previous in
    --model | --kernel | --rootfs | --lebs | --tmp | --fail | --limit | --setenv | --cmdline | --fail-syscall | --kill-at) return ;;
    --serve)
        compopt +o filenames -o nospace
        mapfile -t COMPREPLY < <(compgen -W 'http:// https://' -- "$current")
        return
        ;;
    esac
    case $command in
    init) options='--model --kernel --rootfs --lebs --tmp --root --host-tools --key --preshared --help' ;;
    run)
        options='--watch --log --no-wait --fail --until-reboot --bind --serve --network --limit --setenv --cmdline --fresh-log --fail-syscall
            --kill-at --count-syscalls --help'
        ;;
    calls) options='--last --clear --help' ;;
    volume)
        if [[ $COMP_CWORD -eq 2 && $current != -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W 'put get' -- "$current")
            return
        fi
        options='--help'
        ;;
    *) options='--help' ;;
    esac
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}
complete -F _rovu_sim rovu-sim
