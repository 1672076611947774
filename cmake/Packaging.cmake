# What is installed, and how clients find it. Components:
#   library       what programs that use the shared library need to run
#   development   headers, link libraries, the CMake package and qcfpkg.pc
#   programs      qsndhost, qcfpkg and the importer bundle
include(CMakePackageConfigHelpers)

set(QCF_PACKAGE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/qcfpkg")
set(QCF_HEADER_DIR "${CMAKE_INSTALL_INCLUDEDIR}/qcf/package")

# qcf_export(<export set>): its targets, for clients of the installed tree and of the build tree.
function(qcf_export set)
  install(EXPORT ${set} NAMESPACE qcfpkg:: DESTINATION ${QCF_PACKAGE_DIR} COMPONENT development)
  export(EXPORT ${set} NAMESPACE qcfpkg:: FILE "${PROJECT_BINARY_DIR}/${set}.cmake")
endfunction()

# --- The library

install(TARGETS qcfpkg qcfpkg_static EXPORT qcfpkgTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
qcf_export(qcfpkgTargets)

# What the templates are defined by stays here: clients link the one instantiation.
install(DIRECTORY "${PROJECT_SOURCE_DIR}/xml/qcf/pkglib/package/" DESTINATION ${QCF_HEADER_DIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h" PATTERN impl EXCLUDE PATTERN posix EXCLUDE PATTERN mac EXCLUDE)

# --- The expat adapter, a component of the package: only its clients need expat

if(TARGET qcfpkg_expat)
  set_target_properties(qcfpkg_expat PROPERTIES EXPORT_NAME expat)
  install(TARGETS qcfpkg_expat EXPORT qcfpkgExpatTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    PUBLIC_HEADER DESTINATION ${QCF_HEADER_DIR}/expat COMPONENT development)
  qcf_export(qcfpkgExpatTargets)
endif()

# --- find_package(qcfpkg) and pkg-config

configure_file("${CMAKE_CURRENT_LIST_DIR}/qcfpkgConfig.cmake" "${PROJECT_BINARY_DIR}/qcfpkgConfig.cmake" COPYONLY)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/qcfpkgConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/qcfpkgConfig.cmake" "${PROJECT_BINARY_DIR}/qcfpkgConfigVersion.cmake"
  DESTINATION ${QCF_PACKAGE_DIR} COMPONENT development)

# The file finds its prefix from where it lies, so that a tree can be moved.
file(RELATIVE_PATH QCF_PREFIX_FROM_PC "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
string(REGEX REPLACE "/$" "" QCF_PREFIX_FROM_PC "${QCF_PREFIX_FROM_PC}")
configure_file("${CMAKE_CURRENT_LIST_DIR}/qcfpkg.pc.in" "${PROJECT_BINARY_DIR}/qcfpkg.pc" @ONLY)
get_target_property(QCF_LIBRARY_DIR qcfpkg BINARY_DIR)
configure_file("${CMAKE_CURRENT_LIST_DIR}/qcfpkg-uninstalled.pc.in" "${PROJECT_BINARY_DIR}/qcfpkg-uninstalled.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/qcfpkg.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# --- Packages for Debian

if(QCF_DEBIAN)
  include(Debian)
endif()

# --- What belongs to the programs: manual pages and shell completions

if(TARGET qsndhost AND TARGET qcfpkg_tool)
  foreach(page qsndhost.1 qcfpkg.1 qsnd.5 qcfpkg.5)
    string(REGEX REPLACE ".*\\." "" section ${page})
    set(file "${PROJECT_SOURCE_DIR}/man/${page}")
    if(QCF_DEBIAN)
      qcf_compress("${file}" "${PROJECT_BINARY_DIR}/debian/${page}.gz")
      set(file "${PROJECT_BINARY_DIR}/debian/${page}.gz")
    endif()
    install(FILES "${file}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}" COMPONENT programs)
  endforeach()
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/completions/"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT programs)
endif()
