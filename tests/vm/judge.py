"""Judges the VM cases: what slotag printed, wrote and handed the recording
driver, against what the guest's kernel and pciutils showed (configuration
space, lspci -vvv, the SHPC registers read with setpci, the slots, the
disks' sysfs paths)."""
import json
import os
import re
import subprocess

from compare_records import compare, parse_dump

BUSID = re.compile(r"^([0-9a-f]{4}):([0-9a-f]{2}):([0-9a-f]{2})\.([0-7])$")


def read(path, mode="r"):
    with open(path, mode) as f:
        return f.read()


class Facts:
    """The PCI functions as the guest saw them at one moment."""

    def __init__(self, d):
        self.order = read(os.path.join(d, "order")).split()
        self.config = {n: read(os.path.join(d, n + ".config"), "rb") for n in self.order}
        self.path = {n: read(os.path.join(d, n + ".path")).strip() for n in self.order}
        self.shpc = {}
        for n in self.order:
            p = os.path.join(d, n + ".shpc")
            if os.path.exists(p):
                self.shpc[n] = {int(i): int(v, 16) for i, v in
                                (line.split() for line in read(p).splitlines())}
        self.slots = [line.split() for line in read(os.path.join(d, "slots")).splitlines()]
        self.disks = dict(line.split() for line in read(os.path.join(d, "disks")).splitlines())
        self.caps, self.port = {}, {}
        current = None
        for line in read(os.path.join(d, "lspci")).splitlines():
            m = re.match(r"^([0-9a-f]{4}:\S+) ", line)
            if m:
                current = m.group(1)
                self.caps[current] = {}
            m = re.search(r"Capabilities: \[([0-9a-f]+)\] (.*)", line)
            if m and current:
                self.caps[current][m.group(2)] = int(m.group(1), 16)
            m = re.search(r"SltCap:.*PwrCtrl([+-])", line)
            if m and current:
                self.port[current] = (m.group(1) == "+", None)
            m = re.search(r"^\s+Slot #(\d+),", line)
            if m and current in self.port:
                self.port[current] = (self.port[current][0], int(m.group(1)))

    def cap(self, n, prefix):
        return next((off for text, off in self.caps[n].items() if text.startswith(prefix)), 0)

    def byte(self, n, off):
        return self.config[n][off]

    def parent(self, n):
        return os.path.basename(os.path.dirname(self.path[n]))

    def adapter_of_disk(self, disk):
        """The device above the disk's SCSI host: a PCI function or not."""
        parts = self.disks[disk].split("/")
        host = next(i for i, p in enumerate(parts) if re.match(r"host\d+$", p))
        return parts[host - 1]

    def controllers(self):
        """Hot-plug controllers in listing order, as pciutils decodes them."""
        out = []
        for n in self.order:
            shpc = self.cap(n, "Hot-plug capable")
            exp = self.cap(n, "Express") if "Downstream Port (Slot+)" in "".join(self.caps[n]) else 0
            if shpc:
                regs = self.shpc[n]
                speed = regs[4] & 7
                avail = [regs[1] & 0x1f, regs[2] & 0x1f, regs[1] >> 8 & 0x1f,
                         regs[1] >> 16 & 0x1f, regs[1] >> 24 & 0x1f][speed]
                c = dict(magic=0xFEEDBEEF, cap_offset=shpc, slots_available_1=regs[1],
                         slots_available_2=regs[2], slot_config=regs[3], sec_bus_config=regs[4],
                         first=regs[3] >> 8 & 0x1f, count=avail)
            elif exp and self.port.get(n, (False,))[0]:
                c = dict(magic=0x7ED4BEEF, cap_offset=exp, slots_available_1=0,
                         slots_available_2=0, slot_config=0, sec_bus_config=0)
            else:
                continue
            d, b, dev, fn = (int(x, 16) for x in BUSID.match(n).groups())
            c.update(bus_id=n, domain=d, bus=b, device=dev, function=fn,
                     revision=self.byte(n, 8), header_type=self.byte(n, 0xE),
                     class_code=self.byte(n, 0xA) | self.byte(n, 0xB) << 8,
                     secondary_bus=self.byte(n, 0x19))
            out.append(c)
        return out

    def covers(self, c, busid):
        d, b, dev, _ = (int(x, 16) for x in BUSID.match(busid).groups())
        if d != c["domain"] or b != c["secondary_bus"]:
            return False
        return c["magic"] == 0x7ED4BEEF or c["first"] <= dev < c["first"] + c["count"]

    def adapter(self, busid):
        d, b, dev, fn = (int(x, 16) for x in BUSID.match(busid).groups())
        return dict(magic=0xBEEF2BAD, alt_pm=0, domain=d, bus=b, device=dev, function=fn,
                    revision=self.byte(busid, 8), pm_cap=self.cap(busid, "Power Management"),
                    header_type=self.byte(busid, 0xE), bus_id=busid)


