#!/usr/bin/env python3
"""The VM test bed: boots Debian's kernel under QEMU (q35) with SHPC bridges,
a PCI Express switch, SCSI adapters and the recording /dev/slotag, runs the
installed slotag there (guest.sh) and judges what it did against what the
guest's kernel and pciutils show. Prints one line per case and
"N passed, N failed"; exit 1 when a case failed, 2 when the bed itself did
not come up as designed (no boot, topology not as built).

bed.py SOURCE BUILD [M32-BUILD]"""
import difflib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
SRC, BUILD = sys.argv[1], sys.argv[2]
M32 = os.path.join(sys.argv[3], "slotag") if len(sys.argv) > 3 else ""
HERE = os.path.join(SRC, "tests", "vm")
sys.path.insert(0, os.path.join(SRC, "tests", "show"))
from compare_records import compare  # noqa: E402
from judge import Case, Facts, load_json, record_diffs, slot_diffs  # noqa: E402
sys.path.insert(0, os.path.join(SRC, "sim", "vm"))
from machine import MODES, BedFailure, boot, make_image, sh  # noqa: E402


def judge(out, sim):
    """(case, differences) for every case, in the order the guest ran them."""
    at_boot = Facts(os.path.join(out, "pci", "boot"))
    ctrls = at_boot.controllers()
    kinds = {c["magic"] for c in ctrls}
    if kinds != {0xFEEDBEEF, 0x7ED4BEEF} or len(at_boot.disks) != 5:
        raise BedFailure(f"topology not as built: controllers {[c['bus_id'] for c in ctrls]}, "
                         f"disks {sorted(at_boot.disks)}")
    results = []
    cases = {}

    def case(name, check):
        if not os.path.isdir(os.path.join(out, "cases", name)):
            results.append((name, ["the guest did not run it"]))
            return
        try:
            c = cases[name] = Case(out, name, sim)
            diffs = check(c)
        except (Exception, SystemExit) as e:  # output the judge cannot read is a failure too
            diffs = [f"cannot judge: {type(e).__name__}: {e}"]
        results.append((name, [d for d in diffs if d]))

    def status(c, rc):
        return None if c.rc == rc else f"status {c.rc}, wanted {rc}: {c.err.strip()}"

    def accepted(c):
        bad = [r for r in c.requests() if "returned 0" not in r]
        return None if len(c.requests()) == 2 and not bad else f"driver requests: {c.requests()}"

    def registered(c, facts, report=None):
        outside, table = c.records()
        diffs = record_diffs(facts, c.table, outside, table)
        if report is not None:
            diffs += slot_diffs(facts, report)
            if not compare(c.d, report, outside, table):
                diffs.append("slotag-show --json differs from the bytes the driver got")
        return diffs

    def unchanged(c, before):
        return [None if c.table == cases[before].table else "the table changed",
                None if c.requests() == [] else f"driver requests: {c.requests()}"]

    def added(c):
        node, disk, part = re.search(r"-a (/dev/(sd[a-z]+))(\d*)", read_cmd(c)).groups()
        line = f"{node}{part},{node} {at_boot.adapter_of_disk(disk)}"
        return [status(c, 0), accepted(c), *registered(c, at_boot),
                None if c.table.splitlines()[-1] == line else f"last line not {line!r}"]

    def logged(c, text):
        return re.search(r"ERR: <[^>]*>" + re.escape(text) + "$", c.log, re.M)

    def read_cmd(c):
        return open(os.path.join(c.d, "cmd")).read()

    # every controller's slots are the kernel's hot-plug slots too
    slots = {x[1]: x[2] for x in at_boot.slots}
    wanted = [f"{c['bus_id'][:4]}:{c['secondary_bus']:02x}:{d:02x}" for c in ctrls
              for d in (range(c["first"], c["first"] + c["count"]) if "first" in c else [0])]
    owners = ", ".join(sorted({slots.get(w, "none") for w in wanted}))
    results.append((f"slots (owned by {owners})",
                    [f"{w}: no kernel slot" for w in wanted if w not in slots]))
    for n in (1, 2, 3):
        case(f"add_{n}", added)
    case("add_virtio", lambda c: [status(c, 6), *unchanged(c, "add_3"),
                                  None if "failed to get a busID" in c.err else c.err])
    case("add_no_pm", lambda c: [status(c, 7), *unchanged(c, "add_3"),
                                 None if "fatal error(ce2)" in c.err else c.err])
    case("list", lambda c: [status(c, 0), None if c.out == c.table else "list is not the table"])
    case("register", lambda c: [status(c, 0), accepted(c)] +
         registered(c, at_boot, load_json(os.path.join(out, "cases", "show.json"))))
    def same_bytes(c):
        diff = difflib.unified_diff(cases["register"].dump.splitlines(), c.dump.splitlines(),
                                    lineterm="")
        return [status(c, 0), *["32-bit build sent other bytes: " + d for d in list(diff)[2:]]]
    if M32:
        case("register32", same_bytes)
        case("add32", added)

    def rejected_shpc(c):
        # the same table as the accepted registration, so the same records
        _, table = cases["register"].records()
        first = table["controllers"][0]
        lines = ["err_num 1 device_err_num 1",
                 f"{first['magic']:x} 0 {first['bus_id']}({first['revision']:x}) 0",
                 " ".join(f"{first[k]:x}" for k in (
                     "class_code", "secondary_bus", "cap_offset", "first_device", "slot_count",
                     "slots_available_1", "slots_available_2", "slot_config",
                     "sec_bus_config")) + " 0"]
        for a in first["list"]["records"][:1]:
            lines.append(f"{a['magic']:x} {a['alt_pm']:x} {a['bus_id']}({a['revision']:x}) "
                         f"{a['pm_cap']:x}")
        return [status(c, 9), None if "(16:e73)" in c.err else c.err] + [
            None if logged(c, x) else f"log lacks {x!r}" for x in lines]
    def rejected_hba(c):
        a = cases["register"].records()[0]["records"][0]
        line = f"{a['magic']:x} {a['alt_pm']:x} {a['bus_id']}({a['revision']:x}) {a['pm_cap']:x}"
        return [status(c, 9), None if "(5:e5f)" in c.err else c.err,
                None if len(c.requests()) == 1 else "SET_SHPC was issued"] + [
            None if logged(c, x) else f"log lacks {x!r}" for x in ("err_num 1", line)]
    case("reject_hba", rejected_hba)
    case("reject_shpc", rejected_shpc)
    case("change", lambda c: [status(c, 0), accepted(c), *registered(c, at_boot),
                              None if re.search(r"^renamed,", c.table, re.M) else "not renamed"])
    case("delete", lambda c: [status(c, 0), accepted(c), *registered(c, at_boot),
                              None if "renamed," not in c.table else "not deleted"])

    def attention(path):
        return dict(line.split() for line in open(path).read().splitlines())

    def located(c, on):
        """Each disk's adapter and kernel slot; only those slots changed."""
        before = attention(os.path.join(out, "attention"))
        after = attention(os.path.join(c.d, "attention"))
        diffs, lit, worst = [], set(), 0
        for r in json.loads(c.out)["results"]:
            bus = at_boot.adapter_of_disk(os.path.basename(r["operand"]))
            kslots = [x for x in at_boot.slots if x[1] == bus[:10]]
            # outside every slot (3); firmware's acpiphp has no indicator (5)
            want = 3 if not kslots else 5 if kslots[0][2] == "acpiphp" else 0
            worst = max(worst, want)
            diffs += [None if r["bus_id"] == bus else f"{r['operand']}: adapter {r['bus_id']}, "
                      f"wanted {bus}",
                      None if r["status"] == want else f"{r['operand']}: status {r['status']}, "
                      f"wanted {want}: {r.get('error')}"]
            if want == 0:
                lit.add(r["kernel_slot"])
                state = ("1", "on") if on else ("0", "off")
                diffs += [None if r["kernel_slot"] in [x[0] for x in kslots] else
                          f"{r['operand']}: kernel slot {r['kernel_slot']}, wanted {kslots}",
                          None if (after.get(r["kernel_slot"]), r["attention"]) == state else
                          f"{r['kernel_slot']}: reads {after.get(r['kernel_slot'])}, "
                          f"reported {r['attention']}"]
        return [status(c, worst), None if lit or worst else "no slot was lit"] + diffs + [
            f"slot {n} changed from {v} to {after.get(n)}" for n, v in before.items()
            if n not in lit and after.get(n) != v]
    def reported(c):
        """Each disk: its adapter, the kernel's slot at its address, and the
        disk among what depends on the adapter."""
        diffs = []
        for t in json.loads(c.out)["targets"]:
            disk = os.path.basename(t["operand"])
            bus = at_boot.adapter_of_disk(disk)
            a = t["adapters"][0] if len(t["adapters"]) == 1 else {}
            kslots = [x for x in at_boot.slots if x[1] == bus[:10]]
            slot = a.get("slot", {})
            names = slot.get("kernel_slots", [])
            diffs += [None if a.get("bus_id") == bus else f"{disk}: adapters {t['adapters']}",
                      None if names == [x[0] for x in kslots] else
                      f"{disk}: kernel slots {names}, the kernel's {kslots}",
                      None if not kslots or slot.get("attention_indicator") ==
                      (kslots[0][2] != "acpiphp") else f"{disk}: indicator {slot}",
                      None if disk in [d["name"] for d in a.get("disks", [])] else
                      f"{disk} is not among the adapter's disks"]
        return [status(c, 0), *unchanged(c, "delete")] + diffs
    case("show_disks", reported)
    case("locate_on", lambda c: located(c, True))
    case("locate_off", lambda c: located(c, False))

    hot = Facts(os.path.join(out, "pci", "hotplug"))
    new = [n for n in hot.order if n not in at_boot.order]

    def hotplugged(c):
        _, table = c.records()
        where = {r["bus_id"]: g["bus_id"] for g in table["controllers"]
                 for r in g["list"]["records"]}
        return [status(c, 0), accepted(c), len(new) == 2 or f"new functions {new}"] + [
            None if where.get(n) == hot.parent(n) else
            f"{n} (below {hot.parent(n)}) registered under {where.get(n)}" for n in new] + \
            registered(c, hot, load_json(os.path.join(out, "cases", "show-hotplug.json")))
    case("register_hotplug", hotplugged)
    gone = [n for n in hot.order if n not in Facts(os.path.join(out, "pci", "removed")).order]
    case("register_removed", lambda c: [status(c, 9), None if "fatal error(ccb)" in c.err else c.err,
                                        None if len(gone) == 1 and f"device {gone[0]} is does not "
                                        "exist." in c.log else f"log: {gone} {c.log[-300:]}"])
    return results


