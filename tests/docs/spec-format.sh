# What the document takes for granted: its manifest, and files of the sizes that its figures are of. Run are the commands
# that build and check that update.
# shellcheck shell=sh disable=SC2034,SC2154 # sourced by `commands`
runs='^\$ .*(rovu-pack build manifest\.lua --out www --key|check www/update\.lua .*--secrets)'

file() { # file NAME BYTES
    head -c "$2" /dev/urandom >"$1"
}

awk '/^    / { block = block substr($0, 5) "\n"; next }
    block ~ /image = .rootfs.img., imsize/ { printf "%s", block; exit } { block = "" }' "$document" >manifest.lua
file kernel.img 4096000
file rootfs.img 23900160
echo true >_check.sh
cp _check.sh after.sh
rovu-pack keygen keys >key.log
rovu-pack secret preshared >>key.log
