# 32-bit big-endian PowerPC with glibc: Debian's cross compiler, run by the user-mode emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR powerpc)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++)
# Beside the compiler's own libraries, those that toolchains/libraries-for-powerpc makes.
set(CMAKE_FIND_ROOT_PATH /usr/powerpc-linux-gnu ${CMAKE_CURRENT_LIST_DIR}/../build/powerpc-libraries)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
    set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc -L /usr/powerpc-linux-gnu)
