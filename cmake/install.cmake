# Installs the library (component Runtime) and all that one needs to build with it
# (component Development). Nothing installed knows where: the tree may be moved.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

install(TARGETS TavIDL EXPORT TavIDLTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT Runtime NAMELINK_COMPONENT Development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

get_target_property(headers TavIDL TAVIDL_HEADERS)
foreach(header IN LISTS headers)
    get_filename_component(directory ${header} DIRECTORY)
    install(FILES ${PROJECT_SOURCE_DIR}/TavIDL/${header}
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/TavIDL/${directory} COMPONENT Development)
endforeach()

install(FILES ${PROJECT_SOURCE_DIR}/idl/TAV_IDL.thrift
    DESTINATION ${CMAKE_INSTALL_DATADIR}/TavIDL COMPONENT Development)

# For find_package(TavIDL).
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/TavIDL)
configure_package_config_file(cmake/TavIDLConfig.cmake.in TavIDLConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(TavIDLConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/TavIDLConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/TavIDLConfigVersion.cmake
    ${PROJECT_SOURCE_DIR}/cmake/FindThrift.cmake
    DESTINATION ${package_dir} COMPONENT Development)
install(EXPORT TavIDLTargets NAMESPACE TavIDL:: DESTINATION ${package_dir} COMPONENT Development)

# For pkg-config. A directory given as an absolute path stays where it is; others
# are found from the place of the file itself.
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
# Up to 0.9.0 thrift.pc names too few of the directories that libthrift's headers are found in.
set(pc_thrift_cflags "")
if(Thrift_INCLUDES_FROM_INSIDE OR Thrift_VERSION VERSION_EQUAL 0.9.0)
    list(JOIN Thrift_INCLUDE_DIRS " -I" pc_thrift_cflags)
    string(PREPEND pc_thrift_cflags " -I")
endif()
configure_file(cmake/TavIDL.pc.in TavIDL.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TavIDL.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
