# Debian's compiler with the C library musl (musl-tools).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER gcc)
# CMake reads this file more than once.
set(CMAKE_C_FLAGS_INIT "")
set(CMAKE_CXX_FLAGS_INIT "")
set(TQ_MUSL /usr/lib/x86_64-linux-musl)
set(TQ_GLIBC_MACHINE x86_64-linux-gnu)
set(TQ_ASM_DIRECTORY /usr/include/x86_64-linux-gnu/asm)
set(TQ_CXX_DIRECTORIES /usr/include/c++/12 /usr/include/x86_64-linux-gnu/c++/12)
include(${CMAKE_CURRENT_LIST_DIR}/musl/toolchain.cmake)
