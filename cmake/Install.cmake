# What is installed, in three components: runtime, development, and tools (in tools/). All of it may be
# moved afterwards: no file names the prefix.
include(CMakePackageConfigHelpers)

install(TARGETS vornutils vornplatform EXPORT vornutilsTargets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development)
install(DIRECTORY src/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vornutils COMPONENT development
        FILES_MATCHING PATTERN "*.h" PATTERN "linux" EXCLUDE PATTERN "internal" EXCLUDE)
install(DIRECTORY conformance/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vornutils/conformance
        COMPONENT development)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vornutils)
install(EXPORT vornutilsTargets NAMESPACE vornutils:: DESTINATION ${package_dir} COMPONENT development)
configure_file(cmake/vornutilsConfig.cmake.in vornutilsConfig.cmake @ONLY)
write_basic_package_version_file(vornutilsConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vornutilsConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/vornutilsConfigVersion.cmake
        DESTINATION ${package_dir} COMPONENT development)

# Neither file requires the other: which lower layer a program links is for the program to say.
set(pc_dir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_prefix ${pc_dir} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
file(RELATIVE_PATH pc_libdir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH pc_includedir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
set(pc_threads ${CMAKE_THREAD_LIBS_INIT})
set(pc_description_vornutils ${PROJECT_DESCRIPTION})
set(pc_description_vornplatform "Lower layer of vornutils for this system")
foreach(name IN ITEMS vornutils vornplatform)
  set(pc_name ${name})
  set(pc_description ${pc_description_${name}})
  configure_file(cmake/library.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
          COMPONENT development)
endforeach()
