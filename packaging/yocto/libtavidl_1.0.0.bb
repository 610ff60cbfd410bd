# Not run where it was written: see packaging/README.md.
SUMMARY = "Calls of the TAV_IDL services over Apache Thrift"
SECTION = "libs"
LICENSE = "Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=3b83ef96387f14655fc854ddc3c6bd57"

DEPENDS = "boost thrift"

# Your copy of the sources, as devtool or an externalsrc of yours provides it.
inherit cmake externalsrc pkgconfig
EXTERNALSRC ?= "${TOPDIR}/../libtavidl"

# Headers, CMake package and pkg-config file go there by themselves.
FILES:${PN}-dev += "${datadir}/TavIDL"
