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
# A call is dearer there than the compiler assumes when it inlines, or splits functions, for size, and so is a branch beside a
# calculation; with eight registers in reach of most instructions, what it keeps in one for later costs more than it saves.
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT} -fno-partial-inlining --param=max-inline-insns-size=3 \
--param=uninlined-function-insns=6 -fno-expensive-optimizations -fno-ira-hoist-pressure -frename-registers -mbranch-cost=20")
# The device's kernel has pages of 4 KiB: the linker's default of 64 KiB would only pad the file, and so would starting the
# data on a page of its own. Debian's compiler adds an identifier of the build, a firmware's does not.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-z,max-page-size=4096 -Wl,-z,common-page-size=16 -Wl,--build-id=none")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${CMAKE_SHARED_LINKER_FLAGS_INIT}")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel-static)
