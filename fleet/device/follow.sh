# Prints how far the update is, a line NAME=VALUE each, and the end of its log once it has ended.
PATH=/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
say() { printf '%s=%s\n' "$1" "$2"; }

for name in url token status; do
    if [ -e /tmp/rovu-fleet/$name ]; then say "run_$name" "$(cat /tmp/rovu-fleet/$name)"; fi
done
sed -n -e 's/^"STATE":"\(.*\)",$/state=\1/p' -e 's/^"DL_ATTEMPTS":"\(.*\)",$/attempts=\1/p' \
    -e 's/^"DL_PERCENT":"\(.*\)",$/percent=\1/p' /tmp/rovu.progress 2>&-
if [ -e /tmp/rovu-fleet/status ]; then
    tail -n 20 /tmp/rovu-fleet/log | sed 's/^/log=/'
fi
