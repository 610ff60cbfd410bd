# Installs libTavIDL (component Runtime), libTavIDLHost (component HostRuntime) and what programs need
# to build with them (component Development). The installed tree can be moved.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/TavIDL)

# Each library has its own export set, so that programs that only use TavIDL do not need Host's
# dependencies.
function(tavidl_install target runtime)
    install(TARGETS ${target} EXPORT ${target}Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT ${runtime} NAMELINK_COMPONENT Development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    install(EXPORT ${target}Targets NAMESPACE TavIDL:: DESTINATION ${package_dir}
        COMPONENT Development)
    get_target_property(headers ${target} TAVIDL_HEADERS)
    foreach(header IN LISTS headers)
        get_filename_component(directory ${header} DIRECTORY)
        install(FILES ${PROJECT_SOURCE_DIR}/TavIDL/${header}
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/TavIDL/${directory} COMPONENT Development)
    endforeach()
endfunction()

tavidl_install(TavIDL Runtime)
set(host_needs Threads)
if(TARGET TavIDLHost)
    tavidl_install(TavIDLHost HostRuntime)
    # A program that links a static library must link its dependencies.
    get_target_property(kind TavIDLHost TYPE)
    get_target_property(uses TavIDLHost LINK_LIBRARIES)
    if(kind STREQUAL STATIC_LIBRARY AND OpenSSL::SSL IN_LIST uses)
        list(APPEND host_needs OpenSSL)
    endif()
endif()

install(FILES ${PROJECT_SOURCE_DIR}/idl/TAV_IDL.thrift
    DESTINATION ${CMAKE_INSTALL_DATADIR}/TavIDL COMPONENT Development)

# For find_package(TavIDL).
configure_package_config_file(cmake/TavIDLConfig.cmake.in TavIDLConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(TavIDLConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/TavIDLConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/TavIDLConfigVersion.cmake
    ${PROJECT_SOURCE_DIR}/cmake/FindThrift.cmake
    DESTINATION ${package_dir} COMPONENT Development)

# For pkg-config. A directory with an absolute path is used as it is; others are relative to
# the file.
function(pkgconfig_path result directory)
    if(IS_ABSOLUTE ${directory})
        set(${result} ${directory} PARENT_SCOPE)
    else()
        set(${result} "\${prefix}/${directory}" PARENT_SCOPE)
    endif()
endfunction()
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
    set(pc_prefix ${CMAKE_INSTALL_PREFIX})
else()
    file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
    string(REGEX REPLACE "/$" "" up ${up})
    set(pc_prefix "\${pcfiledir}/${up}")
endif()
pkgconfig_path(pc_libdir ${CMAKE_INSTALL_LIBDIR})
pkgconfig_path(pc_includedir ${CMAKE_INSTALL_INCLUDEDIR})
pkgconfig_path(pc_datadir ${CMAKE_INSTALL_DATADIR})
set(pc_requires thrift)
if(Thrift_VERSION)
    set(pc_requires "thrift = ${Thrift_VERSION}")  # as in TavIDLConfig.cmake
endif()
# Up to 0.9.0 thrift.pc lacks some of the directories of libthrift's headers.
set(pc_thrift_cflags "")
if(Thrift_INCLUDES_FROM_INSIDE OR Thrift_VERSION VERSION_EQUAL 0.9.0)
    list(JOIN Thrift_INCLUDE_DIRS " -I" pc_thrift_cflags)
    string(PREPEND pc_thrift_cflags " -I")
endif()
set(pc_host_requires "TavIDL = ${PROJECT_VERSION}")
if(OpenSSL IN_LIST host_needs)
    string(APPEND pc_host_requires ", openssl")
endif()
set(pc_files TavIDL.pc)
if(TARGET TavIDLHost)
    list(APPEND pc_files TavIDLHost.pc)
endif()
foreach(file IN LISTS pc_files)
    configure_file(cmake/${file}.in ${file} @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${file}
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
endforeach()
