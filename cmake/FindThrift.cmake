# Finds libthrift: by its own CMake package where there is one, else by pkg-config
# (all that Debian ships), else by a plain search. Set Thrift_ROOT to point at one
# in a place of its own. Makes the target Thrift::thrift.

if(NOT TARGET Thrift::thrift)
    find_package(Thrift CONFIG QUIET)
    if(TARGET thrift::thrift)
        set_property(TARGET thrift::thrift PROPERTY IMPORTED_GLOBAL TRUE)
        add_library(Thrift::thrift INTERFACE IMPORTED GLOBAL)
        set_property(TARGET Thrift::thrift PROPERTY INTERFACE_LINK_LIBRARIES thrift::thrift)
        set(Thrift_LIBRARY thrift::thrift)
        set(Thrift_INCLUDE_DIR "by its CMake package")
    endif()
endif()

if(NOT Thrift_LIBRARY)
    find_package(PkgConfig QUIET)
    if(PkgConfig_FOUND)
        pkg_check_modules(PC_Thrift QUIET thrift)
    endif()
    find_path(Thrift_INCLUDE_DIR thrift/TProcessor.h HINTS ${PC_Thrift_INCLUDE_DIRS})
    find_library(Thrift_LIBRARY thrift HINTS ${PC_Thrift_LIBRARY_DIRS})
endif()

# Read from the headers themselves: they are what a program is compiled against.
if(EXISTS "${Thrift_INCLUDE_DIR}/thrift/config.h")
    file(STRINGS "${Thrift_INCLUDE_DIR}/thrift/config.h" Thrift_VERSION
        REGEX "^#define PACKAGE_VERSION ")
    string(REGEX REPLACE ".*\"(.*)\"" "\\1" Thrift_VERSION "${Thrift_VERSION}")
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Thrift
    REQUIRED_VARS Thrift_LIBRARY Thrift_INCLUDE_DIR
    VERSION_VAR Thrift_VERSION
    REASON_FAILURE_MESSAGE "install libthrift's development files (Debian: libthrift-dev libboost-dev) or set Thrift_ROOT")

if(Thrift_FOUND AND NOT TARGET Thrift::thrift)
    # Global: whoever links TavIDL needs it too, in a folder beside or above.
    add_library(Thrift::thrift UNKNOWN IMPORTED GLOBAL)
    set_target_properties(Thrift::thrift PROPERTIES
        IMPORTED_LOCATION "${Thrift_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${Thrift_INCLUDE_DIR}")
endif()
mark_as_advanced(Thrift_INCLUDE_DIR Thrift_LIBRARY)
