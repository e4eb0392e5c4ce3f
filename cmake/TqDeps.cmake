# The firmware's libraries that libtq is built on, as targets tq::<name>.
#
#   TQ_DEPS=system   the real ones, found by header and library as an OpenWrt build gives them
#   TQ_DEPS=host     the workstation's, from host/
#   TQ_DEPS=auto     the real ones where all of them are found, else host/
#
# The board library comes with a board, not with the firmware: where only that is missing, host/oem takes its place beside the
# real ones, whatever TQ_DEPS says.

set(TQ_DEPS "auto" CACHE STRING "Where libuci and its companions come from: auto, system or host")
set_property(CACHE TQ_DEPS PROPERTY STRINGS auto system host)

function(tq_find_dependency name header library)
    find_path(TQ_${name}_INCLUDE_DIR ${header} ${ARGN})
    find_library(TQ_${name}_LIBRARY ${library})
    mark_as_advanced(TQ_${name}_INCLUDE_DIR TQ_${name}_LIBRARY)
    if(TQ_${name}_INCLUDE_DIR AND TQ_${name}_LIBRARY)
        add_library(tq_system_${name} INTERFACE)
        target_include_directories(tq_system_${name} SYSTEM INTERFACE ${TQ_${name}_INCLUDE_DIR})
        target_link_libraries(tq_system_${name} INTERFACE ${TQ_${name}_LIBRARY})
        set(TQ_${name}_FOUND TRUE PARENT_SCOPE)
    endif()
endfunction()

# A dependency's name is also its directory under host/ and, there, its target.
set(TQ_DEPENDENCIES "")
set(TQ_DEPENDENCY_LIBRARIES "")
set(TQ_USE_SYSTEM TRUE)
set(TQ_BOARD_DEPENDENCIES oem)

# tq_dependency(NAME HEADER LIBRARY [find_path() option...])
macro(tq_dependency name header library)
    list(APPEND TQ_DEPENDENCIES ${name})
    list(APPEND TQ_DEPENDENCY_LIBRARIES -l${library})
    if(NOT TQ_DEPS STREQUAL "host")
        tq_find_dependency(${name} ${header} ${library} ${ARGN})
    endif()
    if(NOT TQ_${name}_FOUND AND NOT ${name} IN_LIST TQ_BOARD_DEPENDENCIES)
        if(TQ_DEPS STREQUAL "system")
            message(FATAL_ERROR "TQ_DEPS=system, but ${name} was not found: "
                "set TQ_${name}_INCLUDE_DIR and TQ_${name}_LIBRARY, or CMAKE_PREFIX_PATH")
        endif()
        set(TQ_USE_SYSTEM FALSE)
    endif()
endmacro()

tq_dependency(uci uci.h uci)
tq_dependency(ubox libubox/blobmsg.h ubox)
tq_dependency(ubus libubus.h ubus)
tq_dependency(nl-tiny unl.h nl-tiny PATH_SUFFIXES libnl-tiny)
tq_dependency(oem tq/oem.h tqoem)

set(TQ_HOST_DEPENDENCIES "")
foreach(name IN LISTS TQ_DEPENDENCIES)
    if(TQ_USE_SYSTEM AND TQ_${name}_FOUND)
        add_library(tq::${name} ALIAS tq_system_${name})
    else()
        add_subdirectory(host/${name})
        list(APPEND TQ_HOST_DEPENDENCIES ${name})
    endif()
endforeach()
if(NOT TQ_USE_SYSTEM)
    message(STATUS "Dependencies: host/")
elseif(TQ_HOST_DEPENDENCIES)
    message(STATUS "Dependencies: system, but for the board library, which was not found: host/${TQ_HOST_DEPENDENCIES}")
else()
    message(STATUS "Dependencies: system")
endif()
