# Lets the boot loader start set $SET, and restarts the device.

# The link may have been lost after an earlier switch, and the device may be back.
case "$(cat /proc/cmdline)" in *"k${SET}_root"*) echo switched=before; exit 0 ;; esac
# An update that has started since the look writes the very set.
if cat /proc/[0-9]*/comm 2>&- | grep -qx rovu; then echo switched=busy; exit 0; fi
# The end of the link's session must not keep it from restarting.
trap '' HUP
fw_setenv bootswitcher "0A0A0$SET" || exit 1
case "$(fw_printenv bootswitcher)" in *"0A0A0$SET") ;; *) exit 1 ;; esac
echo switched=yes
# The answer gets through first.
(sleep 1; reboot) >/dev/null 2>&1 </dev/null &
