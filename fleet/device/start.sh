# Starts the update, detached from the link. $URL, $TOKEN, $PROGRAM, $OPTIONS and $CLEAR are set before.
PATH=/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
run=/tmp/rovu-fleet

# The link may have been lost after an earlier start: the token tells that it came through.
if [ "$(cat $run/token 2>&-)" = "$TOKEN" ]; then echo started=before; exit 0; fi
if [ -n "$CLEAR" ]; then rm -rf /tmp/rovu; fi
rm -rf $run
mkdir -m 700 $run || exit 1
printf '%s\n' "$URL" >$run/url
printf '%s\n' "$TOKEN" >$run/token
rm -f /tmp/rovu.progress
(
    # The end of the link's session must not end the update.
    trap '' HUP
    status=0
    # shellcheck disable=SC2086 # OPTIONS are words
    env -i PATH="$PATH" HOME=/ "$PROGRAM" $OPTIONS "$URL" >$run/log 2>&1 </dev/null || status=$?
    echo $status >$run/status
) >/dev/null 2>&1 </dev/null &
echo started=now
