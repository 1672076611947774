# find_package(qcfpkg [1.1] [COMPONENTS expat]): the targets qcfpkg::qcfpkg (shared) and qcfpkg::static, and with the
# component expat also qcfpkg::expat. Serves an installed tree, wherever it was moved to, and a build tree alike.
include(CMakeFindDependencyMacro)

find_dependency(Boost 1.74)
find_dependency(ZLIB)
find_dependency(Threads)
include("${CMAKE_CURRENT_LIST_DIR}/qcfpkgTargets.cmake")

if("expat" IN_LIST qcfpkg_FIND_COMPONENTS AND EXISTS "${CMAKE_CURRENT_LIST_DIR}/qcfpkgExpatTargets.cmake")
  find_dependency(EXPAT)
  include("${CMAKE_CURRENT_LIST_DIR}/qcfpkgExpatTargets.cmake")
  set(qcfpkg_expat_FOUND TRUE)
endif()

foreach(component IN LISTS qcfpkg_FIND_COMPONENTS)
  if(qcfpkg_FIND_REQUIRED_${component} AND NOT qcfpkg_${component}_FOUND)
    set(qcfpkg_FOUND FALSE)
    set(qcfpkg_NOT_FOUND_MESSAGE "qcfpkg is here, but without the component \"${component}\"")
  endif()
endforeach()
