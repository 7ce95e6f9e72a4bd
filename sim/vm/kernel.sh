#!/bin/bash
# Unpacks Debian's current amd64 kernel, its modules and the headers to build
# modules against into a cache outside the clone (reused between runs); the
# host's own kernel is left alone. Prints the cache's kernel directory.
set -euo pipefail
cache=${SLOTAG_VM_CACHE:-/var/cache/slotag-vm}
# linux-image-amd64 names the current ABI, e.g. linux-image-6.1.0-56-amd64
image=$(apt-cache depends linux-image-amd64 | sed -n 's/^ *Depends: \(linux-image-[0-9].*\)$/\1/p' | head -n1)
[ -n "$image" ] || { echo "kernel.sh: no linux-image-amd64 in the package lists" >&2; exit 1; }
abi=${image#linux-image-}
dir=$cache/$abi
if [ ! -e "$dir/ok" ]; then
    rm -rf "$dir"; mkdir -p "$dir/debs"
    fetch() {
        (cd "$dir/debs" && apt-get download -qq "$image" "linux-headers-$abi" \
            "linux-headers-${abi%-amd64}-common" linux-kbuild-6.1 >&2)
    }
    # package lists older than the archive name files it no longer has
    fetch || { [ -z "${KERNEL_SH_UPDATED:-}" ] && apt-get update -qq >&2 &&
               KERNEL_SH_UPDATED=1 exec bash "$0"; exit 1; }
    for deb in "$dir"/debs/*.deb; do dpkg-deb -x "$deb" "$dir/root"; done
    rm -rf "$dir/debs"
    # the headers include their common half by its installed path
    sed -i "s|/usr/src/|$dir/root/usr/src/|" "$dir"/root/usr/src/linux-headers-"$abi"/Makefile
    touch "$dir/ok"
fi
echo "$dir"
