# 32-bit big-endian PowerPC with uClibc-ng, as on the console: the toolchain that make-uclibc-toolchain builds, to which build/uclibc
# leads, and the user-mode emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR powerpc)
set(uclibc ${CMAKE_CURRENT_LIST_DIR}/../build/uclibc)
set(CMAKE_CXX_COMPILER ${uclibc}/bin/powerpc-linux-uclibc-g++)
set(CMAKE_SYSROOT ${uclibc}/powerpc-linux-uclibc/sysroot)
set(CMAKE_FIND_ROOT_PATH ${CMAKE_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
    set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
# The C library without our patch, for tests that both must pass.
set(LOGICALCONTROLS_UNPATCHED_LIBRARIES ${uclibc}/powerpc-linux-uclibc/unpatched)
set(LOGICALCONTROLS_SIZE_BUDGET ${CMAKE_CURRENT_LIST_DIR}/../Benchmarks/target_budget.txt)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc -L ${CMAKE_SYSROOT} -E LD_LIBRARY_PATH=/lib:/usr/lib)
