# Debian packages, one a component, and one with the debug symbols of each: cpack -G DEB.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "VORN Utils")
set(CPACK_PACKAGE_CONTACT ${VORN_PACKAGE_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime development)
if(TARGET vorndiag)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# The tools' dependency on the library is written below, since the library is in no package database yet.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
# Not for all at once: the generator would ask of each header what kind of file it is.
foreach(component IN ITEMS RUNTIME TOOLS)
  set(CPACK_DEBIAN_${component}_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_${component}_DEBUGINFO_PACKAGE ON)
endforeach()
# The generator puts any other summary before those of the components.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_NAME} built using CMake")

set(library_package libvornutils${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# What a package depends on whose programs call the libraries: the version that brought the last names.
set(shlibs "")
foreach(name IN ITEMS vornplatform vornutils)
  string(APPEND shlibs "lib${name} ${PROJECT_VERSION_MAJOR} ${library_package} "
    "(>= ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})\n")
endforeach()
file(CONFIGURE OUTPUT debian/shlibs CONTENT "${shlibs}" @ONLY)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/cmake/debian/triggers ${PROJECT_BINARY_DIR}/debian/shlibs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "support layer of a publish-subscribe middleware
Message queues between the processes of a host, UDP endpoints that send and
receive multicast on every usable interface, timed events, sequence numbers
and host lists, with the lower layer that they call.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvornutils-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "support layer of a publish-subscribe middleware: development files
Headers, files for CMake and pkg-config, and the sources of a program that
checks a lower layer of one's own.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vornutils-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "looks at the queues and interfaces that vornutils uses
The command vorndiag shows queues, limits, interfaces and host lists, tries
multicast from each interface to each, and gives back what a process that
died in the middle holds of a queue.")

# What a package has and a plain installation has not, and the reverse.
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/finish.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/repack.cmake)
set(CPACK_VORN_DEBIAN_FILES ${PROJECT_SOURCE_DIR}/cmake/debian)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(CPACK_VORN_PACKAGE_${component} ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
endforeach()
include(CPack)
