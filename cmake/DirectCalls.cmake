# Calls inside a shared library are direct: a program's function of the same name does not take the
# place of the library's. Variables, type information and vtables are not touched: there is one of
# each, wherever it is used. No address of an exported function leaves a library to be compared.
foreach(name IN ITEMS vornutils vornplatform)
  target_compile_options(${name}_objects PRIVATE
    -fno-plt $<$<CXX_COMPILER_ID:GNU>:-fno-semantic-interposition>)
  target_link_options(${name} PRIVATE -Wl,-Bsymbolic-functions)
endforeach()

# The tests link the libraries' objects and replace calls between them. Link-time optimisation would
# leave none to replace, so it is for a release build without tests; and not for static libraries, which
# other compilers could not link then.
if(BUILD_SHARED_LIBS AND NOT VORN_BUILD_TESTS)
  include(CheckIPOSupported)
  check_ipo_supported(RESULT hasLinkTimeOptimisation LANGUAGES CXX)
  if(hasLinkTimeOptimisation)
    set_target_properties(vornutils_objects vornplatform_objects vornutils vornplatform PROPERTIES
      INTERPROCEDURAL_OPTIMIZATION_RELEASE ON)
  endif()
endif()
