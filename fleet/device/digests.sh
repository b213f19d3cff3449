# Prints the MD5 of the kernel and root volumes of both sets, as NAME=MD5, for those that are there.

for name in k0 k0_root k1 k1_root; do
    id=$(ubinfo /dev/ubi0 -N "$name" 2>&- | sed -n 's/^Volume ID: *\([0-9]*\).*/\1/p')
    if [ -n "$id" ]; then
        sum=$(md5sum "/dev/ubi0_$id")
        say "$name" "${sum%% *}"
    fi
done
