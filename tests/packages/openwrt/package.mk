# Here, "metadata" prints what the recipe says of its packages, "build" makes them, each in a directory of its own, and fills
# the directory that other recipes build with.
PKG_BUILD_DIR:=$(BUILD_DIR)/$(PKG_NAME)-$(PKG_VERSION)
PKG_INSTALL_DIR:=$(PKG_BUILD_DIR)/ipkg-install

FIELDS:=SECTION CATEGORY TITLE DEPENDS ABI_VERSION

# A package with a version of its interface has it behind its name.
define BuildPackage
$(foreach field,$(FIELDS),$(eval $(field):=))
$(eval $(Package/$(1)))
$(foreach field,$(FIELDS),$(eval $(1)_$(field):=$($(field))))
metadata: metadata-$(1)
metadata-$(1):
	@echo 'Package: $(1)$($(1)_ABI_VERSION)'
	@echo 'Version: $(PKG_VERSION)-$(PKG_RELEASE)'
	@echo 'License: $(PKG_LICENSE)'
	@echo 'Section: $($(1)_SECTION)'
	@echo 'Category: $($(1)_CATEGORY)'
	@echo 'Title: $($(1)_TITLE)'
	@echo 'Depends: $($(1)_DEPENDS)'
build: package-$(1)
package-$(1): installed
	$$(call Package/$(1)/install,$(TOPDIR)/packages/$(1)$($(1)_ABI_VERSION))
endef

.PHONY: metadata build installed
build: staging
staging: installed
	$(call Build/InstallDev,$(STAGING_DIR))
installed:
	$(call Build/Prepare)
	$(call Build/Configure)
	$(call Build/Compile)
	$(if $(filter 1,$(PKG_INSTALL)),$(call Build/Install))
