# Debian's compiler with the C library musl (musl-tools), as on a device. There is no C++ run-time library for it, and what
# ships needs none: the C driver compiles C++ as well, and takes only the headers of the C++ library.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER musl-gcc)
set(TQ_MUSL TRUE)

execute_process(COMMAND g++ -dumpversion OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND g++ -dumpmachine OUTPUT_VARIABLE TQ_GLIBC_MACHINE OUTPUT_STRIP_TRAILING_WHITESPACE
    COMMAND_ERROR_IS_FATAL ANY)

# The headers of the kernel and of other libraries lie among those of another C library; these links let them in, and nothing
# else.
set(CMAKE_FIND_ROOT_PATH ${CMAKE_BINARY_DIR}/musl)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(include ${CMAKE_FIND_ROOT_PATH}/include)
file(MAKE_DIRECTORY ${include})
foreach(directory IN ITEMS linux asm-generic ${TQ_GLIBC_MACHINE}/asm libnl3 json-c)
    cmake_path(GET directory FILENAME name)
    file(CREATE_LINK /usr/include/${directory} ${include}/${name} SYMBOLIC)
endforeach()
set(CMAKE_C_FLAGS_INIT "-isystem ${include}")
set(CMAKE_CXX_FLAGS_INIT "-isystem ${CMAKE_CURRENT_LIST_DIR}/musl \
-isystem /usr/include/c++/${version} -isystem /usr/include/${TQ_GLIBC_MACHINE}/c++/${version} -isystem ${include}")
