# 32-bit x86.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(tavidl_architecture i386)
set(tavidl_compiler i686-linux-gnu)
set(tavidl_emulator qemu-i386)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
