# What `boot_set` of examples/boot-loader needs of the board. In place of `bootm`, `start` verifies the kernel's checksums,
# leaves it in a file and the command line on the console, both for the emulator, and ends U-Boot.
# A variable `name` must not hide that of a loop in `boot_set`.
setenv name k1_root
setenv loadaddr 0x1000000
setenv flash flash
setenv boardargs 'console=ttyS0 block2mtd.block2mtd=/dev/vda1,131072 quiet'
setenv start 'iminfo $loadaddr && echo "rovu-vm: starts with $bootargs" && save hostfs - $loadaddr kernel.img $filesize && poweroff'
setenv bootdelay -2
saveenv
