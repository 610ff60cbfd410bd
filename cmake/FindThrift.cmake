# Finds libthrift: with its CMake package if there is one, else with pkg-config (Debian
# has only this), else in the usual directories. Set Thrift_ROOT to use one in another
# directory. Creates the target Thrift::thrift.

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

if(NOT Thrift_LIBRARY OR NOT Thrift_INCLUDE_DIR)
    find_package(PkgConfig QUIET)
    if(PkgConfig_FOUND)
        pkg_check_modules(PC_Thrift QUIET thrift)
    endif()
    # Up to 0.9.0 thrift.pc names the directory `thrift`, not the one that holds it.
    string(REGEX REPLACE "/thrift(;|$)" "\\1" PC_Thrift_PARENT_DIRS "${PC_Thrift_INCLUDE_DIRS}")
    find_path(Thrift_INCLUDE_DIR thrift/TProcessor.h
        HINTS ${PC_Thrift_INCLUDE_DIRS} ${PC_Thrift_PARENT_DIRS})
    find_library(Thrift_LIBRARY thrift HINTS ${PC_Thrift_LIBRARY_DIRS})
endif()

# Read from the headers, because programs are compiled with them.
if(EXISTS "${Thrift_INCLUDE_DIR}/thrift/config.h")
    file(STRINGS "${Thrift_INCLUDE_DIR}/thrift/config.h" Thrift_VERSION
        REGEX "^#define PACKAGE_VERSION ")
    string(REGEX REPLACE ".*\"(.*)\"" "\\1" Thrift_VERSION "${Thrift_VERSION}")
endif()

# Up to 0.8 the headers include each other without `thrift/`.
set(Thrift_INCLUDE_DIRS ${Thrift_INCLUDE_DIR})
if(EXISTS "${Thrift_INCLUDE_DIR}/thrift/TProcessor.h")
    file(STRINGS "${Thrift_INCLUDE_DIR}/thrift/TProcessor.h" Thrift_INCLUDES_FROM_INSIDE
        REGEX "^#include <protocol/")
    if(Thrift_INCLUDES_FROM_INSIDE)
        list(APPEND Thrift_INCLUDE_DIRS ${Thrift_INCLUDE_DIR}/thrift)
    endif()
endif()

# The version in the library's file name (libthrift-0.17.0.so, libthrift.so.0.17.0; 0.0.0 is
# libtool's default), else the version of the thrift.pc for its directory. Empty if unknown.
set(Thrift_LIBRARY_VERSION "")
get_filename_component(Thrift_LIBRARY_FILE "${Thrift_LIBRARY}" REALPATH)
get_filename_component(Thrift_LIBRARY_DIR "${Thrift_LIBRARY}" DIRECTORY)
if(Thrift_LIBRARY_FILE MATCHES "/libthrift(-|\\.so\\.)([0-9]+\\.[0-9]+\\.[0-9]+)[^/]*$"
        AND NOT CMAKE_MATCH_2 STREQUAL "0.0.0")
    set(Thrift_LIBRARY_VERSION ${CMAKE_MATCH_2})
elseif(PC_Thrift_LIBDIR STREQUAL Thrift_LIBRARY_DIR)
    set(Thrift_LIBRARY_VERSION "${PC_Thrift_VERSION}")
endif()

# A program that is compiled with the headers of one release and linked with another would
# crash. Suffixes such as -dev are not compared.
set(Thrift_IS_ONE_RELEASE TRUE)
set(Thrift_ADVICE "install libthrift's development files (Debian: libthrift-dev libboost-dev) or set Thrift_ROOT")
string(REGEX MATCH "^[0-9.]+" Thrift_HEADERS_NUMBER "${Thrift_VERSION}")
string(REGEX MATCH "^[0-9.]+" Thrift_LIBRARY_NUMBER "${Thrift_LIBRARY_VERSION}")
if(Thrift_HEADERS_NUMBER AND Thrift_LIBRARY_NUMBER
        AND NOT Thrift_HEADERS_NUMBER VERSION_EQUAL Thrift_LIBRARY_NUMBER)
    set(Thrift_IS_ONE_RELEASE FALSE)
    set(Thrift_ADVICE "${Thrift_LIBRARY} is libthrift ${Thrift_LIBRARY_VERSION}, and the headers in ${Thrift_INCLUDE_DIR} are those of ${Thrift_VERSION}: set Thrift_ROOT to where both are of one release, and configure in a new build directory")
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Thrift
    REQUIRED_VARS Thrift_LIBRARY Thrift_INCLUDE_DIR Thrift_IS_ONE_RELEASE
    VERSION_VAR Thrift_VERSION
    REASON_FAILURE_MESSAGE "${Thrift_ADVICE}")

if(Thrift_FOUND AND NOT TARGET Thrift::thrift)
    # Global: targets in other folders that link TavIDL need it, too.
    add_library(Thrift::thrift UNKNOWN IMPORTED GLOBAL)
    set_target_properties(Thrift::thrift PROPERTIES
        IMPORTED_LOCATION "${Thrift_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${Thrift_INCLUDE_DIRS}")
endif()
mark_as_advanced(Thrift_INCLUDE_DIR Thrift_LIBRARY)