def main():
    global M32
    if M32 and not os.path.exists(M32):
        print(f"vm: no 32-bit tool at {M32}: its case is left out")
        M32 = ""
    work = tempfile.mkdtemp(prefix="slotag-vm-")
    start = time.time()
    try:
        kdir = sh("bash", os.path.join(SRC, "sim", "vm", "kernel.sh")).strip()
        make_image(work, kdir, SRC, BUILD, M32, os.path.join(HERE, "guest.sh"))
        accel = "tcg"
        try:
            os.close(os.open("/dev/kvm", os.O_RDWR))
            accel = "kvm"
        except OSError:
            pass
        results = []
        for mode in MODES:
            out, accel = boot(work, kdir, mode, accel)
            results += [(f"{mode[0]}/{name}", diffs) for name, diffs in
                        judge(out, os.path.join(BUILD, "sim", "slotag-sim"))]
    except (BedFailure, subprocess.CalledProcessError) as e:
        print(f"vm: BED FAILURE: {e} (kernel messages: {work}/*/console)")
        sys.exit(2)
    failed = 0
    for name, diffs in results:
        diffs = [d for d in diffs if d is not None and d is not True]
        print(f"vm: {'FAIL' if diffs else 'ok  '} {name}")
        for d in diffs:
            print("      " + str(d).replace("\n", "\n      "))
        failed += bool(diffs)
    if failed:
        print(f"vm: the guest's files are in {work}")
    else:
        shutil.rmtree(work)
    print(f"vm: {time.time() - start:.0f} s")
    print(f"vm: {len(results) - failed} passed, {failed} failed")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
