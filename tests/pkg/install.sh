#!/bin/bash
# `cmake --install` into a DESTDIR gives the add-on layout with modes fit
# for a root-only tool, keeps an administrator's configuration on a second
# install, and the installed files let the installed binary's first run
# (slotag -l, then slotag -r) succeed on the simulated server.
# Arguments: BUILD-DIR SOURCE-DIR SLOTAG-SIM
set -u
build=$1 src=$2 sim=$3
work=$(mktemp -d /tmp/slotag-install.XXXXXX)
trap 'rm -rf "$work"' EXIT
dest=$work/dest
fail=0
bad() { echo "FAIL: $*"; fail=1; }

DESTDIR=$dest cmake --install "$build" >"$work/install.out" || { cat "$work/install.out"; exit 1; }

# expect PATH MODE TYPE: the installed file's octal mode and file type
expect() {
    local got
    got=$(stat -c '%a %F' "$dest/$1" 2>/dev/null) || { bad "$1 is missing"; return; }
    [ "$got" = "$2 $3" ] || bad "$1 is '$got', wanted '$2 $3'"
}
expect etc/opt/KVTPslotag/hba_addr.conf 600 "regular file"
expect etc/opt/KVTPslotag/alterpm.conf 644 "regular file"
expect var/opt/KVTPslotag/log 750 directory
expect var/opt/KVTPslotag/lock 755 directory
expect var/opt/KVTPslotag/lock/.slotag.lock 600 "regular empty file"
expect lib/systemd/system/slotag-register.service 644 "regular file"
expect lib/udev/rules.d/60-slotag.rules 644 "regular file"
expect usr/share/doc/slotag/copyright 644 "regular file"
expect usr/share/doc/slotag/changelog.gz 644 "regular file"
for cmd in slotag slotag-show slotag-locate; do
    expect opt/KVTPslotag/bin/$cmd 755 "regular file"
    [ "$(readlink "$dest/usr/sbin/$cmd")" = /opt/KVTPslotag/bin/$cmd ] ||
        bad "usr/sbin/$cmd does not link to /opt/KVTPslotag/bin/$cmd"
    cmp -s "$build/$cmd" "$dest/opt/KVTPslotag/bin/$cmd" || bad "the installed $cmd is not the build's"
done
grep -q '^ExecStart=/opt/KVTPslotag/bin/slotag -r$' "$dest/lib/systemd/system/slotag-register.service" ||
    bad "the unit does not run the installed binary"
# every man page and completion file of the source tree, whatever it is
for page in "$src"/docs/*.[1-8]; do
    name=${page##*/}
    gz=$dest/usr/share/man/man${name##*.}/$name.gz
    zcat "$gz" 2>/dev/null | cmp -s - "$page" || bad "man page $name is not installed as ${gz#"$dest"/}"
done
for f in "$src"/bash-completion/*; do
    [ -e "$f" ] || continue
    cmp -s "$f" "$dest/usr/share/bash-completion/completions/${f##*/}" || bad "completion ${f##*/} is not installed"
done
writable=$(find "$dest" -perm -o+w ! -type l)
[ -z "$writable" ] || bad "world-writable: $writable"

# The first run, on the installed configuration and state as they are.
root=$work/sim
"$sim" build "$root" "$src/tests/pkg/topology" >/dev/null || exit 1
rm -rf "$root/etc" "$root/var"
cp -a "$dest/etc/opt/KVTPslotag" "$root/etc"
cp -a "$dest/var/opt/KVTPslotag" "$root/var"
tool=$dest/opt/KVTPslotag/bin/slotag
"$sim" run "$root" -- "$tool" -l >"$work/list.out" 2>"$work/list.err"
rc=$?
[ $rc -eq 0 ] || bad "first run of slotag -l: status $rc: $(cat "$work/list.err")"
cmp -s "$work/list.out" "$src/packaging/hba_addr.conf" || bad "slotag -l did not print the installed table"
echo "hba1,/dev/sdb 0000:05:01.0" >>"$root/etc/hba_addr.conf"
"$sim" run "$root" -- "$tool" -r >/dev/null 2>"$work/reg.err" || bad "slotag -r after install: $(cat "$work/reg.err")"
"$sim" dump "$root" | grep -q 'bus_id="0000:05:01.0"' || bad "slotag -r did not register the table's adapter"
[ "$(stat -c %a "$root/var/log/user.log" 2>/dev/null)" = 640 ] || bad "the log is not created 0640"

# A second install keeps the administrator's files.
echo "hba9,/dev/sdz 0000:09:00.0" >>"$dest/etc/opt/KVTPslotag/hba_addr.conf"
echo "1077:2532:*" >>"$dest/etc/opt/KVTPslotag/alterpm.conf"
echo "held" >"$dest/var/opt/KVTPslotag/lock/.slotag.lock"
DESTDIR=$dest cmake --install "$build" >/dev/null || bad "second install failed"
tail -n 1 "$dest/etc/opt/KVTPslotag/hba_addr.conf" | grep -q '^hba9,' || bad "a reinstall replaced hba_addr.conf"
tail -n 1 "$dest/etc/opt/KVTPslotag/alterpm.conf" | grep -q '^1077:2532:\*' || bad "a reinstall replaced alterpm.conf"
grep -q held "$dest/var/opt/KVTPslotag/lock/.slotag.lock" || bad "a reinstall replaced the lock file"

[ $fail -eq 0 ] && echo "install layout, modes and first run: ok"
exit $fail
