#!/bin/bash
# A tour of slotag on the embedded simulated server: the label table is
# listed, registered with the (simulated) hot-plug driver, edited and
# written back with backups, and entries are added by the disk or the
# volume-manager volume behind an adapter; a disk is traced to its slot,
# with what depends on its adapter, and the slot is lit. Run as root on
# Debian 12.
set -euo pipefail
cd "$(dirname "$0")"
bash scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target slotag slotag-show slotag-locate slotag-sim slotag-sim-preload >/dev/null

root=$(mktemp -d /tmp/slotag-tour.XXXXXX)
rmdir "$root"
build/sim/slotag-sim build "$root" docs/tour.topology
trap 'rm -rf "$root"' EXIT

step() { printf '\n\033[1m== %b\033[0m\n' "$*"; }
run() {  # run ARGS: the tool inside the simulated server
    printf '# slotag'; printf ' %q' "$@"; echo
    local rc=0
    build/sim/slotag-sim run "$root" -- "$PWD/build/slotag" "$@" || rc=$?
    echo "(exit status $rc)"
}
show() {  # show ARGS: slotag-show inside the simulated server
    printf '# slotag-show'; [ $# -gt 0 ] && printf ' %q' "$@"; echo
    local rc=0
    build/sim/slotag-sim run "$root" -- "$PWD/build/slotag-show" "$@" || rc=$?
    echo "(exit status $rc)"
}
locate() {  # locate ARGS: slotag-locate inside the simulated server
    printf '# slotag-locate'; printf ' %q' "$@"; echo
    local rc=0
    build/sim/slotag-sim run "$root" -- "$PWD/build/slotag-locate" "$@" || rc=$?
    echo "(exit status $rc)"
}
log_tail() {
    echo "-- the last $1 lines of /var/opt/KVTPslotag/log/user.log:"
    tail -n "$1" "$root/var/log/user.log"
}

cat >"$root/etc/hba_addr.conf" <<'TABLE'
# HBAs of rack 4 -- one line per PCI function: LABEL,DEVICE BUSID
fc0,/dev/sdb 0000:05:01.0   # port 1
fc0,/dev/sdb,kvpath 0000:05:01.1 # port 2

sas1,/dev/sdc 0000:05:02.0
nvme2,/dev/sdd 0000:21:00.0
boot,/dev/sda 0000:03:00.0
TABLE
echo '1000:0097:07   # SAS adapters of revision 7 want the alternative power management' >"$root/etc/alterpm.conf"

step "The label table, as the administrator wrote it (blanks and comments kept)"
run -l

step "See before you register: slotag-show reads the same table and hardware as\n   slotag -r and says what it would send, without calling the driver"
show

step "Register the table: controllers are found in PCI configuration space,\n   adapters sorted into their slots, alterpm.conf matches marked (alt_pm=1)"
run -r
echo "-- what the driver received (decoded by the simulator):"
build/sim/slotag-sim dump "$root" --clear

step "Rename a label: the table is registered, then replaced with a backup"
run -c sas1 sas-backup
echo "-- hba_addr.conf now:"; cat "$root/etc/hba_addr.conf"
echo "-- the previous version is hba_addr.conf.1"
build/sim/slotag-sim dump "$root" --clear >/dev/null

step "Delete a label; an unknown one is reported, the others still go"
run -d boot nosuch
echo "-- hba_addr.conf now:"; cat "$root/etc/hba_addr.conf"
build/sim/slotag-sim dump "$root" --clear >/dev/null

step "Add entries by the disk behind an adapter: the kernel names the disk's\n   adapter; a by-id link or a partition is kept as the label"
run -a /dev/disk/by-id/scsi-35000c500a1b2c3d4-part1
echo "-- hba_addr.conf now:"; cat "$root/etc/hba_addr.conf"
build/sim/slotag-sim dump "$root" --clear >/dev/null

step "Add a volume and a class of the volume manager: one entry per disk,\n   asked for through the volume manager; an operand that fails is reported\n   and the others still go"
run -a /dev/vdsdev/data/dsk/vol1 data /dev/nosuchdisk
echo "-- hba_addr.conf now:"; cat "$root/etc/hba_addr.conf"
echo "-- what the volume manager was asked (decoded by the simulator):"
build/sim/slotag-sim dump "$root" --clear | grep '^vds'

step "Mistakes are refused with a clear message and a status to act on"
run -c fc0 'bad label'
run -d
printf 'broken-line-without-busid\n' >>"$root/etc/hba_addr.conf"
run -l
log_tail 3

step "An adapter without the power-management capability cannot be registered"
sed -i '$d' "$root/etc/hba_addr.conf"
echo 'old-sas,/dev/sde 0000:04:00.0' >>"$root/etc/hba_addr.conf"
show | sed -n '/^Problems/,$p'
run -r
log_tail 3

step "Before a card is pulled: from a disk to its adapter, its slot, and what\n   would stop working without it"
show /dev/sdc1 data
step "Light the slot for whoever stands at the chassis, then put it out again"
locate /dev/sdc1
echo "-- /sys/bus/pci/slots/2/attention now reads: $(cat "$root/sys/bus/pci/slots/2/attention")"
locate --off /dev/sdc1
echo
echo "The tour is over; see docs/slotag.8, docs/slotag-show.8 and docs/slotag-locate.8 for every option and exit status."
