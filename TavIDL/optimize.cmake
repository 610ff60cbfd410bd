# How GCC builds the library when it optimizes. Each line here and each attribute in the code
# saves at least 1 % of a call's instructions or 2 % of the text; bench/compare.py shows it
# (x86-64, g++ 12).
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    return()
endif()
set(optimized $<OR:$<CONFIG:Release>,$<CONFIG:RelWithDebInfo>,$<CONFIG:MinSizeRel>>)

# For size: 10 % less text, but 0.2 % more per call.
target_compile_options(TavIDL PRIVATE $<${optimized}:-Os>)
if(CMAKE_SIZEOF_VOID_P EQUAL 8)  # 32-bit targets favor size over speed
    # For speed where a call spends its time: 7 % of a call, for 8 % more text.
    set_property(SOURCE records/envelope.cpp broker/TavBrokerOperations.cpp
        emp/TavEmpOperations.cpp event/TavEmpEventOperations.cpp
        APPEND PROPERTY COMPILE_OPTIONS $<${optimized}:-O2>)
    # libthrift's protocols consist of many small functions, which should be inlined into the loops
    # over the fields. -O3: 1 % of a call. The limit: 6 % of a call over the compact protocol.
    set_property(SOURCE records/codec.cpp APPEND PROPERTY COMPILE_OPTIONS
        $<${optimized}:-O3> $<${optimized}:-finline-limit=300>)
endif()

if(NOT BUILD_SHARED_LIBS)
    return()  # left to the program that links a static library
endif()

# Calls within the library are direct: 3 % of the text.
target_compile_options(TavIDL PRIVATE $<${optimized}:-fno-semantic-interposition>)

# Link-time optimization: 3 % of a call and 5 % of the text. Objects hold machine code as well, so
# that tools can read them.
include(CheckIPOSupported)
check_ipo_supported(RESULT linkTimeOptimization OUTPUT ignored LANGUAGES CXX)
if(linkTimeOptimization)
    target_compile_options(TavIDL PRIVATE $<${optimized}:-ffat-lto-objects>)
    set_target_properties(TavIDL PROPERTIES
        INTERPROCEDURAL_OPTIMIZATION_RELEASE ON
        INTERPROCEDURAL_OPTIMIZATION_RELWITHDEBINFO ON
        INTERPROCEDURAL_OPTIMIZATION_MINSIZEREL ON)
endif()

# Packed relocations for the tables of virtual functions: 7 % of the text. glibc before 2.36 cannot
# load them.
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
    target_link_options(TavIDL PRIVATE $<${optimized}:${packed}>)
endif()
