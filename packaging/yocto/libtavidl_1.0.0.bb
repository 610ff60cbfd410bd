# Not tested with Yocto: see packaging/README.md.
SUMMARY = "Calls of the TAV_IDL services over Apache Thrift"
SECTION = "libs"
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"

DEPENDS = "boost thrift"

# Your copy of the sources, from devtool or your own externalsrc.
inherit cmake externalsrc pkgconfig
EXTERNALSRC ?= "${TOPDIR}/../libtavidl"

# host: libTavIDLHost. tls: TLS in libTavIDLHost. tavctl: the command-line tool, which needs both.
PACKAGECONFIG ??= "host tls"
PACKAGECONFIG[host] = "-DTAVIDL_BUILD_HOST=ON,-DTAVIDL_BUILD_HOST=OFF"
PACKAGECONFIG[tls] = "-DCMAKE_DISABLE_FIND_PACKAGE_OpenSSL=OFF,-DCMAKE_DISABLE_FIND_PACKAGE_OpenSSL=ON,openssl"
PACKAGECONFIG[tavctl] = "-DTAVIDL_BUILD_TOOLS=ON,-DTAVIDL_BUILD_TOOLS=OFF,cli11 libpcap nlohmann-json openssl"

# Separate packages, so that an image can leave out libTavIDLHost, tavctl and what they need.
PACKAGES =+ "${PN}-host tavctl"
FILES:${PN}-host = "${libdir}/libTavIDLHost${SOLIBS}"
FILES:tavctl = "${bindir}/tavctl ${datadir}/bash-completion ${datadir}/zsh"
RRECOMMENDS:${PN}-dev += "${PN}-host"

# Yocto finds the headers, the CMake package and the pkg-config files by itself.
FILES:${PN}-dev += "${datadir}/TavIDL"
