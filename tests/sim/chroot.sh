#!/bin/bash
# The tour's first step (slotag -l of its table on its server) inside a
# chroot, where / is not a mount point: the simulator must still make its
# namespace private, and none of its mounts may reach the caller's.
# usage: chroot.sh SLOTAG-SIM SLOTAG SOURCE-DIR
set -u
if [ -z "${SLOTAG_CHROOT_NS:-}" ]; then
    SLOTAG_CHROOT_NS=1 exec bash "$(dirname "$0")/../private-ns.sh" bash "$0" "$@"
fi
sim=$1 slotag=$2 src=$3
# The chroot is a plain directory on a shared tmpfs (a mount made inside it
# that propagated would show up here), holding binds of the system's
# directories and copies of the programs. The tmpfs is detached whole at the
# end, never emptied file by file, so nothing bound into it is touched.
work=$(mktemp -d) || exit 1
mount -t tmpfs tmpfs "$work" || exit 1
trap 'umount -l "$work" && rmdir "$work"' EXIT
mount --make-shared "$work" || exit 1
r=$work/root
mkdir -p "$r/tmp" "$r/var" "$r/prog" "$work/out" || exit 1
for entry in /*; do
    name=${entry#/}
    if [ -L "$entry" ]; then
        cp -P "$entry" "$r/$name" || exit 1
    else
        case $name in usr|etc|proc|sys|dev) mkdir "$r/$name" && mount --rbind "$entry" "$r/$name" || exit 1 ;; esac
    fi
done
cp "$sim" "$(dirname "$sim")/libslotag-sim-preload.so" "$slotag" "$src/docs/tour.topology" "$r/prog/" || exit 1
# as the tool lists it: one blank between words
sed -n "/<<'TABLE'/,/^TABLE\$/p" "$src/tour.sh" | sed '1d;$d;s/  */ /g' >"$work/out/table"
[ -s "$work/out/table" ] || { echo "FAIL: no table found in tour.sh"; exit 1; }

chroot "$r" /prog/slotag-sim build /tmp/sim /prog/tour.topology >/dev/null || { echo "FAIL: build in the chroot"; exit 1; }
cp "$work/out/table" "$r/tmp/sim/etc/hba_addr.conf"
chroot "$r" /prog/slotag-sim run /tmp/sim -- /prog/slotag -l >"$work/out/list" 2>&1
rc=$?
fail=0
[ $rc -eq 0 ] || { echo "FAIL: slotag -l in a chroot: status $rc"; cat "$work/out/list"; fail=1; }
[ $rc -ne 0 ] || cmp -s "$work/out/list" "$work/out/table" || { echo "FAIL: slotag -l listed:"; cat "$work/out/list"; fail=1; }
if grep " $r/[^ ]*opt" /proc/self/mountinfo; then
    echo "FAIL: the simulator's mounts (above) reached the caller"; fail=1
fi
[ $fail -eq 0 ] && echo "the tour's first step in a chroot: ok"
exit $fail
