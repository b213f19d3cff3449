# Comes before every script. Prints which update was started and whether it has ended, a line NAME=VALUE each.
PATH=/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
# One line, and not more of it than a name needs: a value is what some program of the device printed.
say() { printf '%s=%.400s\n' "$1" "${2%%"$nl"*}"; }
few() { dd bs=1 count=300 2>/dev/null; }
nl='
'

# What is known of an update is in a folder of root's, where nobody else can put a link in its way. A restart empties it.
is_roots() {
    # shellcheck disable=SC2012,SC2046 # the words of one line
    set -- $(ls -ldn "$1/." 2>/dev/null)
    case "${1:-}" in d????-??-*) [ "$3" = 0 ] ;; *) return 1 ;; esac
}
run=
for base in /run /var/run; do
    if [ -z "$run" ] && is_roots "$base"; then run=$base/rovu-fleet; fi
done
if [ -z "$run" ]; then say folder none; fi
boot=$(cat /proc/sys/kernel/random/boot_id 2>/dev/null)

tell_run() {
    # Where /run outlives a restart, what it holds is not of this one.
    [ -n "$run" ] && [ "$(cat "$run/boot" 2>/dev/null)" = "$boot" ] || return 0
    # The shell that waits for the update tells its status, unless it was killed. Asked for first: it may end meanwhile.
    process=$(cat "$run/process" 2>/dev/null)
    if [ -n "$process" ] && ! kill -0 "$process" 2>/dev/null && ! cat /proc/[0-9]*/comm 2>/dev/null | grep -qx rovu
    then dead=yes
    else dead=
    fi
    for name in digest token status; do
        if [ -e "$run/$name" ]; then say "run_$name" "$(cat "$run/$name")"; fi
    done
    if [ -n "$dead" ] && [ ! -e "$run/status" ]; then say run_dead yes; fi
}
