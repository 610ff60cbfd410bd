# 32-bit ARM with hardware floating point.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(tavidl_architecture armhf)
set(tavidl_compiler arm-linux-gnueabihf)
set(tavidl_emulator qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
