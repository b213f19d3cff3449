# What the scripts beside this file share; they source it with their own folder in `here`.
# shellcheck shell=sh disable=SC2154,SC2034
project=$(cd "$here/../.." && pwd)
vm_host="" vm_sysroot="" vm_bin="" vm_kernel="" vm_applets="" vm_libc=""
eval "$("$here/build" --print-paths)"
# The workstation's programs are those of this preset.
host_preset=${ROVU_VM_HOST_PRESET:-demo}
host_build=$project/build/$host_preset
target_build=$project/build/mips
vm=$project/build/vm
images=$vm/images
url=http://127.0.0.1:8643
power_on_limit=240 # seconds, several times what the longest takes on a busy workstation

fail() {
    echo "device/vm/${0##*/}: $*" >&2
    exit 1
}

require_images() {
    if [ -e "$images/www.img" ] && [ -x "$host_build/rovu-vm-image" ]; then return; fi
    "$here/make-images" >&2
}

# The emulator and its board, as the words of a command. It stays on the processor that this shell is on: the thread
# of the emulated processor clears a bit of the cause register without the lock, though in one instruction. On two
# processors, a disk's interrupt that is raised at that moment would be lost, and the machine would stand still.
emulated_board() {
    echo "taskset -c $(cut -d' ' -f39 "/proc/$$/stat") qemu-system-mips" \
        "-M malta -m 128 -nodefaults -display none -no-reboot"
}

# Starts a machine that runs a shell command, in the background; the emulator's process is `emulator`, and what
# the command prints comes into FOLDER/output.
start_machine() { # start_machine FOLDER COMMAND
    printf '%s\n' "$2" >"$1/script"
    : >"$1/output"
    timeout --foreground -s KILL "$power_on_limit" "$here/boot" "$1" --command "$1/script" \
        --files "${files:-$images/www.img}" --console "$1/console.log" --output "$1/output" </dev/null &
    emulator=$!
}

# How the machine ended: "exit N" with the command's status, "restart", or "nothing" if it just stopped.
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

# What the command printed.
printed() { # printed FOLDER
    tr -d '\r' <"$1/output" | sed '/^rovu-vm: /d'
}

# One power-on from start to end; what the command printed is on standard output.
power_on() { # power_on FOLDER COMMAND
    start_machine "$1" "$2"
    if ! wait "$emulator"; then
        echo "device/vm/${0##*/}: the machine was not done within $power_on_limit s, or its emulator failed" >&2
        for file in console.log output; do
            echo "the end of $1/$file:" >&2
            tail -n 20 "$1/$file" >&2
        done
        return 1
    fi
    printed "$1"
}
