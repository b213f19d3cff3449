# The first preparation script of every update, if the boot loader falls back: an update from a set that is not
# confirmed would write over the one to return to. See docs/going-back.md.
good=$(fw_printenv -n good)
test "$good" = "$(fw_printenv -n bootswitcher)" || { echo "the running set is not confirmed yet"; exit 1; }
