# Cross build for another Debian architecture with clang++ --target, Debian's
# *-cross C and C++ libraries and the cross binutils: unlike the
# gcc-N-ARCH-linux-gnu cross compilers, these leave g++-multilib (the 32-bit
# build) installed. Programs of the build run under qemu-user.
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/cross-clang.cmake -DSLOTAG_CROSS_ARCH=s390x
# SLOTAG_CROSS_ARCH: s390x, arm64 or ppc64el (scripts/cross.sh installs what
# each needs).
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES SLOTAG_CROSS_ARCH)

if(SLOTAG_CROSS_ARCH STREQUAL "s390x")
  set(CMAKE_SYSTEM_PROCESSOR s390x)
  set(_triple s390x-linux-gnu)
  set(_qemu qemu-s390x-static)
elseif(SLOTAG_CROSS_ARCH STREQUAL "arm64")
  set(CMAKE_SYSTEM_PROCESSOR aarch64)
  set(_triple aarch64-linux-gnu)
  set(_qemu qemu-aarch64-static)
elseif(SLOTAG_CROSS_ARCH STREQUAL "ppc64el")
  set(CMAKE_SYSTEM_PROCESSOR ppc64le)
  set(_triple powerpc64le-linux-gnu)
  set(_qemu qemu-ppc64le-static)
else()
  message(FATAL_ERROR "SLOTAG_CROSS_ARCH must be s390x, arm64 or ppc64el, not '${SLOTAG_CROSS_ARCH}'")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${_triple})
set(CMAKE_CXX_COMPILER_TARGET ${_triple})
# The target's libraries only; programs (cmake, bash, python) are the host's.
set(CMAKE_FIND_ROOT_PATH /usr/${_triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# -L: the target's dynamic loader and libraries.
set(CMAKE_CROSSCOMPILING_EMULATOR ${_qemu} -L /usr/${_triple})
