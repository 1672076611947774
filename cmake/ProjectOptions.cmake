# Options, the language level and the flags that every target of this project is built with.
include(CTest)

option(QCF_BUILD_IMPORTER "Build the importer bundle, the host libraries it needs and HostKit" ON)
option(QCF_BUILD_TOOLS "Build the programs qsndhost and qcfpkg" ON)
option(QCF_BUILD_ADAPTERS "Build the expat adapter" ON)
option(QCF_BUILD_EXAMPLES "Build the example clients" ON)
option(QCF_BUILD_BENCHMARKS "Build the benchmarks" OFF)
option(QCF_BUILD_FUZZERS "Build the fuzz targets (clang)" OFF)
option(QCF_WERROR "Treat warnings as errors" ON)
set(QCF_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize= takes them")
option(QCF_COVERAGE "Instrument for coverage" OFF)

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# qcf_defaults(<target>): warnings, sanitizers and large-file offsets for a target of this project.
add_library(qcf_build_flags INTERFACE)
target_compile_definitions(qcf_build_flags INTERFACE _FILE_OFFSET_BITS=64)
target_compile_options(qcf_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow $<$<BOOL:${QCF_WERROR}>:-Werror>)
if(QCF_SANITIZE)
  target_compile_options(qcf_build_flags INTERFACE -fsanitize=${QCF_SANITIZE} -fno-omit-frame-pointer
                         -fno-sanitize-recover=all)
  target_link_options(qcf_build_flags INTERFACE -fsanitize=${QCF_SANITIZE})
endif()
if(QCF_COVERAGE)
  target_compile_options(qcf_build_flags INTERFACE --coverage)
  target_link_options(qcf_build_flags INTERFACE --coverage)
endif()

function(qcf_defaults target)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:qcf_build_flags>)
endfunction()
