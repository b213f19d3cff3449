# The target VM's `boot_set`: loads the kernel of the set that `bootswitcher` selects, which `boot` has copied from the
# flash to a file if it is complete, and leaves U-Boot. The line that it prints is for `u-boot`.
setenv boot_set 'setexpr set 0x$bootswitcher "&" 0xff; if test $set != 0; then setenv set 1; fi; load hostfs - 0x1000000 kernel$set && echo "rovu-vm: starts set $set" && poweroff'
setenv bootdelay -2
saveenv
