# 64-bit ARM.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(tavidl_architecture arm64)
set(tavidl_compiler aarch64-linux-gnu)
set(tavidl_emulator qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
