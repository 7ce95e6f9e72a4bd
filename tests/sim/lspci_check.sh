#!/bin/bash
# The generated configuration spaces, read by a decoder that is not ours:
# pciutils' lspci, pointed at the simulated sysfs tree, must see the SHPC
# bridge's hot-plug capability, the downstream port's power-controlled slot,
# the ports' types, the adapters' power management and the IDs and classes.
# usage: lspci_check.sh SLOTAG-SIM
set -u
sim=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
command -v lspci >/dev/null || { echo "lspci (pciutils) is not installed"; exit 1; }

cat >"$work/topology" <<'TOPOLOGY'
bridge 0000:00:1e.0 secondary=7 vendor=0x8086 device=0x0329 rev=9
  pm
  shpc speed=pcix133 slots=4 first=1
adapter 0000:07:01.0 vendor=0x1077 device=0x2432 rev=3
  pm
adapter 0000:07:02.0 vendor=0x1077 device=0x2532 rev=2 multi
adapter 0000:07:02.1 vendor=0x1077 device=0x2532 rev=2 multi size=4096
  pm pmc=0xc9c3
port 0000:00:01.0 root secondary=8
port 0000:08:00.0 upstream secondary=9
port 0000:09:01.0 downstream secondary=10 slot power pslot=3
port 0000:09:02.0 downstream secondary=11 slot
port 0000:09:03.0 downstream secondary=12
adapter 0001:0a:00.0 class=0x010700 vendor=0x9005 device=0x028d rev=1
  pcie type=endpoint
  pm
TOPOLOGY
"$sim" build "$work/root" "$work/topology" || exit 1

# Numeric IDs only, so the name database of the machine does not matter.
lspci -A linux-sysfs -O sysfs.path="$work/root/sys/bus/pci" -D -n -vvv >"$work/lspci.out" 2>"$work/lspci.err" || {
    echo "lspci failed"; cat "$work/lspci.err"; exit 1; }

grep -E '^[0-9a-f]{4}:|Capabilities:|SltCap:|PwrCtrl|Bus: primary|Flags: PMEClk|Express \(' "$work/lspci.out" \
    | sed -E 's/[[:space:]]+$//' >"$work/actual"
cat >"$work/expected" <<'EXPECTED'
0000:00:01.0 0604: 10b5:8748 (rev ca) (prog-if 00 [Normal decode])
	Bus: primary=00, secondary=08, subordinate=08, sec-latency=0
	Capabilities: [40] Express (v2) Root Port (Slot-), MSI 00
0000:00:1e.0 0604: 8086:0329 (rev 09) (prog-if 00 [Normal decode])
	Bus: primary=00, secondary=07, subordinate=07, sec-latency=0
	Capabilities: [40] Power Management version 3
		Flags: PMEClk- DSI- D1- D2- AuxCurrent=0mA PME(D0-,D1-,D2-,D3hot-,D3cold-)
	Capabilities: [48] Hot-plug capable
0000:07:01.0 0c04: 1077:2432 (rev 03)
	Capabilities: [40] Power Management version 3
		Flags: PMEClk- DSI- D1- D2- AuxCurrent=0mA PME(D0-,D1-,D2-,D3hot-,D3cold-)
0000:07:02.0 0c04: 1077:2532 (rev 02)
0000:07:02.1 0c04: 1077:2532 (rev 02)
	Capabilities: [40] Power Management version 3
		Flags: PMEClk- DSI- D1- D2- AuxCurrent=375mA PME(D0+,D1-,D2-,D3hot+,D3cold+)
0000:08:00.0 0604: 10b5:8748 (rev ca) (prog-if 00 [Normal decode])
	Bus: primary=08, secondary=09, subordinate=09, sec-latency=0
	Capabilities: [40] Express (v2) Upstream Port, MSI 00
0000:09:01.0 0604: 10b5:8748 (rev ca) (prog-if 00 [Normal decode])
	Bus: primary=09, secondary=0a, subordinate=0a, sec-latency=0
	Capabilities: [40] Express (v2) Downstream Port (Slot+), MSI 00
		SltCap:	AttnBtn- PwrCtrl+ MRL- AttnInd- PwrInd- HotPlug+ Surprise-
0000:09:02.0 0604: 10b5:8748 (rev ca) (prog-if 00 [Normal decode])
	Bus: primary=09, secondary=0b, subordinate=0b, sec-latency=0
	Capabilities: [40] Express (v2) Downstream Port (Slot+), MSI 00
		SltCap:	AttnBtn- PwrCtrl- MRL- AttnInd- PwrInd- HotPlug- Surprise-
0000:09:03.0 0604: 10b5:8748 (rev ca) (prog-if 00 [Normal decode])
	Bus: primary=09, secondary=0c, subordinate=0c, sec-latency=0
	Capabilities: [40] Express (v2) Downstream Port (Slot-), MSI 00
0001:0a:00.0 0107: 9005:028d (rev 01)
	Capabilities: [40] Express (v2) Endpoint, MSI 00
	Capabilities: [7c] Power Management version 3
		Flags: PMEClk- DSI- D1- D2- AuxCurrent=0mA PME(D0-,D1-,D2-,D3hot-,D3cold-)
EXPECTED
if ! diff -u "$work/expected" "$work/actual"; then
    echo "lspci decodes the simulated configuration spaces differently (full output follows)"
    cat "$work/lspci.out"
    exit 1
fi

# The header type's multi-function bit, which -vvv does not show.
header=$(lspci -A linux-sysfs -O sysfs.path="$work/root/sys/bus/pci" -s 0000:07:02.0 -xxx \
    | awk '/^00:/ {print $16}')
[ "$header" = 80 ] || { echo "header type of 07:02.0 is '$header', not 80"; exit 1; }
echo "lspci decodes the simulated server"
