# Starts the update, detached from the link. $URL, $DIGEST, $TOKEN, $PROGRAM, $OPTIONS, $CLEAR, and the token $BEFORE
# that the device was seen to hold are set before.

if [ -z "$run" ]; then echo started=unsafe; exit 0; fi
# The end of the link's session must end neither this script nor the update.
trap '' HUP
# One operator at a time. Nobody holds this for seconds, but for one whose script was killed.
tries=0
until mkdir "$run.lock" 2>/dev/null || [ $tries -eq 10 ]; do
    tries=$((tries + 1))
    sleep 1
done
trap 'rmdir $run.lock' EXIT

# The link may have been lost after an earlier start: the token tells that it came through. Any other that has changed
# since is that of another operator, and a program that runs may have been started by hand.
held=$(tell_run | sed -n 's/^run_token=//p')
if [ "$held" = "$TOKEN" ]; then echo started=before; exit 0; fi
if [ "$held" != "$BEFORE" ] || cat /proc/[0-9]*/comm 2>/dev/null | grep -qx rovu; then echo started=other; exit 0; fi
if [ -n "$CLEAR" ]; then rm -rf /tmp/rovu; fi
rm -rf "$run.new"
mkdir -m 700 "$run.new" || exit 1
printf '%s\n' "$DIGEST" >"$run.new/digest" && printf '%s\n' "$boot" >"$run.new/boot" || exit 1
printf '%s\n' "$TOKEN" >"$run.new/token" || exit 1
rm -rf "$run"
mv "$run.new" "$run"
rm -f /tmp/rovu.progress
(
    status=0
    # shellcheck disable=SC2086 # OPTIONS are words
    env -i PATH="$PATH" HOME=/ "$PROGRAM" $OPTIONS "$URL" >"$run/log" 2>&1 </dev/null || status=$?
    echo $status >"$run/status.new"
    mv "$run/status.new" "$run/status"
) >/dev/null 2>&1 </dev/null &
echo $! >"$run/process"
echo started=now
