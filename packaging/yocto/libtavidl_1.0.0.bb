# Not run where it was written: see packaging/README.md.
SUMMARY = "Calls of the TAV_IDL services over Apache Thrift"
SECTION = "libs"
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"

DEPENDS = "boost thrift"

# Your copy of the sources, as devtool or an externalsrc of yours provides it.
inherit cmake externalsrc pkgconfig
EXTERNALSRC ?= "${TOPDIR}/../libtavidl"

# Host can use TLS.
PACKAGECONFIG ??= "tls"
PACKAGECONFIG[tls] = "-DCMAKE_DISABLE_FIND_PACKAGE_OpenSSL=OFF,-DCMAKE_DISABLE_FIND_PACKAGE_OpenSSL=ON,openssl"

# Host is a package of its own, so that an image can do without it and what it needs.
PACKAGES =+ "${PN}-host"
FILES:${PN}-host = "${libdir}/libTavIDLHost${SOLIBS}"
RRECOMMENDS:${PN}-dev += "${PN}-host"

# Headers, CMake package and pkg-config files go there by themselves.
FILES:${PN}-dev += "${datadir}/TavIDL"
