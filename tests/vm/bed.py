#!/usr/bin/env python3
"""The VM test bed: boots Debian's kernel under QEMU (q35) with SHPC bridges,
a PCI Express switch, SCSI adapters and the recording /dev/slotag, runs the
installed slotag there (guest.sh) and judges what it did against what the
guest's kernel and pciutils show. Prints one line per case and
"N passed, N failed"; exit 1 when a case failed, 2 when the bed itself did
not come up as designed (no boot, topology not as built).

bed.py SOURCE BUILD [M32-BUILD]"""
import base64
import difflib
import io
import json
import os
import re
import shutil
import socket
import subprocess
import sys
import tarfile
import tempfile
import time

SRC, BUILD = sys.argv[1], sys.argv[2]
M32 = os.path.join(sys.argv[3], "slotag") if len(sys.argv) > 3 else ""
HERE = os.path.join(SRC, "tests", "vm")
sys.path.insert(0, os.path.join(SRC, "tests", "show"))
from compare_records import compare  # noqa: E402
from judge import Case, Facts, load_json, record_diffs, slot_diffs  # noqa: E402

MODULES = ["sd_mod", "sym53c8xx", "virtio_scsi", "virtio_pci"]
# The machine: adapters with power management in a switch's downstream
# port, in an SHPC bridge's slot and on the root bus (in no hot-plug slot);
# an LSI adapter without it; a virtio-scsi disk. dn2 and the bridge's slot 3
# stay free for the live hot-plug.
TOPOLOGY = [
    "pcie-root-port,id=rp1,chassis=1,slot=1,bus=pcie.0,addr=0x10",
    "x3130-upstream,id=up1,bus=rp1",
    "xio3130-downstream,id=dn1,bus=up1,chassis=2,slot=2",
    "xio3130-downstream,id=dn2,bus=up1,chassis=3,slot=3",
    "e1000e,bus=dn1",
    "pci-bridge,id=br1,chassis_nr=4,shpc=on,bus=pcie.0,addr=0x11",
    "i82559er,bus=br1,addr=1",
    "lsi53c895a,id=lsi,bus=br1,addr=2",
    "scsi-hd,bus=lsi.0,drive=d1",
    "virtio-scsi-pci,id=vs,bus=pcie.0,addr=0x12",
    "i82559er,bus=pcie.0,addr=0x13",
    "scsi-hd,bus=vs.0,drive=d2",
]
HOTPLUG = [("hot1", "e1000e", {"bus": "dn2"}),
           ("hot2", "i82559er", {"bus": "br1", "addr": "3"})]
REMOVE = "hot2"


class BedFailure(Exception):
    pass


def sh(*cmd, **kw):
    return subprocess.run(cmd, check=True, stdout=subprocess.PIPE, text=True, **kw).stdout


# ---- the image -------------------------------------------------------------

def module_closure(kdir, names):
    """Module files in load order (dependencies first), from their modinfo."""
    base = os.path.join(kdir, "root/lib/modules", os.path.basename(kdir), "kernel")
    files = {}
    for dirpath, _, fnames in os.walk(base):
        for f in fnames:
            if f.endswith(".ko"):
                files[f[:-3].replace("-", "_")] = os.path.join(dirpath, f)
    order = []

    def visit(name):
        if name in order:
            return
        data = open(files[name], "rb").read()
        m = re.search(rb"\0depends=([^\0]*)\0", data)
        for dep in filter(None, (m.group(1).decode() if m else "").split(",")):
            visit(dep.replace("-", "_"))
        order.append(name)
    for n in names:
        visit(n)
    return [files[n] for n in order]


def copy_with_libs(root, program, dest=None):
    """program (into dest, when given), its loader and the libraries it
    needs, found from its ELF headers: ldd would have to run it, which a host
    that cannot execute 32-bit programs cannot."""
    if dest:
        os.makedirs(os.path.dirname(root + dest), exist_ok=True)
        shutil.copy(program, root + dest)
    wide = open(program, "rb").read(5)[4] == 2
    dirs = (["/lib/x86_64-linux-gnu", "/usr/lib/x86_64-linux-gnu"] if wide else
            ["/lib32", "/usr/lib32"])
    heads = sh("readelf", "-dlW", program)
    wanted = re.findall(r"interpreter: (\S+)\]", heads)
    for lib in re.findall(r"\(NEEDED\)\s+Shared library: \[(\S+)\]", heads):
        found = next((os.path.join(d, lib) for d in dirs if os.path.exists(os.path.join(d, lib))))
        if not os.path.exists(root + found):
            wanted.append(found)
    for f in wanted:
        if not os.path.exists(root + f):
            os.makedirs(os.path.dirname(root + f), exist_ok=True)
            shutil.copy(f, root + f)
            copy_with_libs(root, f)


