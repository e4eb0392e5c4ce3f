# How everything in this project is compiled: language, warnings, sanitizers, and the flags that keep
# the C++ run-time library out of what ships.

set(CMAKE_C_STANDARD 99)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The C driver links what ships, so that a C++ run-time symbol is a link error and not a dependency.
set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")

# An error, but where somebody else's compiler warns of more.
set(CMAKE_COMPILE_WARNING_AS_ERROR ON CACHE BOOL "Whether a warning ends the build")

# For every target: strict warnings, 64-bit file offsets on 32-bit machines.
add_library(tq_warnings INTERFACE)
target_compile_options(tq_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wmissing-declarations -Wnon-virtual-dtor>
    $<$<COMPILE_LANGUAGE:C>:-Wmissing-prototypes -Wstrict-prototypes>)
target_compile_definitions(tq_warnings INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)

# GCC lets a caller keep values in registers that the called function does not name; but what a MIPS16 function sets up its
# global pointer with is added later, and destroys one of them.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^mips" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-fno-ipa-ra)
endif()

# For what is linked without the C++ run-time library.
add_library(tq_freestanding INTERFACE)
target_link_libraries(tq_freestanding INTERFACE tq_warnings)
target_compile_options(tq_freestanding INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
    -fvisibility=hidden -ffunction-sections -fdata-sections
    $<$<CONFIG:MinSizeRel>:-fno-asynchronous-unwind-tables>)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^mips")
    # A call is dearer there than GCC assumes when it inlines, or splits functions, for size, and so is a branch beside a
    # calculation; with eight registers in reach of most MIPS16 instructions, what it keeps in one for later costs more than it
    # saves.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(tq_freestanding INTERFACE "$<$<AND:$<CONFIG:MinSizeRel>,$<COMPILE_LANGUAGE:CXX>>:\
-fno-partial-inlining;--param=max-inline-insns-size=3;--param=uninlined-function-insns=6;-mbranch-cost=20;\
-fno-expensive-optimizations;-fno-ira-hoist-pressure;-frename-registers>")
    endif()
    # The table of addresses stays writable whatever the linker is told, and what else could be protected is less than the
    # padding that it takes; so is what the data would share a page with.
    set(segments -Wl,-z,common-page-size=16)
else()
    set(segments -Wl,-z,relro)
endif()
target_link_options(tq_freestanding INTERFACE
    ${segments} -Wl,-z,now -Wl,--gc-sections -Wl,--as-needed)

if(TQ_SANITIZE)
    add_compile_options(-fsanitize=${TQ_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${TQ_SANITIZE})
    add_compile_definitions(TQ_SANITIZED)
endif()
# For what coverage counts, the library's sources: everything else is built as it always is.
add_library(tq_counted INTERFACE)
if(TQ_COVERAGE)
    target_compile_options(tq_counted INTERFACE --coverage -fprofile-update=atomic)
    add_link_options(--coverage)
endif()
if(TQ_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
    add_link_options(-fsanitize=address,undefined)
    add_compile_definitions(TQ_SANITIZED)
endif()

# A shared object or program without the C++ run-time library.
function(tq_without_cxx_runtime target)
    target_link_libraries(${target} PRIVATE tq_freestanding)
    if(TQ_FUZZ)
        # clang's sanitizers come with a C++ run-time of their own, which only its C++ driver links.
        set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
    else()
        set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
        target_link_options(${target} PRIVATE -Wl,-z,defs)
    endif()
endfunction()
