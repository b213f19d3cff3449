#!/bin/sh
# Makes the root file system of a device in the folder /new. Runs in a sandbox of its own that can write to nothing
# else, since what it unpacks may come from an update.
#
# usage: prepare-root KIND SIMULATED RECORDED
#   KIND: busybox, host, folder, squashfs or tar, which is /source
#   SIMULATED, RECORDED: names of tools, separated by spaces
set -eu
umask 022
tool=/run/rovu-sim/bin/rovu-sim-tool
kind=$1 simulated=$2 recorded=$3
cd /new

fail() {
    echo "$1" >&2
    exit 1
}

unpack() {
    case $kind in
    busybox)
        # The links to it are there already. Its loader and libraries, if it has any:
        cp -L /source bin/busybox
        ldd bin/busybox 2>/dev/null | grep -o '/[^ ]*' | while read -r file; do
            mkdir -p ".${file%/*}"
            cp -L "$file" ".$file"
        done
        ;;
    host)
        mkdir -p etc/ssl usr/local
        for name in bin sbin lib lib32 lib64 libx32; do
            if [ -d "/usr/$name" ]; then ln -s "usr/$name" "$name"; fi
        done
        for name in alternatives host.conf ld.so.cache ld.so.conf ld.so.conf.d localtime nsswitch.conf protocols services \
            ssl/certs ssl/openssl.cnf; do
            if [ -e "/etc/$name" ]; then cp -a "/etc/$name" "etc/$name"; fi
        done
        ;;
    # Device nodes are left out: a device's /dev is the simulator's.
    folder) tar -C /source --exclude=./dev/?* -cf - . | tar --no-same-owner -xpf - ;;
    # Without root it says of each device node that it needs root.
    squashfs)
        unsquashfs -q -n -f -no-xattrs -no-exit-code -d /new /source >/tmp/said 2>&1 || fail "$(tail -n 1 /tmp/said)"
        ;;
    tar) tar --no-same-owner --exclude=./dev/?* --exclude=dev/?* -xpf /source ;;
    esac
}

# Follows the links that a folder such as /bin may be, or be behind, within the new root.
folder_of() { # folder_of PATH
    place=. rest=$1 links=0
    while [ -n "$rest" ]; do
        name=${rest%%/*}
        rest=${rest#"$name"}
        rest=${rest#/}
        case $name in
        "" | .) continue ;;
        ..) place=$(dirname "$place") && continue ;;
        esac
        place=$place/$name
        [ -L "$place" ] || continue
        links=$((links + 1))
        if [ "$links" -gt 40 ]; then fail "its /$1 is a link that leads nowhere"; fi
        target=$(readlink "$place")
        case $target in
        /*) place=. ;;
        *) place=${place%/*} ;;
        esac
        rest=$target/$rest
    done
    echo "$place"
}

# What the simulator mounts on must be no link.
plain_folder() { # plain_folder PATH
    parent=$1
    while [ "$parent" != "${parent%/*}" ]; do
        parent=${parent%/*}
        if [ -L "$parent" ]; then fail "its /$parent is a link, and must be a folder"; fi
    done
    if [ -L "$1" ] || [ -f "$1" ]; then rm "$1"; fi
}

plain_file() { # plain_file PATH [TEXT]: with the text if there is none
    if [ -L "$1" ] || [ ! -e "$1" ]; then
        rm -f "$1"
        printf '%b' "${2:-}" >"$1"
    fi
}

# A tool that is only recorded stays where it is, for the simulator to run it.
replace_tools() {
    for folder in bin sbin usr/bin usr/sbin; do
        folder=$(folder_of "$folder")
        [ -d "$folder" ] || continue
        for name in $simulated; do
            if [ -e "$folder/$name" ] || [ -L "$folder/$name" ]; then ln -sfn "$tool" "$folder/$name"; fi
        done
    done
    for name in $simulated $recorded; do
        ln -sfn "$tool" "usr/local/bin/$name"
    done
}

# The tool stands for /bin/sh, so that shells with a script can be recorded and made to fail.
replace_shell() {
    folder=$(folder_of bin)
    if [ ! -e "$folder/sh" ] && [ ! -L "$folder/sh" ]; then fail "it has no /bin/sh"; fi
    if [ -L "$folder/sh" ]; then
        target=$(readlink "$folder/sh")
        case $target in
        /*) ln -s "$target" .shell ;;
        *) ln -s "/bin/$target" .shell ;;
        esac
        rm "$folder/sh"
    else
        mv "$folder/sh" .shell
    fi
    ln -s "$tool" "$folder/sh"
}

unpack
find . -type d ! -perm -700 -exec chmod u+rwx {} +
for path in tmp app0 etc/ssh etc/ssl/certs dev proc run sys root var usr/local/bin; do
    plain_folder "$path"
done
mkdir -p tmp app0 etc/ssh etc/ssl/certs dev proc run sys root var usr/local/bin
plain_file etc/hosts '127.0.0.1 localhost\n'
plain_file etc/resolv.conf
plain_file etc/ssl/certs/ca-certificates.crt
# The accounts that an SSH server needs. Only one user is known in a user namespace; without an entry among the
# passwords, the server takes root for locked.
plain_file etc/passwd 'root:x:0:0:root:/root:/bin/sh\nsshd:x:0:0::/run/sshd:/usr/sbin/nologin\n'
plain_file etc/shadow 'root::::::::\n'
plain_file etc/group 'root:x:0:\n'
replace_tools
[ "$kind" = host ] || replace_shell
