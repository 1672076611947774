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
option(QCF_DEBIAN "Prepare packages for Debian (scripts/package.sh)" OFF)
set(QCF_MAINTAINER "qcfpkg developers <maintainers@qcfpkg.invalid>" CACHE STRING "Who answers for the packages")
option(QCF_COVERAGE "Instrument for coverage" OFF)

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(QCF_COMPILE_OPTIONS -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
set(QCF_LINK_OPTIONS)
if(QCF_WERROR)
  list(APPEND QCF_COMPILE_OPTIONS -Werror)
endif()
if(QCF_SANITIZE)
  list(APPEND QCF_COMPILE_OPTIONS
       -fsanitize=${QCF_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  list(APPEND QCF_LINK_OPTIONS -fsanitize=${QCF_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented code of the standard library's own headers sets this one off.
    list(APPEND QCF_COMPILE_OPTIONS -Wno-maybe-uninitialized)
  endif()
endif()
if(QCF_BUILD_FUZZERS)
  list(APPEND QCF_COMPILE_OPTIONS -fsanitize=fuzzer-no-link)
endif()
if(QCF_COVERAGE)
  # The compiler would have counters written before each fork(), and ask for memory, which is none of the program's own.
  list(APPEND QCF_COMPILE_OPTIONS --coverage -fno-builtin-fork)
  list(APPEND QCF_LINK_OPTIONS --coverage)
endif()

# qcf_defaults(<target>): warnings, sanitizers and large-file offsets for a target of this project. Nothing of it
# reaches a target that links it.
function(qcf_defaults target)
  target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)
  target_compile_options(${target} PRIVATE ${QCF_COMPILE_OPTIONS})
  target_link_options(${target} PRIVATE ${QCF_LINK_OPTIONS})
endfunction()
