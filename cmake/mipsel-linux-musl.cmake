# The access point's machine and its C library: Debian's cross compiler with musl (musl-dev:mipsel).
include(${CMAKE_CURRENT_LIST_DIR}/mipsel-linux-gnu.cmake)
set(TQ_MUSL /usr/lib/mipsel-linux-musl)
set(TQ_GLIBC_MACHINE mipsel-linux-gnu)
set(TQ_ASM_DIRECTORY /usr/mipsel-linux-gnu/include/asm)
set(TQ_CXX_DIRECTORIES /usr/mipsel-linux-gnu/include/c++/12 /usr/mipsel-linux-gnu/include/c++/12/mipsel-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/musl/toolchain.cmake)
