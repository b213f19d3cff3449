# The same with U-Boot's own count of starts, for a U-Boot with CONFIG_BOOTCOUNT_LIMIT and CONFIG_BOOTCOUNT_ENV.
#
# While `upgrade_available` is 1, U-Boot increments `bootcount` at each start and stores it; once it exceeds
# `bootlimit`, U-Boot runs `altbootcmd` in place of `bootcmd`. A script of every update sets `bootcount` to 0 and then
# `upgrade_available` to 1; the confirmation sets `upgrade_available` to 0. `good` and `boot_set` are as in counter.cmd.
setenv bootlimit 3
setenv bootcmd 'run boot_set; reset'
setenv altbootcmd 'if test -n "$good"; then setenv bootswitcher $good; fi; setenv upgrade_available 0; setenv bootcount 0; saveenv; run boot_set; reset'
setenv good $bootswitcher
saveenv
