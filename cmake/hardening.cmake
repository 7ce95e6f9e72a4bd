# Warnings and hardening for every target of the project: a root tool is
# built as PIE with full RELRO, the fortified libc and the stack protector.
add_compile_options(-Wall -Wextra -Wformat=2 -Wshadow -Wcast-align
                    -Wno-missing-field-initializers)
add_compile_options(-fstack-protector-strong)
# clang 14 has no stack clash protection for arm64 (and says so as an unused
# argument).
if(NOT (CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64"))
  add_compile_options(-fstack-clash-protection)
endif()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported()
add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

if(SLOTAG_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
else()
  # FORTIFY needs optimisation; the sanitizers replace it.
  add_compile_options(-O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()

if(SLOTAG_M32)
  add_compile_options(-m32)
  add_link_options(-m32)
  # 64-bit file offsets and times in the 32-bit build too.
  add_compile_definitions(_FILE_OFFSET_BITS=64)
endif()
