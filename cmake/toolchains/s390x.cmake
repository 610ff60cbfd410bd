# IBM Z: 64 bits, big-endian.
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(tavidl_architecture s390x)
set(tavidl_compiler s390x-linux-gnu)
set(tavidl_emulator qemu-s390x)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
