# 32-bit Intel on a 64-bit machine: the machine's own compiler and the 32-bit libraries that come with it (g++-multilib,
# lib32z1-dev). A second architecture of the package system is not asked for, so libraries that the distribution has no
# 32-bit build of in its own architecture are missing: what needs them is left out, and the tests say so.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_CROSSCOMPILING OFF)
set(CMAKE_C_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")
# Floats and doubles are computed at their own widths, as on 64 bits, never at the width of the old stack's registers.
set(CMAKE_CXX_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_C_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_CXX_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(ZLIB_LIBRARY /usr/lib32/libz.so CACHE FILEPATH "zlib of this word size")
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/i386-linux-gnu/pkgconfig:/usr/share/pkgconfig)

# Packages that are built with the project, from the sources that the distribution installs.
set(GTest_DIR "${CMAKE_CURRENT_LIST_DIR}/m32" CACHE PATH "GoogleTest, built from its sources")
set(fmt_DIR "${CMAKE_CURRENT_LIST_DIR}/m32" CACHE PATH "fmt, used through its headers alone")
