#!/bin/bash
# The .deb on a fresh Debian 12 (debootstrap --variant=minbase bookworm), as
# a user would install it: apt-get install ./slotag_*.deb resolves its
# dependencies and the maintainer scripts make the state with its modes;
# slotag -l lists the shipped table and slotag-show says that slotag -r
# would fail on a machine without the driver's node; an upgrade to the same build under a higher version
# and apt-get remove keep an edited table; the purge then leaves every
# path that was there before and nothing of the package. The root is made
# once per machine and kept in /var/cache/slotag-ci (remove it to refresh);
# each run works on an overlay of it, so the cached root stays as made.
# Arguments: BUILD-DIR SOURCE-DIR
set -u
if [ -z "${SLOTAG_FRESH_NS:-}" ]; then
    SLOTAG_FRESH_NS=1 exec bash "$(dirname "$0")/../private-ns.sh" bash "$0" "$@"
fi
build=$1 src=$2
deb=$(ls "$build"/packages/slotag_*.deb 2>/dev/null | head -n 1)
[ -n "$deb" ] || { echo "no package in $build/packages: run cpack there first"; exit 1; }
cache=/var/cache/slotag-ci/bookworm-minbase
fail=0
bad() { echo "FAIL: $*"; fail=1; }
step() { echo "== $*"; }

if [ ! -d "$cache" ]; then
    step "making the fresh root (debootstrap, once per machine)"
    command -v debootstrap >/dev/null || { echo "debootstrap is missing: bash scripts/deps.sh"; exit 1; }
    mkdir -p "${cache%/*}" || exit 1
    new=$(mktemp -d "$cache.XXXXXX") || exit 1
    if ! debootstrap --variant=minbase bookworm "$new" >"$new.log" 2>&1; then
        tail -n 20 "$new.log"; rm -rf --one-file-system "$new" "$new.log"; exit 1
    fi
    chmod 0755 "$new" && rm -f "$new.log"
    mv -T "$new" "$cache" 2>/dev/null || rm -rf --one-file-system "$new"  # another run made it first
fi

# The run's root: an overlay on a tmpfs, detached whole at the end.
work=$(mktemp -d /tmp/slotag-fresh.XXXXXX) || exit 1
mount -t tmpfs tmpfs "$work" || exit 1
trap 'umount -l "$work" && rmdir "$work"' EXIT
mkdir "$work/upper" "$work/work" "$work/root" "$work/out" || exit 1
r=$work/root
mount -t overlay overlay -o "lowerdir=$cache,upperdir=$work/upper,workdir=$work/work" "$r" || exit 1
mount -t proc proc "$r/proc" && mount --rbind /dev "$r/dev" && mount --rbind /sys "$r/sys" || exit 1
cp /etc/resolv.conf "$r/etc/resolv.conf" 2>/dev/null
cp "$deb" "$r/tmp/" || exit 1
out=$work/out
version=$(dpkg-deb -f "$deb" Version)
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$out/v2" \
      -D CPACK_DEBIAN_PACKAGE_VERSION="$version+rebuild1" >/dev/null && cp "$out"/v2/slotag_*.deb "$r/tmp/v2.deb" || exit 1
inside() { chroot "$r" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C DEBIAN_FRONTEND=noninteractive "$@"; }
mode() { stat -c %a "$r$1" 2>/dev/null; }
status() { inside dpkg-query -W -f='${Version} ${Status}' slotag 2>/dev/null; }
# Every path of the root, less the package manager's own records and caches
paths() {
    (cd "$r" && find . -xdev | sed 's/^\.//' |
        grep -Ev '^/(tmp|var/lib/dpkg|var/lib/apt|var/cache|var/log)(/|$)|^/etc/resolv\.conf$' | sort)
}
paths >"$out/before"

step "apt-get install ./${deb##*/}"
inside sh -c "cd /tmp && apt-get install -y -q ./${deb##*/}" >"$out/apt" 2>&1 ||
    { cat "$out/apt"; bad "apt-get install failed"; }
[ "$(status)" = "$version install ok installed" ] || bad "after install: $(status)"
for m in 750:/var/opt/KVTPslotag/log 600:/var/opt/KVTPslotag/lock/.slotag.lock 600:/etc/opt/KVTPslotag/hba_addr.conf; do
    [ "$(mode "${m#*:}")" = "${m%%:*}" ] || bad "mode of ${m#*:}: $(mode "${m#*:}")"
done
conffiles=$(inside dpkg-query -W -f='${Conffiles}' slotag)
for f in hba_addr.conf alterpm.conf; do
    grep -q " /etc/opt/KVTPslotag/$f " <<<"$conffiles" || bad "$f is not a conffile"
done

step "first runs"
inside slotag -l >"$out/list" 2>&1 || bad "slotag -l: status $?: $(cat "$out/list")"
cmp -s "$out/list" "$src/packaging/hba_addr.conf" || bad "slotag -l did not list the shipped table"
inside slotag-show >"$out/show" 2>&1
rc=$?
cat "$out/show"
echo "(slotag-show: status $rc)"
[ $rc -eq 1 ] && grep -q '^  1\. /dev/slotag: site e57$' "$out/show" ||
    bad "slotag-show without the driver: status $rc, not 1 with /dev/slotag as the problem"

grep -q 'INFO: <[^>]*>end(' "$r/var/opt/KVTPslotag/log/user.log" || bad "the runs left no end line in the log"

step "upgrade to $version+rebuild1, with an edited table"
table=$r/etc/opt/KVTPslotag/hba_addr.conf
printf 'hba1,/dev/sdb 0000:05:01.0 # edited by the administrator\n' >>"$table" && cp "$table" "$out/edited"
inside dpkg -i /tmp/v2.deb </dev/null >"$out/apt" 2>&1 || { cat "$out/apt"; bad "upgrade failed"; }
[ "$(status)" = "$version+rebuild1 install ok installed" ] || bad "after upgrade: $(status)"
[ -s "$r/var/opt/KVTPslotag/log/user.log" ] || bad "the upgrade lost the log"
inside slotag -l >"$out/list" 2>&1 && cmp -s "$out/list" "$out/edited" || bad "slotag -l after the upgrade: $(cat "$out/list")"

step "apt-get remove, purge"
inside apt-get remove -y -q slotag >"$out/apt" 2>&1 || { cat "$out/apt"; bad "apt-get remove failed"; }
[ "$(status)" = "$version+rebuild1 deinstall ok config-files" ] || bad "after remove: $(status)"
[ -e "$r/opt/KVTPslotag/bin/slotag" ] || [ -L "$r/usr/sbin/slotag" ] && bad "remove left the program"
cmp -s "$table" "$out/edited" || bad "remove did not keep the edited table"
inside apt-get purge -y -q slotag >"$out/apt" 2>&1 || { cat "$out/apt"; bad "apt-get purge failed"; }
paths >"$out/after"
gone=$(comm -23 "$out/before" "$out/after")
left=$(comm -13 "$out/before" "$out/after")
[ -z "$gone" ] || bad "taken away by the package: $gone"
[ -z "$left" ] || bad "left behind by the package: $left"

[ $fail -eq 0 ] && echo "fresh root: install, first runs, upgrade, remove, purge: ok"
exit $fail
