# Building for macOS on Linux with the distribution's clang. QCF_DARWIN_TARGET names the processor; the system to build for
# is put together by scripts/darwin-sdk.sh.
get_filename_component(qcf_root "${CMAKE_CURRENT_LIST_DIR}/../.." ABSOLUTE)
set(QCF_DARWIN_SDK "${qcf_root}/build/darwin-sdk" CACHE PATH "What scripts/darwin-sdk.sh puts together")

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 17.0)  # the kernel of the oldest supported system
set(CMAKE_SYSTEM_PROCESSOR ${QCF_DARWIN_PROCESSOR})
set(CMAKE_OSX_DEPLOYMENT_TARGET 10.13 CACHE STRING "The oldest system that the result runs on")
set(CMAKE_OSX_SYSROOT "${QCF_DARWIN_SDK}" CACHE PATH "The system to build for")

set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET ${QCF_DARWIN_PROCESSOR}-apple-macosx${CMAKE_OSX_DEPLOYMENT_TARGET})
set(CMAKE_AR /usr/bin/llvm-ar CACHE FILEPATH "")
set(CMAKE_RANLIB /usr/bin/llvm-ranlib CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL /usr/bin/llvm-install-name-tool-14 CACHE FILEPATH "")
set(CMAKE_USER_MAKE_RULES_OVERRIDE "${CMAKE_CURRENT_LIST_DIR}/rules.cmake")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QCF_DARWIN_SDK)

# The order of the C++ library's folders matters: its headers wrap the platform's. Names that the platform calls
# deprecated are used on purpose, for hosts of its time.
set(CMAKE_CXX_FLAGS_INIT "-stdlib=libc++ -nostdinc++ -isystem ${QCF_DARWIN_SDK}/usr/c++ -isystem /usr/lib/llvm-14/include/c++/v1 \
-Wno-deprecated-declarations")
# The linker of version 14 writes broken unwind tables.
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT
      "-fuse-ld=lld --ld-path=/usr/lib/llvm-16/bin/ld64.lld -mlinker-version=705 \
-Wl,${QCF_DARWIN_SDK}/usr/lib/compilerRuntime.o -Wno-unused-command-line-argument")
endforeach()

set(CMAKE_FIND_ROOT_PATH "${QCF_DARWIN_SDK}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ZLIB_INCLUDE_DIR "${QCF_DARWIN_SDK}/usr/local/include" CACHE PATH "")
set(ZLIB_LIBRARY "${QCF_DARWIN_SDK}/usr/lib/libz.tbd" CACHE FILEPATH "")
set(Boost_INCLUDE_DIR "${QCF_DARWIN_SDK}/usr/local/include" CACHE PATH "")
