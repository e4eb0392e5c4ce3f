# The firmware's build system says how it builds, then the recipe's options follow.
CMAKE_BINARY_DIR:=$(PKG_BUILD_DIR)

define Build/Configure
	CFLAGS='$(TARGET_CFLAGS)' CXXFLAGS='$(TARGET_CFLAGS)' LDFLAGS='$(TARGET_LDFLAGS)' cmake -G Ninja --log-level=WARNING \
		-S $(PKG_BUILD_DIR) -B $(CMAKE_BINARY_DIR) \
		-DCMAKE_SYSTEM_NAME=Linux \
		-DCMAKE_BUILD_TYPE=Release \
		-DCMAKE_INSTALL_PREFIX=/usr \
		-DCMAKE_PREFIX_PATH=$(STAGING_DIR)/usr \
		-DCMAKE_SKIP_RPATH=TRUE \
		$(CMAKE_OPTIONS)
endef

define Build/Compile
	cmake --build $(CMAKE_BINARY_DIR) -- --quiet
endef

define Build/Install
	DESTDIR=$(PKG_INSTALL_DIR) cmake --install $(CMAKE_BINARY_DIR)
endef
