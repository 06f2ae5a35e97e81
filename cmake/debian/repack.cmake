# Runs after the packages are made, and corrects what the generator cannot be told: the checksums of the
# debug symbols name files of the build, these packages lack the documents of the others, and the library's
# scripts do by hand what its trigger has done.
find_program(dpkg_deb dpkg-deb REQUIRED)

foreach(package IN LISTS CPACK_PACKAGE_FILES)
  get_filename_component(name ${package} NAME)
  string(REGEX REPLACE "_.*" "" name ${name})
  if(NOT name MATCHES "-dbgsym$" AND NOT name STREQUAL CPACK_VORN_PACKAGE_runtime)
    continue()
  endif()
  set(folder ${CPACK_TEMPORARY_DIRECTORY}/repack/${name})
  file(REMOVE_RECURSE ${folder})
  file(MAKE_DIRECTORY ${folder})
  execute_process(COMMAND ${dpkg_deb} -R ${package} ${folder} COMMAND_ERROR_IS_FATAL ANY)
  if(name MATCHES "(.*)-dbgsym$")
    set(of ${CMAKE_MATCH_1})
    file(READ ${folder}/DEBIAN/md5sums sums)
    string(REGEX REPLACE "  [^\n]*/(usr/lib/debug/)" "  \\1" sums "${sums}")
    file(WRITE ${folder}/DEBIAN/md5sums "${sums}")
    file(MAKE_DIRECTORY ${folder}/usr/share/doc)
    file(CREATE_LINK ${of} ${folder}/usr/share/doc/${name} SYMBOLIC)
  else()
    file(REMOVE ${folder}/DEBIAN/postinst ${folder}/DEBIAN/postrm)
  endif()
  execute_process(COMMAND ${dpkg_deb} --root-owner-group -b ${folder} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
