# Debian packages, by cpack: the library, what programs are built with, consolectl, the documents, and the Python module.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME logicalcontrols)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "Logical Controls")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "logical controls of a digital audio mixing console")
set(CPACK_PACKAGE_CONTACT "Logical Controls <developers@logicalcontrols.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development tools documentation)
if(LOGICALCONTROLS_PYTHON)
    list(APPEND CPACK_COMPONENTS_ALL python)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 0lc1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY =)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/FinishPackages.cmake)

set(library liblogicalcontrols${LOGICALCONTROLS_ABI})
set(same_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

# describe(COMPONENT PACKAGE SECTION CONTENTS [DEPENDS ...])
function(describe component package section contents)
    string(TOUPPER ${component} COMPONENT)
    list(JOIN ARGN ", " depends)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${package} PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
    set(CPACK_COMPONENT_${COMPONENT}_DESCRIPTION "${about}\n.\nThis package has ${contents}" PARENT_SCOPE)
endfunction()

set(about "Holds an image of all parameters of a digital audio mixing console,
keeps it in step with the master controller over UDP multicast, sends
local changes back, moves shows between images by scope, and speaks
the console's diagnostics.")
describe(library ${library} libs "the shared library.")
describe(development liblogicalcontrols-dev libdevel
    "what programs are built with: headers, and what
CMake and pkg-config need."
    "${library} ${same_version}" libboost-dev)
describe(tools logicalcontrols-tools sound
    "consolectl, the engineer's view of such a system: who
sends what, what is lost, what changes and why, and whether both ends
are the same."
    "${library} ${same_version}")
describe(documentation logicalcontrols-doc doc
    "the guide, the architecture, the format on the wire,
the reference of the headers, and examples.")
if(LOGICALCONTROLS_PYTHON)
    math(EXPR next "${Python3_VERSION_MINOR} + 1")
    describe(python python3-logicalcontrols python
        "a Python module for test rigs: images whose blocks
are buffers, followers, and a simulated master controller."
        "${library} ${same_version}" "python3 (>= 3.${Python3_VERSION_MINOR})" "python3 (<< 3.${next})")
endif()
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/triggers ${CMAKE_CURRENT_LIST_DIR}/postrm)

install(DIRECTORY Documentation DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/logicalcontrols-doc COMPONENT documentation
    FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.png")
install(FILES README.md CONTRIBUTING.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/logicalcontrols-doc COMPONENT documentation)
install(CODE "
    file(GLOB pages \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/doc/logicalcontrols-doc/*.md\"
        \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/doc/logicalcontrols-doc/Documentation/*.md\")
    execute_process(COMMAND sed -i -f ${CMAKE_CURRENT_SOURCE_DIR}/Documentation/installed.sed \${pages} COMMAND_ERROR_IS_FATAL ANY)"
    COMPONENT documentation)
install(DIRECTORY Examples/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/logicalcontrols-doc/examples COMPONENT documentation
    FILES_MATCHING PATTERN "*.cpp")
include(CPack)
