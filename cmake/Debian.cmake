# Packages for Debian, by cpack in a build with QCF_DEBIAN (scripts/package.sh): the installed components, in the places and
# with the papers that the distribution wants. The libraries lie where the loader looks anyway, so nothing needs a run path.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "${QCF_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # the project's would go in front of that of each package
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# qcf_compress(<file> <target>): as the distribution compresses, the same bytes each time.
find_program(QCF_GZIP gzip REQUIRED)
function(qcf_compress file target)
  execute_process(COMMAND "${QCF_GZIP}" -9nc "${file}" OUTPUT_FILE "${target}" COMMAND_ERROR_IS_FATAL ANY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${file}")
endfunction()

# qcf_debian_package(<component> <package> <section> <summary> <description>)
function(qcf_debian_package component package section summary description)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)
  set(QCF_DEBIAN_NAME ${package})
  set(papers "${PROJECT_BINARY_DIR}/debian/${package}")
  configure_file("${CMAKE_CURRENT_FUNCTION_LIST_DIR}/debian/changelog.in" "${papers}/changelog.Debian" @ONLY)
  qcf_compress("${papers}/changelog.Debian" "${papers}/changelog.Debian.gz")
  install(FILES "${papers}/changelog.Debian.gz" "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/debian/copyright"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${package}" COMPONENT ${component})
endfunction()

set(soversion ${PROJECT_VERSION_MAJOR})
qcf_debian_package(library libqcfpkg${soversion} libs
  "reads, creates and updates ZIP-based packages"
  "A package is a ZIP file that begins with its type. This library recognises,
opens, creates and updates packages, with Zip64, keeps the rules of the type
entry, and holds properties of a package and its entries.")
qcf_debian_package(development libqcfpkg-dev libdevel
  "reads, creates and updates ZIP-based packages - development"
  "Headers, link libraries, the CMake package and the pkg-config file of the
library for packages: ZIP files that begin with their type.")
if(QCF_BUILD_TOOLS)
  qcf_debian_package(programs qcfpkg-tools utils
    "programs for ZIP-based packages and sound documents"
    "The program qcfpkg makes, changes and examines packages: ZIP files that begin
with their type. The program qsndhost shows, exports, draws and makes sound
documents, through the importer that is part of this package.")
endif()
foreach(component LIBRARY PROGRAMS)
  set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA "${CMAKE_CURRENT_LIST_DIR}/debian/triggers")
endforeach()
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "zlib1g-dev, libboost-dev, libexpat1-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)

# Dependencies are told by the libraries of the system; those of this build are the packages above.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS)
foreach(library qcfpkg qcfpkg_expat QFLFoundation qvacore)
  if(TARGET ${library})
    get_target_property(folder ${library} BINARY_DIR)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${folder}")
  endif()
endforeach()

include(CPack)
cpack_add_component(library)
cpack_add_component(development DEPENDS library)
if(QCF_BUILD_TOOLS)
  cpack_add_component(programs DEPENDS library)
endif()
