#!/bin/bash
# private-ns.sh COMMAND...: runs COMMAND in a new mount namespace from which
# nothing mounted reaches the caller's. In a chroot / is not a mount point
# and cannot be made private (unshare --propagation private fails there), so
# the namespace's own root is made private instead, reached by leaving the
# chroot for a moment in a short-lived helper, as slotag-sim does.
if [ "${1:-}" != --inside ]; then
    exec unshare -m --propagation unchanged bash "$0" --inside "$@"
fi
shift
if ! mount --make-rprivate / 2>/dev/null; then
    python3 - <<'PY' || exit 1
import ctypes, os
os.chdir("/")
os.chroot("/dev")  # rooted below the working directory: ".." walks up
while (os.stat(".").st_dev, os.stat(".").st_ino) != (os.stat("..").st_dev, os.stat("..").st_ino):
    os.chdir("..")
os.chroot(".")
libc = ctypes.CDLL(None, use_errno=True)
MS_REC, MS_PRIVATE = 0x4000, 0x40000
if libc.mount(None, b"/", None, MS_REC | MS_PRIVATE, None) != 0:
    raise SystemExit("making the namespace's root private: " + os.strerror(ctypes.get_errno()))
PY
fi
exec "$@"
