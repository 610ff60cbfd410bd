# How the library is built when it is to be small and fast: for size, but for the two files in
# which a call spends its time. `script/bench` shows what comes of it.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    return()
endif()
set(optimised $<OR:$<CONFIG:Release>,$<CONFIG:RelWithDebInfo>,$<CONFIG:MinSizeRel>>)
target_compile_options(TavIDL PRIVATE
    $<${optimised}:-Os>
    # Our own calls stay in the library, and calls of others need no jump by way of a table.
    $<${optimised}:-fno-semantic-interposition> $<${optimised}:-fno-plt>)
# libthrift's protocols are templates of many small functions, which are best inlined whole
# where a field is carried. A small device has better use for the room.
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(speed $<${optimised}:-O3> $<${optimised}:-finline-limit=300>)
else()
    set(speed $<${optimised}:-O2>)
endif()
set_property(SOURCE records/codec.cpp records/envelope.cpp APPEND PROPERTY COMPILE_OPTIONS
    ${speed}
    $<${optimised}:-fno-align-functions> $<${optimised}:-fno-align-loops>
    $<${optimised}:-fno-align-jumps> $<${optimised}:-fno-align-labels>)

if(NOT BUILD_SHARED_LIBS)
    return()  # whoever links a static library chooses how
endif()
include(CheckIPOSupported)
check_ipo_supported(RESULT linkTimeOptimisation OUTPUT ignored LANGUAGES CXX)
if(linkTimeOptimisation)
    # Objects hold code besides, so that tools can look into them.
    target_compile_options(TavIDL PRIVATE $<${optimised}:-ffat-lto-objects>)
    set_target_properties(TavIDL PROPERTIES
        INTERPROCEDURAL_OPTIMIZATION_RELEASE ON
        INTERPROCEDURAL_OPTIMIZATION_RELWITHDEBINFO ON
        INTERPROCEDURAL_OPTIMIZATION_MINSIZEREL ON)
endif()

# The addresses in tables of virtual functions, packed. Older C libraries cannot load them.
include(CheckCXXSourceCompiles)
set(packed -Wl,-z,pack-relative-relocs)
set(CMAKE_REQUIRED_LINK_OPTIONS ${packed} -Wl,--fatal-warnings)
check_cxx_source_compiles("
    #include <features.h>
    #if !__GLIBC_PREREQ(2, 36)
    #error
    #endif
    int main() {}" TAVIDL_PACKED_RELOCATIONS FAIL_REGEX ignored)
unset(CMAKE_REQUIRED_LINK_OPTIONS)
if(TAVIDL_PACKED_RELOCATIONS)
    target_link_options(TavIDL PRIVATE $<${optimised}:${packed}>)
endif()