def make_image(work, kdir):
    kmod = os.path.join(work, "kmod")
    shutil.copytree(os.path.join(SRC, "sim", "kmod"), kmod)
    headers = os.path.join(kdir, "root/usr/src/linux-headers-" + os.path.basename(kdir))
    sh("make", "-s", "-C", headers, "M=" + kmod, "modules", stderr=subprocess.STDOUT)
    root = os.path.join(work, "root")
    os.makedirs(root + "/modules")
    for d in ("proc", "sys", "dev", "tmp", "out"):
        os.makedirs(os.path.join(root, d))
    subprocess.run(["cmake", "--install", BUILD], check=True, stdout=subprocess.DEVNULL,
                   env=dict(os.environ, DESTDIR=root))
    shutil.copy(os.path.join(HERE, "guest.sh"), root + "/init")
    os.chmod(root + "/init", 0o755)
    os.makedirs(root + "/bin", exist_ok=True)
    os.symlink("busybox", root + "/bin/sh")
    copy_with_libs(root, "/bin/busybox", "/bin/busybox")
    for tool in ("lspci", "setpci"):
        copy_with_libs(root, shutil.which(tool), "/usr/bin/" + tool)
    for tool in ("slotag", "slotag-show"):
        copy_with_libs(root, root + os.readlink(root + "/usr/sbin/" + tool))
    if M32:
        copy_with_libs(root, M32, "/usr/sbin/slotag32")
    names = []
    for f in module_closure(kdir, MODULES):
        shutil.copy(f, root + "/modules/")
        names.append(os.path.basename(f))
    open(root + "/modules/order", "w").write("\n".join(names) + "\n")
    for m in ("slotag_rec.ko", "pm_disk.ko"):
        shutil.copy(os.path.join(kmod, m), root + "/modules/")
    with open(os.path.join(work, "initrd"), "wb") as f:
        subprocess.run("find . | busybox cpio -o -H newc", shell=True, cwd=root, check=True,
                       stdout=f, stderr=subprocess.DEVNULL)


# ---- the machine -----------------------------------------------------------

class Qmp:
    def __init__(self, path):
        self.s = socket.socket(socket.AF_UNIX)
        for _ in range(100):
            try:
                self.s.connect(path)
                break
            except OSError:
                time.sleep(0.1)
        self.f = self.s.makefile("rw")
        self.f.readline()
        self.cmd("qmp_capabilities")

    def cmd(self, name, **args):
        self.f.write(json.dumps({"execute": name, "arguments": args}) + "\n")
        self.f.flush()
        while True:
            reply = json.loads(self.f.readline())
            if "return" in reply:
                return reply["return"]
            if "error" in reply:
                raise BedFailure(f"QMP {name}: {reply['error']['desc']}")


def start(here, cmd, accel):
    """QEMU with that accelerator, or None when KVM shows nothing: a /dev/kvm
    that opens may still not run a guest (seen in nested sandboxes)."""
    console = os.path.join(here, "console")
    print(f"vm: booting Debian's kernel under QEMU ({accel}, {os.path.basename(here)} hot-plug)",
          flush=True)
    qemu = subprocess.Popen(cmd + ["-accel", accel],
                            stderr=subprocess.DEVNULL if accel == "kvm" else None)
    if accel == "kvm":
        for _ in range(100):
            if qemu.poll() is None and os.path.exists(console) and os.path.getsize(console):
                return qemu
            time.sleep(0.1)
        qemu.kill()
        qemu.wait()
        print("vm: KVM ran no guest; software emulation instead", flush=True)
        return None
    return qemu


# The two ways the guest's hot-plug drivers meet the slots: q35's ACPI
# hot-plug (the default), and native SHPC and PCI Express hot-plug.
MODES = [("acpi", []), ("native", ["-global", "ICH9-LPC.acpi-pci-hotplug-with-bridge-support=off"])]


