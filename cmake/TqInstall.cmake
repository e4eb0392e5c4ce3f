# What is installed of the library: headers, libraries, and how pkg-config and find_package() find them. The components are the
# packages: "library" is what runs, "development" what programs are built with, "tools" the command. What a workstation has in
# place of the firmware's libraries goes beside libtq, into a directory of its own, where no other program finds it by accident.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tq)

install(TARGETS tq EXPORT tqTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tq DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(TARGETS tq_static ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

list(JOIN TQ_DEPENDENCY_LIBRARIES " " TQ_PC_PRIVATE)
if(TQ_HOST_DEPENDENCIES)
    install(TARGETS ${TQ_HOST_DEPENDENCIES} EXPORT tqTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/tq COMPONENT library NAMELINK_COMPONENT development)
    set_target_properties(${TQ_HOST_DEPENDENCIES} PROPERTIES INSTALL_RPATH "$ORIGIN")
    foreach(name IN LISTS TQ_HOST_DEPENDENCIES)
        install(DIRECTORY ${PROJECT_SOURCE_DIR}/host/${name}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tq/host)
    endforeach()
    set(TQ_PC_PRIVATE "-L\${libdir}/tq ${TQ_PC_PRIVATE}")
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

install(FILES ${PROJECT_SOURCE_DIR}/docs/man/tq.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
