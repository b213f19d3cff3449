# Prints how far the update is, a line NAME=VALUE each, and the end of its log, which a restart removes.
# What tell_run says comes first: an update that had not ended there may be in a later state here, and not the other way round.

tell_run
sed -n -e 's/^"STATE":"\(.*\)",$/state=\1/p' -e 's/^"DL_PERCENT":"\(.*\)",$/percent=\1/p' /tmp/rovu.progress 2>/dev/null | few
# After the state, which tells whether it is whole.
spec=$(md5sum /tmp/rovu/rovu.lua 2>/dev/null)
say spec "${spec%% *}"
# A script may print megabytes on one line.
if [ -n "$run" ]; then tail -n 20 "$run/log" 2>/dev/null | cut -c 1-500 | sed 's/^/log=/'; fi
