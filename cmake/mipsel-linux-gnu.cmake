# Debian's cross compiler for 32-bit little-endian MIPS; what it builds runs under qemu-user, with the shared objects of
# Debian's mipsel packages. The cross compiler's own copies of those are left alone: mixing two C libraries of different
# builds crashes at the first fork.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE mipsel-linux-gnu)
set(CMAKE_FIND_ROOT_PATH /usr/mipsel-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# MIPS16e, as firmware for these cores (24Kc and the like) is built where size counts: two thirds of the code's size.
set(CMAKE_C_FLAGS_INIT "-mips32r2 -mips16 -minterlink-mips16")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT}")
# Debian's compiler adds an identifier of the build, a firmware's does not.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,--build-id=none")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${CMAKE_SHARED_LINKER_FLAGS_INIT}")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel-static)
