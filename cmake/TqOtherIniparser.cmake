# other_iniparser: Debian's libiniparser with other names before its functions (other_iniparser_load), so that a program can
# have it beside libtq, which exports the same. For tests and benchmarks, where libiniparser-dev is installed; else no target.
include_guard(GLOBAL)

find_library(TQ_OTHER_INIPARSER libiniparser.a)
if(TQ_OTHER_INIPARSER)
    set(archive ${PROJECT_BINARY_DIR}/libother_iniparser.a)
    set(names hash new del get set unset dump)
    list(TRANSFORM names PREPEND dictionary_)
    foreach(name IN ITEMS getnsec getsecname dump dump_ini dumpsection_ini getstring getint getlongint getdouble getboolean
            find_entry set unset load freedict getsecnkeys getseckeys set_error_callback)
        list(APPEND names iniparser_${name})
    endforeach()
    list(TRANSFORM names REPLACE "(.+)" "\\1 other_\\1")
    list(JOIN names "\n" names)
    file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/other_iniparser.names CONTENT "${names}\n")
    add_custom_command(OUTPUT ${archive} DEPENDS ${TQ_OTHER_INIPARSER} ${PROJECT_BINARY_DIR}/other_iniparser.names
        COMMAND ${CMAKE_OBJCOPY} --redefine-syms=${PROJECT_BINARY_DIR}/other_iniparser.names ${TQ_OTHER_INIPARSER} ${archive})
    add_custom_target(other_iniparser_archive DEPENDS ${archive})
    add_library(other_iniparser INTERFACE)
    add_dependencies(other_iniparser other_iniparser_archive)
    target_link_libraries(other_iniparser INTERFACE ${archive})
    target_compile_definitions(other_iniparser INTERFACE TQ_OTHER_INIPARSER)
endif()
