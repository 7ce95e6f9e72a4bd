#!/bin/bash
# Builds the Debian package and the RPM from this source tree: installs what
# the build needs, builds the hardened release binary in BUILD-DIR (default
# build-package, configured without the tests) and runs cpack there. The packages land in BUILD-DIR/packages.
# Run as root on Debian 12:  bash scripts/package.sh [BUILD-DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-package}
bash scripts/deps.sh
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF >/dev/null
cmake --build "$build" -j"$(nproc)"
rm -f "$build"/packages/*.deb "$build"/packages/*.rpm
(cd "$build" && cpack --config CPackConfig.cmake)
ls -l "$build"/packages/*.deb "$build"/packages/*.rpm
