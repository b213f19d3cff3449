# `boot_set`: commands for U-Boot's prompt. It starts the kernel of the set that `bootswitcher` selects, from UBI, and
# returns if it cannot. `bootcmd` of counter.cmd and bootcount.cmd runs it; without a fallback: 'run boot_set; reset'.
#
# The board's own: `loadaddr`; `flash`, the MTD partition with UBI; `boardargs`, such as 'console=ttyS0 mtdparts=...';
# `start`; and in `start_kernel` the number in `ubi.mtd=0`, which is the kernel's for that partition, and `init=`. U-Boot
# needs CONFIG_HUSH_PARSER, CONFIG_CMD_SETEXPR and CONFIG_CMD_UBI.
#
# U-Boot does not verify the checksums that UBI has of a static volume. The kernel must be an image with a checksum, which
# `bootm` verifies if the variable `verify` does not exist.
setenv start 'bootm $loadaddr'
setenv choose_set 'setexpr set "$bootswitcher" "&" ff; if test $set != 0; then setenv set 1; fi'
# `ubi read` succeeds for a volume that is empty or has lost blocks, but does not set `filesize`.
setenv read_kernel 'setenv filesize; ubi read $loadaddr k$set && test -n "$filesize"'
# U-Boot 2023.01 can list the names of the volumes, in the order of their numbers, but not the numbers. The n-th name,
# counted from 0, has number n as long as the factory gave them 0 to 5, since a new volume gets the lowest free number,
# and there are no others. An update that a power cut ended leaves one out: it is created, empty, and an update that
# writes it replaces it. For more volumes, up to nine, name them here, and change the 6. `name` is cleared because a
# variable of the environment would hide that of the loop.
setenv list_volumes 'setenv volumes; setenv name; for name in k0 k0_root k0_data k1 k1_root k1_data; do ubi check $name || ubi create $name 1 s; done; ubi list volumes'
setenv find_root 'setenv root; setenv id 0; for name in $volumes; do if test $name = k${set}_root; then setenv root $id; fi; setexpr id $id + 1; done; test $id = 6 && test -n "$root"'
setenv start_kernel 'setenv bootargs "$boardargs ubi.mtd=0 ubi.block=0,k${set}_root root=/dev/ubiblock0_$root rootfstype=squashfs ro init=/sbin/preinit overlay=k${set}_data"; run start'
setenv boot_set 'run choose_set; ubi part $flash && run read_kernel && run list_volumes && run find_root && run start_kernel'
saveenv
