################################################################################
#
# tzr4417
#
################################################################################

TZR4417_SITE = $(BR2_EXTERNAL_TZR4417_PATH)/../..
TZR4417_RELEASE := $(firstword $(shell sed -n 's/^Version //p' $(TZR4417_SITE)/CHANGES.md))
TZR4417_VERSION = $(TZR4417_RELEASE)-$(patsubst -%,%,$(BR2_EXTERNAL_TZR4417_VERSION))
TZR4417_SITE_METHOD = local
TZR4417_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude='/build*/'
TZR4417_LICENSE = PROPRIETARY
TZR4417_REDISTRIBUTE = NO
TZR4417_DEPENDENCIES = host-pkgconf libcgicc
# Buildroot's own options harden.
TZR4417_CONF_OPTS = \
	-DBUILD_SIMULATOR=OFF \
	-DBUILD_TESTING=OFF \
	-DHARDEN=OFF \
	-DINSTALL_DEPLOY=OFF \
	-DINSTALL_WEB=OFF \
	-DLINK_STATIC=$(if $(BR2_PACKAGE_TZR4417_STATIC),ON,OFF)

ifeq ($(BR2_PACKAGE_TZR4417_STATIC),y)
# Saves 49 KB: the linker drops an unused function of cgicc if it has a section of its own.
# check-package disable TypoInPackageVariable
LIBCGICC_CONF_ENV += CXXFLAGS="$(TARGET_CXXFLAGS) -Os -ffunction-sections -fdata-sections"
endif

ifeq ($(BR2_PACKAGE_TZR4417_PAGES),y)
define TZR4417_INSTALL_PAGES
	$(INSTALL) -d $(TARGET_DIR)/var/www
	$(INSTALL) -m 0644 -t $(TARGET_DIR)/var/www $(@D)/web/*.*
endef
TZR4417_POST_INSTALL_TARGET_HOOKS += TZR4417_INSTALL_PAGES
endif

ifeq ($(BR2_PACKAGE_TZR4417_BUSYBOX_HTTPD),y)
define TZR4417_BUSYBOX_CONFIG_FIXUPS
	$(call KCONFIG_SET_OPT,CONFIG_FEATURE_HTTPD_PORT_DEFAULT,80)
	$(call KCONFIG_ENABLE_OPT,CONFIG_FEATURE_HTTPD_SETUID)
	$(call KCONFIG_ENABLE_OPT,CONFIG_FEATURE_HTTPD_BASIC_AUTH)
	$(call KCONFIG_ENABLE_OPT,CONFIG_FEATURE_HTTPD_AUTH_MD5)
	$(call KCONFIG_ENABLE_OPT,CONFIG_FEATURE_HTTPD_CGI)
endef

define TZR4417_INSTALL_HTTPD
	$(INSTALL) -D -m 0755 $(@D)/deploy/appliance/cgi-bin/tzr4417.cgi \
		$(TARGET_DIR)/var/www/cgi-bin/tzr4417.cgi
	$(INSTALL) -D -m 0640 $(@D)/deploy/appliance/httpd.conf \
		$(TARGET_DIR)/etc/tzr4417/httpd.conf
	$(INSTALL) -D -m 0644 $(TZR4417_PKGDIR)/httpd.default \
		$(TARGET_DIR)/etc/default/httpd
endef
TZR4417_POST_INSTALL_TARGET_HOOKS += TZR4417_INSTALL_HTTPD

# httpd reads it as www-data.
define TZR4417_PERMISSIONS
	/etc/tzr4417/httpd.conf f 640 0 33 - - - - -
endef
endif

$(eval $(cmake-package))
