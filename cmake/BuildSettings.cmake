# What every target of this project is built with.
find_package(Threads REQUIRED)
find_package(LibXml2 REQUIRED)

# Header-only libraries are the same for every target machine. When cross-building they are taken from this one, alone in a
# folder of their own so that nothing else of it comes along.
function(logicalcontrols_find_headers name header)
    find_path(${name}_FOUND_IN ${header} NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    get_filename_component(folder ${header} DIRECTORY)
    string(REGEX REPLACE "/.*" "" folder ${folder})
    set(alone ${PROJECT_BINARY_DIR}/headers/${folder})
    file(MAKE_DIRECTORY ${alone})
    if(NOT EXISTS ${alone}/${folder})
        file(CREATE_LINK ${${name}_FOUND_IN}/${folder} ${alone}/${folder} SYMBOLIC)
    endif()
    add_library(logicalcontrols_${name} INTERFACE)
    target_include_directories(logicalcontrols_${name} SYSTEM INTERFACE ${alone})
endfunction()

logicalcontrols_find_headers(boost boost/endian/arithmetic.hpp)

# pthread_rwlockattr_setkind_np is an extension that not every C library has.
include(CheckCXXSourceCompiles)
set(CMAKE_REQUIRED_LIBRARIES Threads::Threads)
check_cxx_source_compiles("
    #include <pthread.h>
    int main() { pthread_rwlockattr_t a; return pthread_rwlockattr_setkind_np(&a, PTHREAD_RWLOCK_PREFER_WRITER_NP); }"
    LOGICALCONTROLS_HAVE_RWLOCK_KIND)
unset(CMAKE_REQUIRED_LIBRARIES)

# So is backtrace.
set(CMAKE_REQUIRED_LIBRARIES ${CMAKE_DL_LIBS})
check_cxx_source_compiles("
    #include <execinfo.h>
    #include <dlfcn.h>
    int main() { void* p[1]; Dl_info i; return backtrace(p, 1) + dladdr(p[0], &i); }"
    LOGICALCONTROLS_HAVE_BACKTRACE)
unset(CMAKE_REQUIRED_LIBRARIES)
if(NOT LOGICALCONTROLS_HAVE_BACKTRACE)
    message(STATUS "Failed invariants are reported without a stack: this C library has no backtrace")
endif()

add_library(logicalcontrols_settings INTERFACE)
target_compile_features(logicalcontrols_settings INTERFACE cxx_std_17)
target_compile_options(logicalcontrols_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fno-semantic-interposition $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
target_link_libraries(logicalcontrols_settings INTERFACE Threads::Threads ${CMAKE_DL_LIBS} logicalcontrols_boost)

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)

if(LOGICALCONTROLS_SANITIZE)
    add_compile_options(-fsanitize=${LOGICALCONTROLS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${LOGICALCONTROLS_SANITIZE})
    # The vptr check takes a base class that lies more than 1 MiB into its object, as the handler's socket does, for a bad one.
    if(LOGICALCONTROLS_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize=vptr)
    endif()
endif()
