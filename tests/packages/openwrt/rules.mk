# What a feed's recipe finds of the firmware's build system, as far as this one's use of it goes: names and what they mean.
INCLUDE_DIR:=$(TOPDIR)/include
STAGING_DIR:=$(TOPDIR)/staging_dir
BUILD_DIR:=$(TOPDIR)/build_dir

INSTALL_DIR:=install -d -m0755
INSTALL_BIN:=install -m0755
CP:=cp -fpR
