# What is installed of the library: headers, libraries, and how pkg-config and find_package() find them. The workstation's libuci
# goes beside libtq, in a directory of its own, where no other program finds it by accident.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tq)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tq DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(TARGETS tq EXPORT tqTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS tq_static ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

if(TQ_USE_SYSTEM)
    set(TQ_PC_PRIVATE "-luci")
else()
    install(TARGETS uci EXPORT tqTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/tq)
    install(FILES ${PROJECT_SOURCE_DIR}/host/uci/include/uci.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tq/host)
    set(TQ_PC_PRIVATE "-L\${libdir}/tq -luci")
    set_target_properties(tq PROPERTIES INSTALL_RPATH "$ORIGIN/tq")
endif()

install(EXPORT tqTargets NAMESPACE tq:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tqConfig.cmake.in ${PROJECT_BINARY_DIR}/tqConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tqConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tqConfig.cmake ${PROJECT_BINARY_DIR}/tqConfigVersion.cmake DESTINATION ${package_dir})

# From where the file lies, so that the prefix may be chosen at installation.
file(RELATIVE_PATH TQ_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/tq.pc.in ${PROJECT_BINARY_DIR}/tq.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tq.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