def boot(work, kdir, mode, accel):
    """Runs the guest; returns the directory of its files and the
    accelerator that worked."""
    name, extra = mode
    here = os.path.join(work, name)
    os.makedirs(here)
    for d in ("d1", "d2"):
        with open(os.path.join(here, d + ".img"), "wb") as f:
            f.truncate(1 << 20)
    results = os.path.join(here, "results")
    cmd = ["qemu-system-x86_64", "-M", "q35", "-m", "512", "-smp", "1",
           "-display", "none", "-no-reboot", "-nodefaults",
           "-kernel", os.path.join(kdir, "root/boot/vmlinuz-" + os.path.basename(kdir)),
           "-initrd", os.path.join(work, "initrd"),
           "-append", "console=ttyS0 panic=-1 loglevel=4",
           "-serial", "file:" + os.path.join(here, "console"), "-serial", "file:" + results,
           "-qmp", "unix:" + os.path.join(here, "qmp") + ",server=on,wait=off"] + extra
    for d in ("d1", "d2"):
        cmd += ["-drive", f"if=none,id={d},format=raw,file={here}/{d}.img"]
    for dev in TOPOLOGY:
        cmd += ["-device", dev]
    qemu = start(here, cmd, accel) if accel == "kvm" else None
    accel = "kvm" if qemu else "tcg"
    qemu = qemu or start(here, cmd, "tcg")
    qmp = Qmp(os.path.join(here, "qmp"))
    seen, deadline = 0, time.time() + 300
    try:
        while True:
            if time.time() > deadline:
                raise BedFailure(f"{name}: no result from the guest within 300 s")
            text = open(results, errors="replace").read() if os.path.exists(results) else ""
            lines = text.splitlines(keepends=True)
            for line in [l for l in lines[seen:] if l.endswith("\n")]:
                seen += 1
                if line.startswith("@@ bed "):
                    raise BedFailure(f"{name}: guest: " + line[7:].strip())
                if line.startswith("@@ hotplug-add"):
                    for ident, driver, args in HOTPLUG:
                        qmp.cmd("device_add", driver=driver, id=ident, **args)
                if line.startswith("@@ hotplug-remove"):
                    qmp.cmd("device_del", id=REMOVE)
                if line.startswith("@@ end"):
                    body = text.split("@@ archive\n", 1)[1].split("@@ end", 1)[0]
                    out = os.path.join(here, "out")
                    tarfile.open(fileobj=io.BytesIO(base64.b64decode(body))).extractall(out)
                    return out, accel
            if qemu.poll() is not None:
                raise BedFailure(f"{name}: QEMU ended ({qemu.returncode}) before the guest's results")
            time.sleep(0.2)
    finally:
        try:
            qemu.wait(timeout=30)
        except subprocess.TimeoutExpired:
            qemu.kill()
            qemu.wait()


# ---- the cases -------------------------------------------------------------

def judge(out, sim):
    """(case, differences) for every case, in the order the guest ran them."""
    boot = Facts(os.path.join(out, "pci", "boot"))
    ctrls = boot.controllers()
    kinds = {c["magic"] for c in ctrls}
    if kinds != {0xFEEDBEEF, 0x7ED4BEEF} or len(boot.disks) != 5:
        raise BedFailure(f"topology not as built: controllers {[c['bus_id'] for c in ctrls]}, "
                         f"disks {sorted(boot.disks)}")
    results = []
    cases = {}

    def case(name, check):
        if not os.path.isdir(os.path.join(out, "cases", name)):
            results.append((name, ["the guest did not run it"]))
            return
        c = cases[name] = Case(out, name, sim)
        diffs = check(c)
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
        line = f"{node}{part},{node} {boot.adapter_of_disk(disk)}"
        return [status(c, 0), accepted(c), *registered(c, boot),
                None if c.table.splitlines()[-1] == line else f"last line not {line!r}"]

    def logged(c, text):
        return re.search(r"ERR: <[^>]*>" + re.escape(text) + "$", c.log, re.M)

    def read_cmd(c):
        return open(os.path.join(c.d, "cmd")).read()

    # every controller's slots are the kernel's hot-plug slots too
    slots = {x[1]: x[2] for x in boot.slots}
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
         registered(c, boot, load_json(os.path.join(out, "cases", "show.json"))))
    def same_bytes(c):
        diff = difflib.unified_diff(cases["register"].dump.splitlines(), c.dump.splitlines(),
                                    lineterm="")
        return [status(c, 0), *["32-bit build sent other bytes: " + d for d in list(diff)[2:]]]
    if M32:
        case("register32", same_bytes)

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
    case("change", lambda c: [status(c, 0), accepted(c), *registered(c, boot),
                              None if re.search(r"^renamed,", c.table, re.M) else "not renamed"])
    case("delete", lambda c: [status(c, 0), accepted(c), *registered(c, boot),
                              None if "renamed," not in c.table else "not deleted"])

    hot = Facts(os.path.join(out, "pci", "hotplug"))
    new = [n for n in hot.order if n not in boot.order]

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
    kdir = sh("bash", os.path.join(HERE, "kernel.sh")).strip()
    global M32
    if M32 and not os.path.exists(M32):
        print(f"vm: no 32-bit tool at {M32}: its case is left out")
        M32 = ""
    work = tempfile.mkdtemp(prefix="slotag-vm-")
    start = time.time()
    try:
        make_image(work, kdir)
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
    except BedFailure as e:
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
