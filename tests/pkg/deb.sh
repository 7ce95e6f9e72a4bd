#!/bin/bash
# The Debian package with the real dpkg and the real maintainer scripts, in
# a throw-away root: an overlay whose lower layer is this machine's / and
# whose upper layer is a tmpfs, in a private mount namespace, entered with
# chroot. Nothing reaches the host and nothing is downloaded. In it:
# install; a first run on the state the package made; an upgrade to a
# rebuilt package with an edited table in place; remove. (The purge, and
# the shipped table's listing, are judged path by path by fresh-root.sh.)
# Arguments: BUILD-DIR
set -u
if [ -z "${SLOTAG_DEB_NS:-}" ]; then
    SLOTAG_DEB_NS=1 exec bash "$(dirname "$0")/../private-ns.sh" bash "$0" "$@"
fi
build=$1
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
cp "$deb" "$r$t/slotag.deb" && cp "$deb2" "$r$t/slotag-2.deb" || exit 1

inside() { chroot "$r" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C "$@"; }
mode() { stat -c %a "$r$1" 2>/dev/null; }
status() { inside dpkg-query -W -f='${Version} ${Status}' slotag 2>/dev/null; }

step "install $version"
inside dpkg -i "$t/slotag.deb" </dev/null || bad "dpkg -i failed"
[ "$(status)" = "$version install ok installed" ] || bad "after install: $(status)"
for m in 750:/var/opt/KVTPslotag/log 600:/var/opt/KVTPslotag/lock/.slotag.lock 600:/etc/opt/KVTPslotag/hba_addr.conf; do
    [ "$(mode "${m#*:}")" = "${m%%:*}" ] || bad "mode of ${m#*:}: $(mode "${m#*:}")"
done
conffiles=$(inside dpkg-query -W -f='${Conffiles}' slotag)
for f in hba_addr.conf alterpm.conf; do
    grep -q " /etc/opt/KVTPslotag/$f " <<<"$conffiles" || bad "$f is not a conffile"
done

step "first run"
printf 'hba1,/dev/sdb 0000:05:01.0 # edited by the administrator\n' >>"$r/etc/opt/KVTPslotag/hba_addr.conf"
cp "$r/etc/opt/KVTPslotag/hba_addr.conf" "$work/edited.conf"
inside slotag -l >"$work/list.out" 2>&1 && cmp -s "$work/list.out" "$work/edited.conf" ||
    bad "slotag -l: $(cat "$work/list.out")"
grep -q 'INFO: <[^>]*>end(' "$r/var/opt/KVTPslotag/log/user.log" || bad "the run left no end line in the log"

step "upgrade to $version+rebuild1"
inside dpkg -i "$t/slotag-2.deb" </dev/null || bad "upgrade failed"
[ "$(status)" = "$version+rebuild1 install ok installed" ] || bad "after upgrade: $(status)"
cmp -s "$r/etc/opt/KVTPslotag/hba_addr.conf" "$work/edited.conf" || bad "the upgrade changed the edited table"
[ -s "$r/var/opt/KVTPslotag/log/user.log" ] || bad "the upgrade lost the log"
inside slotag -l >"$work/list2.out" 2>&1 && cmp -s "$work/list2.out" "$work/edited.conf" ||
    bad "slotag -l after the upgrade: $(cat "$work/list2.out")"

step "remove"
inside dpkg -r slotag </dev/null || bad "dpkg -r failed"
[ "$(status)" = "$version+rebuild1 deinstall ok config-files" ] || bad "after remove: $(status)"
[ -e "$r/opt/KVTPslotag/bin/slotag" ] || [ -L "$r/usr/sbin/slotag" ] && bad "remove left the program"
cmp -s "$r/etc/opt/KVTPslotag/hba_addr.conf" "$work/edited.conf" || bad "remove did not keep the table"

[ $fail -eq 0 ] && echo "package install, first run, upgrade, remove: ok"
exit $fail
