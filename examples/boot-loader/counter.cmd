# A boot loader that falls back by itself: commands for U-Boot's prompt. In the board's default environment: the values
# of `give_up`, `count` and `bootcmd`, and `good` set in the factory.
#
# A set that nobody has confirmed is started three times; the fourth start is that of the set that was confirmed
# last, and `bootswitcher` selects it again. A confirmed set costs no write to the environment.
#
# `good` is the value of `bootswitcher` that was confirmed last, `tries` the number of starts since then; a script of
# the device changes both when it confirms a set. `boot_set` is that of boot_set.cmd: it starts the kernel of the set
# that `bootswitcher` selects, and returns if it cannot, so that this counts as a start too.
setenv give_up 'setenv bootswitcher $good; setenv tries'
setenv count 'if test "$tries" = 3; then run give_up; elif test "$tries" = 2; then setenv tries 3; elif test "$tries" = 1; then setenv tries 2; else setenv tries 1; fi; saveenv'
setenv bootcmd 'if test -n "$good" && test "$bootswitcher" != "$good"; then run count; fi; run boot_set; reset'
setenv good $bootswitcher
saveenv
