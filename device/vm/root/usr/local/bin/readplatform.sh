#!/bin/sh
# What the running root file system says of its device.
case "$1" in
model | rootfsrev) sed -n "s/^$1=//p" /etc/platform ;;
*)
    echo "usage: readplatform.sh model|rootfsrev" >&2
    exit 2
    ;;
esac
