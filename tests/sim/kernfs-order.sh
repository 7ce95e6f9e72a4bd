#!/bin/bash
# The simulator's "order kernfs" lists /sys/bus/pci/devices as Debian's 6.1
# kernel listed these functions (QEMU q35, seen in the VM bed), so the
# controller order slotag derives from the listing is the real one.
# usage: kernfs-order.sh SLOTAG-SIM PRELOAD
set -eu
sim=$1 preload=$2
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
listed="0000:03:00.0 0000:00:1f.2 0000:05:02.0 0000:00:1f.0 0000:00:10.0 0000:02:00.0 0000:01:00.0
0000:05:01.0 0000:00:1f.3 0000:00:00.0 0000:00:12.0 0000:00:11.0 0000:02:01.0"
{ printf 'function %s\n' $(printf '%s\n' $listed | sort); echo 'order kernfs'; } >"$root.topology"
rmdir "$root"; "$sim" build "$root" "$root.topology" >/dev/null; rm "$root.topology"
got=$("$sim" run "$root" --preload "$preload" -- ls -f /sys/bus/pci/devices | grep -v '^\.\.\?$')
if [ "$got" != "$(printf '%s\n' $listed)" ]; then
    echo "FAIL: listed as"; echo "$got"; exit 1
fi
echo "the kernel's listing order: ok"
