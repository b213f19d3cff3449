# Prints how far the update is, a line NAME=VALUE each, and the end of its log, which a restart removes.
# Follows run.sh: an update that had not ended there may be in a later state here, and not the other way round.

sed -n -e 's/^"STATE":"\(.*\)",$/state=\1/p' -e 's/^"DL_ATTEMPTS":"\(.*\)",$/attempts=\1/p' \
    -e 's/^"DL_PERCENT":"\(.*\)",$/percent=\1/p' /tmp/rovu.progress 2>&-
tail -n 20 /tmp/rovu-fleet/log 2>&- | sed 's/^/log=/'
