# What the scripts next to this file share; they source it with their own folder in `here`.
# shellcheck shell=sh disable=SC2154,SC2034
project=$(cd "$here/../.." && pwd)
vm_host="" vm_cache="" vm_sysroot="" vm_bin="" vm_kernel="" vm_applets="" vm_libc="" vm_boot_loader="" vm_mkimage=""
eval "$("$here/build" --print-paths)"
# The workstation's programs are those of this preset.
host_preset=${ROVU_VM_HOST_PRESET:-demo}
host_build=$project/build/$host_preset
target_build=$project/build/mips
vm=$project/build/vm
images=$vm/images
url=http://127.0.0.1:8643
board_arguments="console=ttyS0 block2mtd.block2mtd=/dev/vda1,131072 quiet" # for every kernel
power_on_limit=600 # seconds, many times what the longest takes on an idle workstation

fail() {
    echo "device/vm/${0##*/}: $*" >&2
    exit 1
}

# The commands in docs/factory.md, of the sections from one heading to another.
factory_commands() { # factory_commands FIRST [LAST]
    awk -v first="## $1" -v last="## ${2:-$1}" '
        /^## / { on = $0 == first || (on && !ended); ended = ended || $0 == last }
        on && sub(/^    /, "") { print; found = 1 }
        END { exit !(found && ended) }' "$project/docs/factory.md" ||
        fail "docs/factory.md has no commands from \"$1\" to \"${2:-$1}\""
}

# The command line in docs/factory.md for this set, with the number that its root file system has on this disk.
kernel_arguments() { # kernel_arguments DISK SET
    root_id=$("$host_build/rovu-vm-image" volume "$1" | sed -n "s/^\([0-9]*\) k$2_root .*/\1/p")
    [ -n "$root_id" ] || fail "no volume k$2_root on the flash"
    factory_commands "The kernel command line" | sed "s/k0_\([a-z]\)/k$2_\1/g; s/ubiblock0_[0-9]*/ubiblock0_$root_id/"
}

# The kernel in an image: what the emulator starts has no header.
without_header() { # without_header IMAGE
    tail -c +65 "$1"
}

# Missing images are made, and those that another root file system was made from.
require_images() {
    if [ -e "$images/www.img" ] && [ -x "$host_build/rovu-vm-image" ] && [ -x "$vm_mkimage" ] &&
        [ -e "$host_build/rovu-vm-cut-write.so" ] &&
        [ -z "$(find "$here/root" "$project/docs/factory.md" "$project/examples/device/preinit" \
            -newer "$images/www.img")" ]; then return; fi
    "$here/make-images" >&2
}

# The next three print one word a line, since a path may hold a space. From here on, the shell splits at lines only.
split_lines() {
    set -f
    IFS='
'
}

# The emulator and its board, as the words of a command. It stays on the processor that this shell is on: the thread
# of the emulated processor clears a bit of the cause register without the lock, though in one instruction. On two
# processors, a disk's interrupt that is raised at that moment would be lost, and the target VM would hang.
emulated_board() {
    printf '%s\n' taskset -c "$(cut -d' ' -f39 "/proc/$$/stat")" qemu-system-mips \
        -M malta -m 128 -nodefaults -display none -no-reboot
}

# The disk that all persistent storage of the target VM lies on, as options of the emulator. With a log, the emulator
# records every write and flush there.
storage_disk() { # storage_disk FILE [WRITE_LOG]
    if [ -n "${2:-}" ]; then
        : >"$2"
        driver="driver=blklogwrites,file.driver=raw,file.file.driver=file,file.file.filename=$1"
        driver="$driver,log.driver=file,log.filename=$2,log-sector-size=512,log-super-update-interval=1"
    else
        driver="format=raw,file=$1"
    fi
    printf '%s\n' -drive "if=none,id=storage,$driver" -device virtio-blk-pci,drive=storage
}

read_only_disk() { # read_only_disk FILE
    id=disk$(printf '%s' "$1" | cksum | cut -d' ' -f1)
    printf '%s\n' -drive "if=none,id=$id,format=raw,readonly=on,file=$1" -device "virtio-blk-pci,drive=$id"
}

# Starts a target VM that runs a shell command, in the background; the emulator's process is `emulator`, and what
# the command prints comes into FOLDER/output.
start_vm() { # start_vm FOLDER COMMAND [BOOT_OPTION...]
    started=$1
    printf '%s\n' "$2" >"$started/script"
    : >"$started/output"
    shift 2
    timeout --foreground -s KILL "$power_on_limit" "$here/boot" "$started" --command "$started/script" \
        --files "${files:-$images/www.img}" --console "$started/console.log" --output "$started/output" "$@" \
        </dev/null &
    emulator=$!
}

# How the target VM ended: "exit N" with the command's status, "restart", or "nothing" if it just stopped.
how_it_ended() { # how_it_ended FOLDER
    status=$(tr -d '\r' <"$1/output" | sed -n 's/^rovu-vm: exit status //p')
    # The command may have ended before the restart that it asked for.
    if grep -q 'reboot: Restarting system' "$1/console.log"; then
        echo restart
    elif [ -n "$status" ]; then
        echo "exit $status"
    else
        echo nothing
    fi
}

# The target VM's state, printed by `device-state` into FOLDER/state, must have this fact.
require_fact() { # require_fact FOLDER FACT VALUE
    actual=$(sed -n "s/^$2 //p" "$1/state")
    [ "$actual" = "$3" ] || fail "the target VM's $2 is \"$actual\" and should be \"$3\""
}

# What the command printed.
printed() { # printed FOLDER
    tr -d '\r' <"$1/output" | sed '/^rovu-vm: /d'
}

# One power-on from start to end; what the command printed is on standard output.
power_on() { # power_on FOLDER COMMAND [BOOT_OPTION...]
    start_vm "$@"
    if ! wait "$emulator"; then
        echo "device/vm/${0##*/}: the target VM was not done within $power_on_limit s, or its emulator failed" >&2
        for file in console.log output; do
            echo "the end of $1/$file:" >&2
            tail -n 20 "$1/$file" >&2
        done
        return 1
    fi
    printed "$1"
}
