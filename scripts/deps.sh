#!/bin/bash
# Installs the Debian packages the project builds and tests with, when any
# is missing. Needs root (apt-get); on a machine that has them all it does
# nothing.
set -euo pipefail
packages=(cmake make g++ clang libgtest-dev libgmock-dev libbenchmark-dev
          g++-multilib qemu-user-static pciutils util-linux python3
          # packaging: cpack's .deb (dpkg-shlibdeps, file) and .rpm (rpmbuild),
          # lintian; the unit and rule checks (systemd-analyze, man, udevadm)
          dpkg-dev file rpm lintian systemd man-db udev)
# reliability tests (kills at each system call); fuzz targets (libFuzzer and
# the sanitizer runtimes of clang 14)
packages+=(strace libclang-rt-14-dev libfuzzer-14-dev)
# man page lint (mandoc) and rendering (man -l), the completion's test
packages+=(mandoc man-db bash-completion)
# the VM bed: QEMU and the guest's busybox (its kernel: sim/vm/kernel.sh)
packages+=(qemu-system-x86 busybox-static)
# the fresh-root package test: a minbase Debian 12 root
packages+=(debootstrap debian-archive-keyring)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
# counting the configuration-space accesses of a registration (a test)
dpkg-query -W -f='${Status}' strace 2>/dev/null | grep -q 'install ok installed' || missing+=(strace)
if [ ${#missing[@]} -gt 0 ]; then
    echo "installing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
# Debian's kernel and headers for the VM bed, into a cache outside the clone
bash "$(dirname "$0")/../sim/vm/kernel.sh" >/dev/null
