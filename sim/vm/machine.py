"""The VM the bed runs in: Debian's kernel (kernel.sh) under QEMU's q35
with hot-plug controllers, SCSI adapters and disks, an initramfs of busybox,
the installed tool, pciutils and the project's kernel modules (sim/kmod),
and QEMU's monitor for hot-plug. Like the simulator, it stands in for a
server; tests/vm says what is run in it and judges the results."""
import base64
import io
import json
import os
import re
import shutil
import socket
import subprocess
import tarfile
import time

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
    """The machine did not come up as designed."""


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


def make_image(work, kdir, src, build, m32, init):
    """The initramfs: build's installed files, the 32-bit tool m32 (or ""),
    and init as /init."""
    kmod = os.path.join(work, "kmod")
    shutil.copytree(os.path.join(src, "sim", "kmod"), kmod)
    headers = os.path.join(kdir, "root/usr/src/linux-headers-" + os.path.basename(kdir))
    sh("make", "-s", "-C", headers, "M=" + kmod, "modules", stderr=subprocess.STDOUT)
    root = os.path.join(work, "root")
    os.makedirs(root + "/modules")
    for d in ("proc", "sys", "dev", "tmp", "out"):
        os.makedirs(os.path.join(root, d))
    subprocess.run(["cmake", "--install", build], check=True, stdout=subprocess.DEVNULL,
                   env=dict(os.environ, DESTDIR=root))
    shutil.copy(init, root + "/init")
    os.chmod(root + "/init", 0o755)
    os.makedirs(root + "/bin", exist_ok=True)
    os.symlink("busybox", root + "/bin/sh")
    copy_with_libs(root, "/bin/busybox", "/bin/busybox")
    for tool in ("lspci", "setpci"):
        copy_with_libs(root, shutil.which(tool), "/usr/bin/" + tool)
    for tool in ("slotag", "slotag-show", "slotag-locate"):
        copy_with_libs(root, root + os.readlink(root + "/usr/sbin/" + tool))
    if m32:
        copy_with_libs(root, m32, "/usr/sbin/slotag32")
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
