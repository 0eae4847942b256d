# Whether the Python module is built. It is for this machine's own Python, which pybind11 comes with on Debian:
# -DPython3_EXECUTABLE=... takes another.
include(CMakeDependentOption)
if(LOGICALCONTROLS_TOOLS AND NOT CMAKE_CROSSCOMPILING AND NOT LOGICALCONTROLS_SANITIZE)
    find_program(Python3_EXECUTABLE python3 PATHS /usr/bin NO_DEFAULT_PATH)
    find_package(Python3 3.11 QUIET COMPONENTS Interpreter Development.Module)
    if(Python3_FOUND)
        find_package(pybind11 2.10 QUIET CONFIG)
    endif()
endif()
cmake_dependent_option(LOGICALCONTROLS_PYTHON "Build the Python module" ON "Python3_FOUND;pybind11_FOUND" OFF)
if(NOT Python3_FOUND OR NOT pybind11_FOUND)
    message(STATUS "The Python module is not built: it needs pybind11 and Python's development files, and is built natively, without sanitizers")
endif()
