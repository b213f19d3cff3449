# Runs before the overlay is copied. The copy fails if the overlay changes meanwhile, and lacks what is only in memory.
# If the update fails afterwards, the service stays stopped until the device restarts.
set -eu
if [ -x /etc/init.d/recorder ]; then /etc/init.d/recorder stop; fi
sync
