################################################################################
#
# rovu
#
################################################################################

# The sources are those that this tree is part of, so nothing is downloaded.
ROVU_SITE = $(BR2_EXTERNAL_ROVU_PATH)/../..
ROVU_VERSION := $(shell sed -n 's/^project.rovu VERSION \([^ ]*\).*/\1/p' $(ROVU_SITE)/CMakeLists.txt)
ROVU_SITE_METHOD = local
ROVU_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude=/build
# No licence has been chosen yet.
ROVU_LICENSE = PROPRIETARY
ROVU_REDISTRIBUTE = NO
ROVU_DEPENDENCIES = host-pkgconf libcurl lua openssl

# As the preset "release" does.
ROVU_CONF_OPTS = \
	-DCMAKE_BUILD_TYPE=MinSizeRel \
	-DCMAKE_CXX_FLAGS_MINSIZEREL=-Os \
	-DCMAKE_INTERPROCEDURAL_OPTIMIZATION=$(if $(BR2_ENABLE_LTO),ON,OFF) \
	-DROVU_BUILD_SIM=OFF \
	-DROVU_BUILD_TESTS=OFF

ifeq ($(BR2_PACKAGE_ROVU_UPDATE_ONCE),y)
define ROVU_INSTALL_UPDATE_ONCE
	$(INSTALL) -D -m 0755 $(@D)/examples/device/update-once \
		$(TARGET_DIR)/usr/sbin/update-once
endef
ROVU_POST_INSTALL_TARGET_HOOKS += ROVU_INSTALL_UPDATE_ONCE

# BusyBox installs the inittab, perhaps after rovu.
define ROVU_START_UPDATE_ONCE
	grep -qxF '::once:/usr/sbin/update-once' $(TARGET_DIR)/etc/inittab || \
		echo '::once:/usr/sbin/update-once' >>$(TARGET_DIR)/etc/inittab
endef
ROVU_TARGET_FINALIZE_HOOKS += ROVU_START_UPDATE_ONCE
endif

$(eval $(cmake-package))
