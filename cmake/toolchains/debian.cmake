# Shared by the toolchain files in this directory: Debian's cross compiler, a sysroot of
# Debian packages, and QEMU to run the built programs.
#
# The sysroot is the one that script/test makes, or the directory in the environment
# variable TAVIDL_SYSROOT. (Not in a CMake variable: CMake's own test builds read this
# file again and would not see it.)

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${tavidl_compiler}-gcc)
set(CMAKE_CXX_COMPILER ${tavidl_compiler}-g++)

if(DEFINED ENV{TAVIDL_SYSROOT})
    set(CMAKE_SYSROOT $ENV{TAVIDL_SYSROOT})
else()
    get_filename_component(CMAKE_SYSROOT
        ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot/${tavidl_architecture} ABSOLUTE)
endif()

# Programs come from here, all else from the sysroot or from where the caller says.
set(CMAKE_FIND_ROOT_PATH ${CMAKE_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

set(CMAKE_CROSSCOMPILING_EMULATOR ${tavidl_emulator}-static -L ${CMAKE_SYSROOT})

# For CMake's own use of pkg-config. Tests that call it themselves have libraries
# outside of the sysroot too.
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
