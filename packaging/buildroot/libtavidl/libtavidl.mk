# Not run where it was written: see packaging/README.md of the sources.

LIBTAVIDL_VERSION = 1.0.0
# Your copy of the sources.
LIBTAVIDL_SITE = $(TOPDIR)/../libtavidl
LIBTAVIDL_SITE_METHOD = local
LIBTAVIDL_LICENSE = Apache-2.0
LIBTAVIDL_LICENSE_FILES = LICENSE
LIBTAVIDL_INSTALL_STAGING = YES
LIBTAVIDL_DEPENDENCIES = boost host-pkgconf thrift

ifeq ($(BR2_PACKAGE_LIBTAVIDL_HOST),y)
LIBTAVIDL_CONF_OPTS += -DTAVIDL_BUILD_HOST=ON
# With OpenSSL it has TLS.
ifeq ($(BR2_PACKAGE_OPENSSL),y)
LIBTAVIDL_DEPENDENCIES += openssl
endif
else
LIBTAVIDL_CONF_OPTS += -DTAVIDL_BUILD_HOST=OFF
endif

$(eval $(cmake-package))
