# Prints how far the update is, a line NAME=VALUE each, and the end of its log, which a restart removes.
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
sed -n -e 's/^"STATE":"\(.*\)",$/state=\1/p' -e 's/^"DL_ATTEMPTS":"\(.*\)",$/attempts=\1/p' \
    -e 's/^"DL_PERCENT":"\(.*\)",$/percent=\1/p' /tmp/rovu.progress 2>&-
tail -n 20 /tmp/rovu-fleet/log 2>&- | sed 's/^/log=/'
