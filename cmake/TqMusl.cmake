# The libraries of others for musl, which Debian has for its own C library only: its static archives call little that musl does
# not have, and become shared objects with that little beside them.
function(tq_library_for_musl name)
    list(TRANSFORM ARGN PREPEND /usr/lib/${TQ_GLIBC_MACHINE}/ OUTPUT_VARIABLE archives)
    list(JOIN archives "," archives)
    add_library(${name} SHARED ${PROJECT_SOURCE_DIR}/cmake/musl/fortify.c)
    target_compile_definitions(${name} PRIVATE _GNU_SOURCE)
    target_link_options(${name} PRIVATE -Wl,--whole-archive,${archives},--no-whole-archive
        -Wl,-Bsymbolic -Wl,-z,defs -Wl,--wrap=stdout,--wrap=stderr)
endfunction()

tq_library_for_musl(nl-3 libnl-3.a libnl-genl-3.a)
tq_library_for_musl(json-c libjson-c.a)
set(TQ_NL3_LIBRARY nl-3)
set(TQ_NL3_GENL_LIBRARY nl-3)
set(TQ_json_c_LIBRARY json-c)
