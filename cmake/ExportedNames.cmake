# Lets `library` export what cmake/exports/<library>.txt lists and nothing else, each name with the
# version that its line begins with. A line goes on with the name as the linker reads it and as a
# programmer does.
function(export_listed_names library)
  set(list ${PROJECT_SOURCE_DIR}/cmake/exports/${library}.txt)
  set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
  file(STRINGS ${list} lines)
  set(versions "")
  foreach(line IN LISTS lines)
    string(REGEX MATCH "^([^ ]+) ([^ ]+)" both "${line}")
    set(version ${CMAKE_MATCH_1})
    # Of the two symbols of a constructor the list has one: some compilers make no other for an abstract
    # class. As a pattern it names both.
    string(REPLACE "C2E" "C[12]E" name "${CMAKE_MATCH_2}")
    list(APPEND versions ${version})
    string(APPEND names_${version} "    ${name};\n")
  endforeach()
  list(REMOVE_DUPLICATES versions)
  list(SORT versions COMPARE NATURAL)

  set(text "")
  set(others "  local: *;\n")
  set(before "")
  foreach(version IN LISTS versions)
    string(APPEND text "${version} {\n  global:\n${names_${version}}${others}}${before};\n")
    set(others "")
    set(before " ${version}")
  endforeach()
  set(script ${PROJECT_BINARY_DIR}/${library}.map)
  file(CONFIGURE OUTPUT ${script} CONTENT "${text}" @ONLY)
  target_link_options(${library} PRIVATE LINKER:--version-script=${script})
  set_property(TARGET ${library} APPEND PROPERTY LINK_DEPENDS ${script})
endfunction()
