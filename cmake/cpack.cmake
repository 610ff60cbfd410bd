# A single file with everything: cpack -G TGZ or -G DEB in a build directory. debian/ makes
# the packages for a distribution.
set(CPACK_PACKAGE_NAME tavidl)
set(CPACK_PACKAGE_CONTACT "libTavIDL maintainers <maintainers@users.noreply.c-seed-5ea053be.example>")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/TavIDL)  # where Host finds libTavIDL
set(CPACK_DEBIAN_PACKAGE_CONFLICTS "libtavidl1, libtavidlhost1, libtavidl-dev")
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libboost-dev, libthrift-dev (>= ${Thrift_VERSION}), libthrift-dev (<< ${Thrift_VERSION}.~)")
include(CPack)
