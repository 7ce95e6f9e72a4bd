#!/bin/bash
# What the scenario tests rely on the simulated server for: the mounts, the
# user and host name, the run lock holder, the exit status, the listing
# order of /sys/bus/pci/devices, the SHPC register window and the driver.
# usage: smoke.sh SLOTAG-SIM PRELOAD-LIBRARY SIM-PROBE [EMULATOR]
# (EMULATOR runs the probe where the kernel cannot, e.g. qemu-i386-static.)
set -u
sim=$1 preload=$2 probe=$3 emulator=${4:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

# check WHAT EXPECTED ACTUAL
check() {
    if [ "$2" != "$3" ]; then
        echo "FAIL: $1"
        diff -u <(printf '%s\n' "$2") <(printf '%s\n' "$3")
        failures=$((failures + 1))
    fi
}

build() {  # build NAME < TOPOLOGY
    root=$work/$1
    cat >"$work/$1.topology"
    "$sim" build "$root" "$work/$1.topology" || { echo "FAIL: build $1"; exit 1; }
}
sim_run() { "$sim" run "$root" --preload "$preload" "$@"; }
probe_tool=("$probe")
[ -n "$emulator" ] && probe_tool=("$emulator" "$probe")
probe() { sim_run -- "${probe_tool[@]}" "$@"; }

build main <<'TOPOLOGY'
# two SHPC bridges and an adapter behind the first
bridge 0000:00:1e.0 secondary=7
  shpc speed=pcix133 slots=4 first=1
adapter 0000:07:01.0
  pm
bridge 0000:00:1c.0 secondary=8
  pm
  shpc code=5 sa1=0x01020304 sa2=2 slotcfg=0x302 secbus=5 reg9=0xabcd
entry not-a-function
TOPOLOGY

# --- the fixed paths show the root's trees
printf 'label 0000:07:01.0\n' >"$root/etc/hba_addr.conf"
check "label table through /etc/opt" "label 0000:07:01.0" \
    "$(sim_run -- /bin/cat /etc/opt/KVTPslotag/hba_addr.conf 2>/dev/null)"
check "nothing else under /etc/opt" "KVTPslotag" "$(sim_run -- /bin/ls -A /etc/opt 2>/dev/null)"
printf 'Character devices:\n 99 vdsdev\n' >"$root/proc-devices"
check "/proc/devices" "$(printf 'Character devices:\n 99 vdsdev')" \
    "$(sim_run -- /bin/cat /proc/devices 2>/dev/null)"
rm "$root/proc-devices"
check "/proc/devices removed" "No such file or directory" "$(probe open /proc/devices 2>/dev/null)"
touch "$root/sbin/vdsstat"
check "/usr/sbin" "vdsstat" "$(sim_run -- /bin/ls /usr/sbin 2>/dev/null)"
check "lock file, log directory, /dev/null, /dev/slotag, /sys" "ok" \
    "$(sim_run -- /bin/sh -c 'test -f /var/opt/KVTPslotag/lock/.slotag.lock &&
        test -d /var/opt/KVTPslotag/log && echo x >/dev/null && test -e /dev/slotag &&
        test -f /sys/bus/pci/devices/0000:00:1e.0/config && echo ok' 2>/dev/null)"
check "no mount leaks to the host" "0" "$(grep -c "$work" /proc/self/mountinfo)"

# --- host name, user, environment, exit status
check "host name" "simhost" "$(sim_run -- /bin/uname -n 2>/dev/null)"
check "host's own name kept" "no" "$([ "$(uname -n)" = simhost ] && echo yes || echo no)"
check "--user by name" "65534" "$(sim_run --user nobody -- /usr/bin/id -u 2>/dev/null)"
check "--user by number" "4321 4321 4321" \
    "$(sim_run --user 4321 -- /bin/sh -c 'echo $(id -u) $(id -g) $(id -G)' 2>/dev/null)"
check "environment passed, library and state named" \
    "KESTREL $preload $root/state" \
    "$(KVTPslotag=KESTREL sim_run -- /bin/sh -c 'echo $KVTPslotag $LD_PRELOAD $SLOTAG_SIM_STATE' 2>/dev/null)"
sim_run -- /bin/sh -c 'exit 7' 2>/dev/null
check "exit status" "7" "$?"
sim_run -- /bin/sh -c 'kill -KILL $$' 2>/dev/null
check "killed by a signal" "137" "$?"

# --- --hold-lock: held from before the program starts, for that long
lock=/var/opt/KVTPslotag/lock/.slotag.lock
check "lock held, then released" "$(printf 'held 11\nreleased')" \
    "$(sim_run --hold-lock 5 -- "${probe_tool[@]}" lock $lock "$(date +%s.%N)" 5 2>/dev/null)"
start=$(date +%s)
sim_run --hold-lock 60 -- /bin/true 2>/dev/null
check "holder ended with the program" "yes" "$([ $(($(date +%s) - start)) -lt 10 ] && echo yes)"
check "lock free without --hold-lock" "free" "$(probe lock $lock 2>/dev/null)"

# --- /sys/bus/pci/devices in topology order, extras after it by name
mkdir "$root/sys/bus/pci/devices/zz-extra" "$root/sys/bus/pci/devices/aa-extra"
check "listing order" "$(printf '%s\n' . .. 0000:00:1e.0 0000:07:01.0 0000:00:1c.0 not-a-function aa-extra zz-extra)" \
    "$(probe list /sys/bus/pci/devices 2>/dev/null)"
printf '0000:00:1c.0\n0000:00:1e.0\n' >"$root/state/pci-order"
check "listing order from the state file" "$(printf '%s\n' . .. 0000:00:1c.0 0000:00:1e.0 0000:07:01.0 aa-extra not-a-function zz-extra)" \
    "$(probe list /sys/bus/pci/devices 2>/dev/null)"
# the order Debian's 6.1 kernel listed these functions in (QEMU q35)
listed="0000:03:00.0 0000:00:1f.2 0000:05:02.0 0000:00:1f.0 0000:00:10.0 0000:02:00.0 0000:01:00.0
0000:05:01.0 0000:00:1f.3 0000:00:00.0 0000:00:12.0 0000:00:11.0 0000:02:01.0"
saved=$root
build kernfs < <(printf 'function %s\n' $(printf '%s\n' $listed | sort); echo 'order kernfs')
check "listing in the kernel's order" "$(printf '%s\n' . .. $listed)" \
    "$(probe list /sys/bus/pci/devices 2>/dev/null)"
root=$saved
check "other directories keep the file system's order" "$(ls -f "$root/sys/bus/pci/devices/0000:07:01.0/")" \
    "$(probe list /sys/bus/pci/devices/0000:07:01.0 2>/dev/null)"

# --- SHPC window: select through a write-only open, data through a read-only one
a=/sys/bus/pci/devices/0000:00:1e.0/config   # SHPC at 0x40
b=/sys/bus/pci/devices/0000:00:1c.0/config   # PM at 0x40, SHPC at 0x48
cp "$root/sys/devices/pci0000:00/0000:00:1e.0/config" "$work/config.before"
check "shorthand registers 0-4" "$(printf '0x%08x\n' 0 0x04000000 0 0x00010104 0x01000004)" \
    "$(for i in 0 1 2 3 4; do probe shpc $a 0x40 $i 2>/dev/null; done)"
check "raw registers, unset ones read 0" "$(printf '0x%08x\n' 0x01020304 2 0x302 5 0xabcd 0)" \
    "$(for i in 1 2 3 4 9 10; do probe shpc $b 0x48 $i 2>/dev/null; done)"
check "selection kept per function across opens" "$(printf '0x%08x\n' 0x00010104 0x0000abcd)" \
    "$(probe shpc $a 0x40 3 $b 0x48 9 2>/dev/null)"
check "the last selection counts" "$(printf '0x%08x\n' 0x01000004 0x01000004)" \
    "$(probe shpc $a 0x40 1 $a 0x40 4 2>/dev/null)"
check "config file untouched by select writes" "same" \
    "$(cmp -s "$work/config.before" "$root/sys/devices/pci0000:00/0000:00:1e.0/config" && echo same)"

# --- the driver: records kept byte for byte, decoded by dump
check "no requests yet" "no driver requests" "$("$sim" dump "$root")"
check "requests answered" "$(printf '%s\n' 'SET_HBA rc=0 errno=- err_num=0' \
    'SET_SHPC rc=0 errno=- err_num=0 device_err_num=0')" "$(probe driver 2>/dev/null)"
check "raw sizes: 8+2x36, 20+76, 8+36" "80 96 44" \
    "$(cd "$root/state/requests" && stat -c %s 001-set_hba.bin 002-set_shpc.bin 002-set_shpc-hba_list-1.bin | xargs)"
check "dump" "request 1: SET_HBA 0xc004fe00 returned 0
  HbaInfoList count=2 err_num=0
    HbaInfo 1: magic=0xbeef2bad alt_pm=0 domain=0x0000 bus=0x05 device=0x00 function=0x0 revision=0x02 pm_cap=0x40 header_type=0x80 bus_id=\"0000:05:00.0\"
    HbaInfo 2: magic=0xbeef2bad alt_pm=1 domain=0x0000 bus=0x05 device=0x00 function=0x1 revision=0x02 pm_cap=0x40 header_type=0x80 bus_id=\"0000:05:00.1\"
request 2: SET_SHPC 0xc004fe01 returned 0
  ShpcInfoTable count=1 total_size=140 max_hba_count=1 err_num=0 device_err_num=0
  ShpcInfo 1: magic=0xfeedbeef domain=0x0000 bus=0x00 device=0x1e function=0x0 revision=0x09 header_type=0x01 bus_id=\"0000:00:1e.0\"
    class_code=0x0604 secondary_bus=0x07 cap_offset=0x48 first_device=1 slot_count=4
    slots_available_1=0x04000000 slots_available_2=0x00000000 slot_config=0x00010104 sec_bus_config=0x01000004
    hba_count=1 hba_list=set
    HbaInfoList count=1 err_num=0
      HbaInfo 1: magic=0xbeef2bad alt_pm=0 domain=0x0000 bus=0x07 device=0x01 function=0x0 revision=0x02 pm_cap=0x40 header_type=0x80 bus_id=\"0000:07:01.0\"" \
    "$("$sim" dump "$root" --clear)"
check "dump --clear forgets" "no driver requests" "$("$sim" dump "$root")"
if [ "$(od -An -tx1 -j4 -N1 "$probe" | tr -d ' ')" = 02 ]; then
    probe driver --high >/dev/null 2>&1
    check "a record above 4 GiB is refused" "request 1: SET_HBA 0xc004fe00 returned -1 errno=EFAULT: argument is not a 32-bit address" \
        "$("$sim" dump "$root" --clear | head -1)"
fi

build rejecting <<'TOPOLOGY'
driver reject set_hba errno=EBUSY err_num=2
driver reject set_shpc errno=EINVAL err_num=1 device_err_num=-1
TOPOLOGY
check "configured rejections" "$(printf '%s\n' 'SET_HBA rc=-1 errno=Device or resource busy err_num=2' \
    'SET_SHPC rc=-1 errno=Invalid argument err_num=1 device_err_num=-1')" "$(probe driver 2>/dev/null)"
check "rejections recorded" "$(printf '%s\n' 'request 1: SET_HBA 0xc004fe00 returned -1 errno=EBUSY err_num=2' \
    'request 2: SET_SHPC 0xc004fe01 returned -1 errno=EINVAL err_num=1 device_err_num=-1')" \
    "$("$sim" dump "$root" | grep '^request')"

build absent <<'TOPOLOGY'
driver absent
TOPOLOGY
check "no /dev/slotag" "open /dev/slotag: No such file or directory" "$(probe driver 2>/dev/null)"

# --- misuse is refused before anything runs
"$sim" build "$work/main" "$work/main.topology" 2>/dev/null
check "build refuses a non-empty root" "125" "$?"
printf 'bridge 0000:00:01.0\n' >"$work/bad.topology"
check "topology errors name the line" "slotag-sim: $work/bad.topology:1: bridge 0000:00:01.0 needs secondary=BUS" \
    "$("$sim" build "$work/bad" "$work/bad.topology" 2>&1)"

if [ $failures -ne 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
echo "simulator smoke test passed"
