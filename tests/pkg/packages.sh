#!/bin/bash
# The packages made by cpack: lintian finds no error in the .deb (its
# overrides carry their reasons), its program is still hardened, and the RPM, made from the same install
# rules, holds the same files with the same modes, the two configuration
# files as %config(noreplace) and nothing else as configuration, and the
# script that makes the log directory and lock file.
# Arguments: BUILD-DIR
set -u
build=$1
deb=$(ls "$build"/packages/slotag_*.deb 2>/dev/null | head -n 1)
rpm=$(ls "$build"/packages/slotag-*.rpm 2>/dev/null | head -n 1)
[ -n "$deb" ] && [ -n "$rpm" ] || { echo "no packages in $build/packages: run cpack there first"; exit 1; }
work=$(mktemp -d /tmp/slotag-packages.XXXXXX)
trap 'rm -rf "$work"' EXIT
fail=0
bad() { echo "FAIL: $*"; fail=1; }

lintian -I --pedantic "$deb" 2>/dev/null | tee "$work/lintian.out"
grep -q '^E: ' "$work/lintian.out" && bad "lintian reports errors"

# The packaged (stripped) programs keep the build's hardening.
dpkg-deb -x "$deb" "$work/x" || exit 1
for cmd in slotag slotag-locate; do
    bash "$(dirname "$0")/../hardening.sh" "$work/x/opt/KVTPslotag/bin/$cmd" >"$work/hardening.out" ||
        bad "the packaged $cmd: $(grep MISSING "$work/hardening.out")"
done

# "MODE PATH" of every file and link, from each package
dpkg-deb -c "$deb" | awk '$1 !~ /^d/ { sub(/^\./, "", $6); print $1, $6 }' | sort >"$work/deb.files"
rpm -qlvp "$rpm" 2>/dev/null | awk '$1 !~ /^d/ && $9 !~ /^\/usr\/lib\/\.build-id\// { print $1, $9 }' |
    sort >"$work/rpm.files"
[ -s "$work/deb.files" ] || bad "no files listed in the .deb"
diff "$work/deb.files" "$work/rpm.files" >"$work/diff" || bad "the packages differ: $(cat "$work/diff")"
grep -qx -- '-rwxr-xr-x /opt/KVTPslotag/bin/slotag' "$work/rpm.files" || bad "RPM: no program"
grep -qx -- '-rw------- /etc/opt/KVTPslotag/hba_addr.conf' "$work/rpm.files" || bad "RPM: the table is not 0600"
rpm -qp --qf '[%{FILEFLAGS:fflags}|%{FILENAMES}\n]' "$rpm" 2>/dev/null |
    awk -F'|' '$1 ~ /c/ { print $1, $2 }' | sort >"$work/config"
printf '%s\n' "cn /etc/opt/KVTPslotag/alterpm.conf" "cn /etc/opt/KVTPslotag/hba_addr.conf" |
    diff - "$work/config" >/dev/null || bad "RPM configuration files: $(cat "$work/config")"
rpm -qp --scripts "$rpm" 2>/dev/null | grep -q 'install -m 0600 /dev/null "$state/lock/.slotag.lock"' ||
    bad "RPM: no %post making the lock file"

[ $fail -eq 0 ] && echo "lintian and the RPM's files: ok"
exit $fail