def labelled(table_text):
    seen = []
    for line in table_text.splitlines():
        words = line.split("#")[0].split()
        if len(words) == 2 and words[1] not in seen:
            seen.append(words[1])
    return seen


def record_diffs(facts, table_text, outside, table):
    """Every field of the records against the ground truth."""
    diffs = []
    ctrls = facts.controllers()
    lists = [[] for _ in ctrls]
    rest = []
    for busid in labelled(table_text):
        i = next((i for i, c in enumerate(ctrls) if facts.covers(c, busid)), None)
        (rest if i is None else lists[i]).append(facts.adapter(busid))

    def same(where, want, got):
        for k, v in want.items():
            if k in got and got[k] != v:
                diffs.append(f"{where} {k}: kernel shows {v!r}, driver got {got[k]!r}")

    def same_list(where, want, got):
        if [a["bus_id"] for a in want] != [r.get("bus_id") for r in got["records"]]:
            diffs.append(f"{where}: kernel places {[a['bus_id'] for a in want]}, driver got "
                         f"{[r.get('bus_id') for r in got['records']]}")
        for i, (a, r) in enumerate(zip(want, got["records"]), 1):
            same(f"{where} adapter {i}", a, r)

    got = table["controllers"]
    if [c["bus_id"] for c in ctrls] != [g.get("bus_id") for g in got]:
        diffs.append(f"controllers: kernel shows {[c['bus_id'] for c in ctrls]}, driver got "
                     f"{[g.get('bus_id') for g in got]}")
    for i, (c, g) in enumerate(zip(ctrls, got), 1):
        tried = (g["first_device"], g["slot_count"]) != (0, 0)
        want = {k: v for k, v in c.items() if k not in ("first", "count")}
        if c["magic"] == 0xFEEDBEEF and tried:
            want.update(first_device=c["first"], slot_count=c["count"])
        same(f"controller {i}", dict(want, hba_count=len(lists[i - 1])), g)
        same_list(f"controller {i}", lists[i - 1], g["list"])
    same_list("outside", rest, outside)
    size = 20 + 76 * len(ctrls) + sum(8 + 36 * len(x) for x in lists)
    same("table", dict(count=len(ctrls), total_size=size,
                       max_hba_count=max([len(x) for x in lists], default=0)), table)
    return diffs


def slot_diffs(facts, report):
    """slotag-show's physical slot numbers and the kernel's slot names."""
    diffs = []
    for c in report["controllers"]:
        n = c["bus_id"]
        for s in c["slots"]:
            dev = s["device"] if s["device"] is not None else 0
            address = f"{n[:4]}:{c['secondary_bus']:02x}:{dev:02x}"
            names = sorted(x[0] for x in facts.slots if x[1] == address)
            if sorted(s["sysfs_slots"]) != names:
                diffs.append(f"{n} slot {address}: kernel names {names}, report {s['sysfs_slots']}")
            if c["kind"] == "pcie_port":
                want = facts.port[n][1]
            else:
                psn, up = c["slot_config"] >> 16 & 0x7FF, c["slot_config"] >> 29 & 1
                k = dev - c["first_device"]
                want = psn + k if up else psn - k
            if s["physical_slot"] != want:
                diffs.append(f"{n} slot {address}: physical slot {want}, report {s['physical_slot']}")
    return diffs


class Case:
    """One run of the tool in the guest."""

    def __init__(self, out, name, sim):
        self.d = os.path.join(out, "cases", name)
        self.rc = int(read(os.path.join(self.d, "rc")))
        self.out, self.err = read(os.path.join(self.d, "out")), read(os.path.join(self.d, "err"))
        self.table = read(os.path.join(self.d, "table"))
        self.log = read(os.path.join(self.d, "log")) if os.path.exists(
            os.path.join(self.d, "log")) else ""
        self.dump = subprocess.run([sim, "dump", os.path.join(self.d, "root")], check=True,
                                   stdout=subprocess.PIPE, text=True).stdout

    def requests(self):
        return re.findall(r"^request \d+: (.*)$", self.dump, re.M)

    def records(self):
        return parse_dump(self.dump)


def load_json(path):
    with open(path) as f:
        return json.load(f)
