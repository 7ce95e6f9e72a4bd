#!/bin/sh
# /init of the test VM. Loads the modules, runs the installed slotag on the
# real kernel and keeps what it and the kernel show under /out; the host
# (bed.py) judges. Messages for the host go to the second serial port, so
# kernel messages never mix with them: "@@ WORD" lines, then the archive.
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
/bin/busybox --install -s /bin
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
mount -t debugfs debugfs /sys/kernel/debug
exec 3>/dev/ttyS1
say() { echo "@@ $*" >&3; }
bail() { say "bed $*"; poweroff -f; }

for m in $(cat /modules/order); do insmod "/modules/$m" || bail "insmod $m failed"; done
# the functions that carry the test disks: the adapters with power management
pm_funcs=$(grep -l '0x8086' /sys/bus/pci/devices/*/vendor | while read -r v; do
    d=${v%/vendor}; case $(cat "$d/device") in 0x1209|0x10d3) basename "$d";; esac; done)
[ -n "$pm_funcs" ] || bail "no adapter with power management found"
insmod /modules/pm_disk.ko parent="$(echo $pm_funcs | tr ' ' ,)" || bail "pm_disk failed"
insmod /modules/slotag_rec.ko || bail "slotag_rec failed"
want=$(( $(echo $pm_funcs | wc -w) + 2 ))
i=0
while [ "$(ls /sys/block | grep -c '^sd')" -lt "$want" ]; do
    i=$((i + 1)); [ $i -gt 300 ] && bail "only $(ls /sys/block | tr '\n' ' ') after 30 s"; sleep 0.1
done

O=/out; mkdir -p $O/pci $O/cases
# Ground truth: each function's configuration space, the SHPC registers
# through pciutils, the slots and their owners, the disks' sysfs paths.
facts() {
    d=$O/pci/$1; mkdir -p "$d"
    # the listing order of the directory, as a program reading it sees it
    find /sys/bus/pci/devices/ -mindepth 1 -maxdepth 1 | sed 's|.*/||' >"$d/order"
    for p in /sys/bus/pci/devices/*; do
        n=$(basename "$p"); cat "$p/config" >"$d/$n.config"
        readlink -f "$p" >"$d/$n.path"
        if setpci -s "$n" CAP_HOTPLUG+2.b >/dev/null 2>&1; then
            for r in 1 2 3 4; do
                setpci -s "$n" CAP_HOTPLUG+2.b=$r; echo "$r $(setpci -s "$n" CAP_HOTPLUG+4.l)"
            done >"$d/$n.shpc"
        fi
    done
    for s in /sys/bus/pci/slots/*; do
        [ -e "$s/address" ] && echo "$(basename "$s") $(cat "$s/address") $(basename "$(readlink "$s/module")")"
    done >"$d/slots"
    lspci -D -vvv >"$d/lspci" 2>&1
    for b in /sys/block/sd*; do echo "$(basename "$b") $(readlink -f "$b/device")"; done >"$d/disks"
}
facts boot

# rec [PARAM=VALUE...]: a fresh recording driver for the next case
rec() { rmmod slotag_rec; insmod /modules/slotag_rec.ko "$@"; }
# run NAME TOOL ARGS...: one case; its output, status, table, log and requests
run() {
    c=$O/cases/$1; shift; mkdir -p "$c/root/state/requests"
    "$@" >"$c/out" 2>"$c/err"; echo $? >"$c/rc"
    cp /etc/opt/KVTPslotag/hba_addr.conf "$c/table"
    cp /var/opt/KVTPslotag/log/user.log "$c/log" 2>/dev/null
    cp /sys/kernel/debug/slotag/* "$c/root/state/requests/" 2>/dev/null
    echo "$*" >"$c/cmd"
    rec
}
disk_of() { awk -v f="$1" '$2 ~ "/"f"/" { print $1; exit }' $O/pci/boot/disks; }
virtio=$(awk '$2 ~ /virtio/ { print $1; exit }' $O/pci/boot/disks)
lsi=$(awk -v pm="$pm_funcs" '$2 !~ /virtio/ { split($2, p, "/"); for (i in p) if (index(pm, p[i])) next;
    print $1; exit }' $O/pci/boot/disks)

# each adapter with power management by its disk, the second by a partition
n=0
for f in $pm_funcs; do
    n=$((n + 1)); part=; [ $n = 2 ] && part=1
    run add_$n slotag -a "/dev/$(disk_of "$f")$part"
done
run add_virtio slotag -a "/dev/$virtio"
run add_no_pm slotag -a "/dev/$lsi"
run list slotag -l
slotag-show --json >$O/cases/show.json 2>&1
run register slotag -r
if [ -x /usr/sbin/slotag32 ]; then
    run register32 slotag32 -r
    # the 32-bit SCSI request goes through the kernel's compat path
    run add32 slotag32 -a "/dev/$(disk_of "$f")1"
fi
rec reject=set_hba reject_errno=5 err_num=1
run reject_hba slotag -r
rec reject=set_shpc reject_errno=22 err_num=1 device_err_num=1
run reject_shpc slotag -r
first_label=$(awk 'NF == 2 && $1 !~ /^#/ { sub(/,.*/, "", $1); print $1; exit }' /etc/opt/KVTPslotag/hba_addr.conf)
run change slotag -c "$first_label" renamed
run delete slotag -d renamed

# Slot indicators: slotag-locate from each disk, and every slot's attention
# state as the kernel then reads it back ("-": it cannot be read)
attention() { for s in /sys/bus/pci/slots/*; do
    echo "$(basename "$s") $(cat "$s/attention" 2>/dev/null || echo -)"; done; }
disks=/dev/$lsi; for f in $pm_funcs; do disks="$disks /dev/$(disk_of "$f")"; done
attention >$O/attention
run show_disks slotag-show --json $disks
run locate_on slotag-locate --json $disks; attention >$O/cases/locate_on/attention
run locate_off slotag-locate --off --json $disks; attention >$O/cases/locate_off/attention

# Live hot-plug: the host adds adapters, the guest's hot-plug drivers bring
# them up; each new function is labelled and registered.
ls /sys/bus/pci/devices >$O/before
say hotplug-add
i=0
while [ "$(ls /sys/bus/pci/devices | wc -l)" -lt "$(( $(wc -l <$O/before) + 2 ))" ]; do
    i=$((i + 1)); [ $i -gt 600 ] && bail "hot-added adapters did not appear"; sleep 0.1
    # an SHPC slot is powered by the administrator (QEMU presses no button)
    for s in /sys/bus/pci/slots/*; do
        [ "$(cat "$s/adapter")" = 1 ] && [ "$(cat "$s/power")" = 0 ] && echo 1 >"$s/power"
    done 2>/dev/null
done
facts hotplug
for n in $(ls /sys/bus/pci/devices | grep -vxF -f $O/before); do
    echo "hot$n,/dev/none $n" >>/etc/opt/KVTPslotag/hba_addr.conf
done
slotag-show --json >$O/cases/show-hotplug.json 2>&1
run register_hotplug slotag -r
say hotplug-remove
i=0
while [ "$(ls /sys/bus/pci/devices | wc -l)" -gt "$(( $(wc -l <$O/before) + 1 ))" ]; do
    i=$((i + 1)); [ $i -gt 600 ] && bail "the removed adapter is still there"; sleep 0.1
done
facts removed
run register_removed slotag -r

say archive
tar -C $O -cz . | base64 >&3
say end
poweroff -f
