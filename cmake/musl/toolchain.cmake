# What the toolchain files for musl share. There is no C++ run-time library for it, and what ships needs none: the C driver
# compiles C++ as well, and takes only the headers of the C++ library.
#
# Expects TQ_MUSL, the directory of musl's libraries; TQ_GLIBC_MACHINE, the same machine's name with Debian's C library; and
# the directories where the headers are that depend on the machine: TQ_ASM_DIRECTORY the kernel's, TQ_CXX_DIRECTORIES those of
# the C++ library.
set(CMAKE_CXX_COMPILER ${CMAKE_C_COMPILER})

# The headers of the kernel and of other libraries lie among those of another C library; these links let them in, and nothing
# else.
set(CMAKE_FIND_ROOT_PATH ${CMAKE_BINARY_DIR}/musl)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(include ${CMAKE_FIND_ROOT_PATH}/include)
file(MAKE_DIRECTORY ${include})
foreach(directory IN ITEMS /usr/include/linux /usr/include/asm-generic ${TQ_ASM_DIRECTORY}
        /usr/include/libnl3 /usr/include/json-c)
    cmake_path(GET directory FILENAME name)
    file(CREATE_LINK ${directory} ${include}/${name} SYMBOLIC)
endforeach()

string(APPEND CMAKE_C_FLAGS_INIT " -specs=${TQ_MUSL}/musl-gcc.specs -isystem ${include}")
string(APPEND CMAKE_CXX_FLAGS_INIT " -specs=${TQ_MUSL}/musl-gcc.specs")
foreach(directory IN ITEMS ${CMAKE_CURRENT_LIST_DIR} LISTS TQ_CXX_DIRECTORIES ITEMS ${include})
    string(APPEND CMAKE_CXX_FLAGS_INIT " -isystem ${directory}")
endforeach()
