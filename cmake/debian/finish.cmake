# Runs between the installation into the packages' folders and the making of the packages: adds what
# Debian wants in each, and takes away what only a plain installation needs.
find_program(gzip gzip REQUIRED)

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr)

  # The libraries are where the dynamic linker looks.
  file(GLOB programs ${root}/bin/*)
  foreach(program IN LISTS programs)
    file(RPATH_REMOVE FILE ${program})
  endforeach()

  file(GLOB pages ${root}/share/man/man*/*[0-9])
  foreach(page IN LISTS pages)
    execute_process(COMMAND ${gzip} -9nf ${page} COMMAND_ERROR_IS_FATAL ANY)
  endforeach()

  set(doc ${root}/share/doc/${CPACK_VORN_PACKAGE_${component}})
  file(COPY ${CPACK_VORN_DEBIAN_FILES}/copyright ${CPACK_VORN_DEBIAN_FILES}/changelog DESTINATION ${doc})
  execute_process(COMMAND ${gzip} -9nf ${doc}/changelog COMMAND_ERROR_IS_FATAL ANY)
endforeach()
