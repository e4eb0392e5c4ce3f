# The Debian packages, one for each component: libtq1, libtq-dev and tqctl. For a workstation, and so with what it has in place
# of the firmware's libraries.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/strip_static.cmake)
set(CPACK_PACKAGE_NAME libtq)
# Each package has a summary of its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT "The libtq developers")
set(CPACK_DEBIAN_PACKAGE_SOURCE libtq)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Where libtq and what is beside it are found before they are installed.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
foreach(name IN LISTS TQ_HOST_DEPENDENCIES)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/host/${name})
endforeach()
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(library libtq${TQ_SOVERSION})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "${PROJECT_DESCRIPTION}
Commands, UCI options, event loops, the message bus, flash partitions, the
boot loader's block, statistics and INI files for the daemons of an access
point of the OpenWrt family. For development on a workstation: equivalents
take the place of the firmware's own libraries.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtq-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library} (= ${PROJECT_VERSION})")
# The static library is all that needs them.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "libnl-genl-3-dev, libnl-3-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} - development files
The headers, the static library, and what pkg-config and CMake find them by.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME tqctl)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${library} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "Companion command of an access point's platform utility library
What libtq offers to daemons, for people and scripts at a shell, with JSON.")

# By this a package whose programs are linked to libtq learns what it depends on. What is beside libtq is nobody else's.
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/debian/shlibs
    CONTENT "libtq ${TQ_SOVERSION} ${library} (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/shlibs)

# Debian wants the licence and the changes under the package's own name; another installation has no use for them.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} COMPONENT)
    set(documents ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME})
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${documents} RENAME copyright
        COMPONENT ${component} EXCLUDE_FROM_ALL)
    install(FILES ${PROJECT_SOURCE_DIR}/CHANGELOG.md DESTINATION ${documents} RENAME changelog
        COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
