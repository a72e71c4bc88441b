# Debian packages of what cmake/Install.cmake installs; scripts/package builds them.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR csclient)
set(CPACK_PACKAGE_CONTACT "csclient developers <csclient@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # Each package has its own.
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# The packages' own files: copyright, changelog, compressed manuals.
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/PackageFiles.cmake)
set(CPACK_CSCLIENT_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)

# Packages of sources that were changed after a release are newer than those of the release: 4.4.132+unreleased. The changelog
# says which they are.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/packaging/changelog)
file(STRINGS ${PROJECT_SOURCE_DIR}/packaging/changelog newest_entry LIMIT_COUNT 1)
if(NOT newest_entry MATCHES "^csclient \\((${PROJECT_VERSION}(\\+unreleased)?)\\) ")
    message(FATAL_ERROR "packaging/changelog begins with \"${newest_entry}\", and the project is ${PROJECT_VERSION}")
endif()
set(package_version ${CMAKE_MATCH_1})
set(CPACK_DEBIAN_PACKAGE_VERSION ${package_version})

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# Said by hand, not by dpkg-shlibdeps: that finds nothing for another architecture than this machine's.
set(CSCLIENT_SYSTEM_PACKAGES "libc6, libgcc-s1, libstdc++6" CACHE STRING
    "The Debian packages, with versions, that hold what libraries and programs are linked against")

set(library_package libcsclient${PROJECT_VERSION_MAJOR})
set(description "Exchanges named values with a simulation host over TCP: publishes outputs,
subscribes to inputs, and comes back by itself after a lost connection.")

# Multi-Arch stands in the priority because CPack has no variable for it.

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_PRIORITY "optional\nMulti-Arch: same")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${CSCLIENT_SYSTEM_PACKAGES}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/shlibs ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "client library for a simulation host
${description}")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libcsclient-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_PRIORITY "optional\nMulti-Arch: same")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library_package} (= ${package_version})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "client library for a simulation host - development files
${description}

This package holds the headers, the static library, the files for CMake and
pkg-config, and the manual.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME csclient-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_PRIORITY "optional\nMulti-Arch: foreign")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${library_package} (= ${package_version}), ${CSCLIENT_SYSTEM_PACKAGES}")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "publishes values to a simulation host, and is one for tests
cspublish publishes values from a command line. cshost is a simulation host
for the desk: it stores what clients publish, passes it on to whoever has
subscribed, and prints one line per event.")

include(CPack)
