# Prints which update was started and whether it has ended, a line NAME=VALUE each. Comes before look.sh and follow.sh.
PATH=/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
say() { printf '%s=%s\n' "$1" "$2"; }

# The shell that waits for the update tells its status, unless it was killed. Asked for first: it may end meanwhile.
process=$(cat /tmp/rovu-fleet/process 2>&-)
if [ -n "$process" ] && ! kill -0 "$process" 2>&- && ! cat /proc/[0-9]*/comm 2>&- | grep -qx rovu
then dead=yes
else dead=
fi
for name in url token status; do
    if [ -e /tmp/rovu-fleet/$name ]; then say "run_$name" "$(cat /tmp/rovu-fleet/$name)"; fi
done
if [ -n "$dead" ] && [ ! -e /tmp/rovu-fleet/status ]; then say run_dead yes; fi
