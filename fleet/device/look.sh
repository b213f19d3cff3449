# Prints what the device is, a line NAME=VALUE each. Changes nothing.

tell_run
say model "$(/usr/local/bin/readplatform.sh model 2>/dev/null | few)"
say kernel "$(uname -r)"
say rootfs "$(/usr/local/bin/readplatform.sh rootfsrev 2>/dev/null | few)"
other=
case " $(cat /proc/cmdline)" in
*k0_root*) say active 0 && other=1 ;;
*k1_root*) say active 1 && other=0 ;;
esac
fw_printenv 2>/dev/null | grep -E '^(bootswitcher|good|bootcount|bootlimit|upgrade_available)=' | cut -c 1-400

# Room: in bytes, and in free and whole LEBs. What a work directory that nobody owns holds will be free.
stale=$(du -sk /tmp/rovu 2>&- | sed 's/[^0-9].*//')
room=$(df -kP /tmp | tail -n 1)
# shellcheck disable=SC2086 # its words
set -- $room
if [ -n "${4:-}" ]; then say tmp $((($4 + ${stale:-0}) * 1024)); fi
info=$(ubinfo /dev/ubi0 2>&-)
# What is free for new volumes: those of the other set are removed first.
free=$(echo "$info" | sed -n 's/^Amount of available logical eraseblocks: *\([0-9]*\).*/\1/p')
for name in "k$other" "k${other}_root"; do
    volume=$(ubinfo /dev/ubi0 -N "$name" 2>&- | sed -n 's/^Size: *\([0-9]*\) LEBs.*/\1/p')
    if [ -n "$free" ] && [ -n "$volume" ]; then free=$((free + volume)); fi
done
say free_lebs "$free"
say leb_size "$(echo "$info" | sed -n 's/^Logical eraseblock size: *\([0-9]*\).*/\1/p')"

# The reference files: what each volume should hold.
one=/app0/.ubiRefChk1 two=/app0/.ubiRefChk2
if [ ! -e $one ] || [ ! -e $two ]; then say references missing
elif [ "$(cat $one)" = "$(cat $two)" ]; then say references agree
else say references differ
fi
sed -n 's/^\([0-9a-f]\{32\}\)[ \t]\{1,\}\(k[01][a-z_]*\)$/reference.\2=\1/p' $one 2>/dev/null | head -n 12

# An update: that of another fleet run, or one that was started by hand.
for process in /proc/[0-9]*; do
    name=
    read -r name 2>&- <"$process/comm"
    case "$name" in
    rovu | ubiupdatevol | ubimkvol | ubirmvol) say alive "$name" ;;
    sh) case "$(tr '\0' ' ' 2>&- <"$process/cmdline")" in *sh\ /tmp/rovu/*) say alive "a script of the update" ;; esac ;;
    esac
done
if [ -d /tmp/rovu ]; then say work_directory yes; fi
