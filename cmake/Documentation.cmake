# The target `docs`: the API reference, in api/html of the build tree. A warning of Doxygen fails it.
find_package(Doxygen 1.9 QUIET)
find_package(Python3 3.9 QUIET COMPONENTS Interpreter)
if(DOXYGEN_FOUND AND Python3_FOUND)
  configure_file("${CMAKE_CURRENT_LIST_DIR}/Doxyfile.in" "${PROJECT_BINARY_DIR}/Doxyfile" @ONLY)
  add_custom_target(docs
    COMMAND Doxygen::doxygen "${PROJECT_BINARY_DIR}/Doxyfile"
    COMMENT "Making the API reference in api/html" VERBATIM)
endif()
