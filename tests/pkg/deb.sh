#!/bin/bash
# The Debian package, end to end, with the real dpkg and the real
# maintainer scripts, in a throw-away root: an overlay whose lower layer is
# this machine's / and whose upper layer is a tmpfs, in a private mount
# namespace, entered with chroot. Nothing reaches the host and nothing is
# downloaded. In it: install; the first slotag -l and slotag -r against the
# simulated server (the simulator runs inside the root, over the package's
# own /etc/opt/KVTPslotag and /var/opt/KVTPslotag); an upgrade to a rebuilt
# package with an edited table in place; remove; purge.
# Arguments: BUILD-DIR SOURCE-DIR SLOTAG-SIM PRELOAD-LIBRARY
set -u
if [ -z "${SLOTAG_DEB_NS:-}" ]; then
    SLOTAG_DEB_NS=1 exec bash "$(dirname "$0")/../private-ns.sh" bash "$0" "$@"
fi
build=$1 src=$2 sim=$3 preload=$4
deb=$(ls "$build"/packages/slotag_*.deb 2>/dev/null | head -n 1)
[ -n "$deb" ] || { echo "no package in $build/packages: run cpack there first"; exit 1; }
version=$(dpkg-deb -f "$deb" Version)
work=$(mktemp -d /tmp/slotag-deb.XXXXXX)
ovl=$work/overlay
trap 'umount -l "$ovl" 2>/dev/null; rm -rf --one-file-system "$work"' EXIT
fail=0
bad() { echo "FAIL: $*"; fail=1; }
step() { echo "== $*"; }

# The upgrade: the same build packaged again under a higher version.
mkdir "$work/v2"
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/v2" \
      -D CPACK_DEBIAN_PACKAGE_VERSION="$version+rebuild1" >/dev/null || exit 1
deb2=$(ls "$work"/v2/slotag_*.deb)

mkdir "$ovl" && mount -t tmpfs tmpfs "$ovl" || exit 1
mkdir "$ovl/upper" "$ovl/work" "$ovl/root"
r=$ovl/root
mount -t overlay overlay -o "lowerdir=/,upperdir=$ovl/upper,workdir=$ovl/work" "$r" || exit 1
for d in proc sys dev; do mount --rbind "/$d" "$r/$d" || exit 1; done
t=/tmp/slotag-pkgtest
mkdir -p "$r$t"
cp "$deb" "$r$t/slotag.deb" && cp "$deb2" "$r$t/slotag-2.deb" &&
cp "$sim" "$r$t/slotag-sim" && cp "$preload" "$r$t/" && cp "$src/tests/pkg/topology" "$r$t/" || exit 1

inside() { chroot "$r" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C "$@"; }
# slotag ARGS: the installed slotag, by its link on the PATH, on the
# simulated server whose etc and var are the package's own directories
slotag() {
    mount --bind "$r/etc/opt/KVTPslotag" "$r$t/sim/etc" &&
        mount --bind "$r/var/opt/KVTPslotag" "$r$t/sim/var" || return 125
    inside "$t/slotag-sim" run "$t/sim" -- slotag "$@"
    local rc=$?
    umount "$r$t/sim/etc" "$r$t/sim/var"
    return $rc
}
mode() { stat -c %a "$r$1" 2>/dev/null; }
# Every path of the package and the directories that hold its state
pkg_paths() {
    { dpkg-deb -c "$deb"; dpkg-deb -c "$deb2"; } | awk '{ p = $6; sub(/^\./, "", p); sub(/\/$/, "", p); if (p != "") print p }'
    printf '%s\n' /var/opt/KVTPslotag /var/opt/KVTPslotag/log /var/opt/KVTPslotag/lock
}
status() { inside dpkg-query -W -f='${Version} ${Status}' slotag 2>/dev/null; }

