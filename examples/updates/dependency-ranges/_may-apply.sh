# Refuses what the ranges of the manifest cannot express. Nothing has been changed yet when it fails.
set -eu

# A `dep` tests the version of the other image's kind, so no range holds the root file system that the device runs.
version=$(/usr/local/bin/readplatform.sh rootfsrev)
case $version in
2.[45] | 2.[45].*) ;;
*)
    echo "The root file system is $version. Install 2.4 first."
    exit 1
    ;;
esac

# The same range as in the manifest. Outside of it, the update writes the kernel too.
running=$(uname -r)
case $running in
3.10.49 | 3.10.49[.-]*) exit 0 ;;
3.10 | 3.10[.-]*) ;;
*) exit 0 ;;
esac

# The head of a uImage names the kernel's release, after "Linux-". Of another format, look where yours has it.
for volume in k0 k1; do
    id=$(ubinfo /dev/ubi0 -N $volume | sed -n 's/^Volume ID: *\([0-9]*\).*/\1/p')
    if ! head -c 256 "/dev/ubi0_$id" | tr -c 'A-Za-z0-9._+-' '\n' | sed 's/^Linux-//' | grep -qxF "$running"; then
        echo "$volume holds another kernel than $running, and would boot. Install an update with both images."
        exit 1
    fi
done
