include("${CMAKE_CURRENT_LIST_DIR}/vornutilsTargets.cmake")