# As on a fresh system, /opt is empty and owned by no package (base-files'
# postinst made it, /etc/opt and /var/opt too), so dpkg would take away
# any of them that the package listed.
rm -rf "$r"/opt/* "$r"/etc/opt/* "$r"/var/opt/*
pkg_paths | sort -u | while read -r p; do
    [ -e "$r$p" ] || [ -L "$r$p" ] && echo "$p"
done >"$work/existed"

step "install $version"
inside dpkg -i "$t/slotag.deb" </dev/null || bad "dpkg -i failed"
[ "$(status)" = "$version install ok installed" ] || bad "after install: $(status)"
[ "$(mode /var/opt/KVTPslotag/log)" = 750 ] || bad "log directory mode: $(mode /var/opt/KVTPslotag/log)"
[ "$(mode /var/opt/KVTPslotag/lock/.slotag.lock)" = 600 ] || bad "lock file mode: $(mode /var/opt/KVTPslotag/lock/.slotag.lock)"
[ "$(mode /etc/opt/KVTPslotag/hba_addr.conf)" = 600 ] || bad "table mode: $(mode /etc/opt/KVTPslotag/hba_addr.conf)"
conffiles=$(inside dpkg-query -W -f='${Conffiles}' slotag)
for f in hba_addr.conf alterpm.conf; do
    grep -q " /etc/opt/KVTPslotag/$f " <<<"$conffiles" || bad "$f is not a conffile"
done

step "first runs"
inside "$t/slotag-sim" build "$t/sim" "$t/topology" >/dev/null || exit 1
slotag -l >"$work/list.out" 2>&1 || bad "slotag -l: $(cat "$work/list.out")"
cmp -s "$work/list.out" "$src/packaging/hba_addr.conf" || bad "slotag -l did not list the shipped table"
printf 'hba1,/dev/sdb 0000:05:01.0 # edited by the administrator\n' >>"$r/etc/opt/KVTPslotag/hba_addr.conf"
cp "$r/etc/opt/KVTPslotag/hba_addr.conf" "$work/edited.conf"
slotag -r >"$work/reg.out" 2>&1 || bad "slotag -r: $(cat "$work/reg.out")"
inside "$t/slotag-sim" dump "$t/sim" | grep -q 'bus_id="0000:05:01.0"' || bad "slotag -r registered no adapter"
grep -q 'INFO: <[^>]*>end(' "$r/var/opt/KVTPslotag/log/user.log" || bad "the runs left no end line in the log"

step "upgrade to $version+rebuild1"
inside dpkg -i "$t/slotag-2.deb" </dev/null || bad "upgrade failed"
[ "$(status)" = "$version+rebuild1 install ok installed" ] || bad "after upgrade: $(status)"
cmp -s "$r/etc/opt/KVTPslotag/hba_addr.conf" "$work/edited.conf" || bad "the upgrade changed the edited table"
[ -s "$r/var/opt/KVTPslotag/log/user.log" ] || bad "the upgrade lost the log"
slotag -l >"$work/list2.out" 2>&1 && cmp -s "$work/list2.out" "$work/edited.conf" ||
    bad "slotag -l after the upgrade: $(cat "$work/list2.out")"

step "remove"
inside dpkg -r slotag </dev/null || bad "dpkg -r failed"
[ "$(status)" = "$version+rebuild1 deinstall ok config-files" ] || bad "after remove: $(status)"
[ -e "$r/opt/KVTPslotag/bin/slotag" ] || [ -L "$r/usr/sbin/slotag" ] && bad "remove left the program"
cmp -s "$r/etc/opt/KVTPslotag/hba_addr.conf" "$work/edited.conf" || bad "remove did not keep the table"

step "purge"
inside dpkg -P slotag </dev/null || bad "dpkg -P failed"
[ -z "$(status)" ] || inside dpkg-query -W -f='${Status}' slotag 2>/dev/null | grep -q 'not-installed' ||
    bad "after purge: $(status)"
[ -e "$r/etc/opt/KVTPslotag" ] && bad "purge left /etc/opt/KVTPslotag: $(ls -A "$r/etc/opt/KVTPslotag")"
[ -e "$r/var/opt/KVTPslotag" ] && bad "purge left /var/opt/KVTPslotag"
for p in $(printf '%s\n' /opt /etc/opt /var/opt | sort -u - "$work/existed"); do
    [ -e "$r$p" ] || bad "purge took away $p, which was there before the install"
done
for p in $(pkg_paths | sort -u | grep -vxF -f "$work/existed"); do
    [ -e "$r$p" ] || [ -L "$r$p" ] && bad "purge left $p"
done

[ $fail -eq 0 ] && echo "package install, first run, upgrade, remove, purge: ok"
exit $fail
