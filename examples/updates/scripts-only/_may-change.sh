# Refuses a device that this update is not for. Nothing has been changed yet when it fails.
set -eu

version=$(/usr/local/bin/readplatform.sh rootfsrev)
case $version in
2.4 | 2.4.*) ;;
*)
    echo "The root file system is $version, and this update is for 2.4."
    exit 1
    ;;
esac

free=$(df -k /app0 | awk 'END { print $(NF - 2) }')
if [ "$free" -lt 64 ]; then
    echo "/app0 has $free KiB left, and this update needs 64 there."
    exit 1
fi
