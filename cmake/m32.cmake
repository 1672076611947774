# 32-bit Intel on a 64-bit machine: the machine's own compiler, and the libraries of the second architecture.
set(CMAKE_CXX_FLAGS_INIT "-m32")
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_CXX_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_IGNORE_PREFIX_PATH /usr/lib/x86_64-linux-gnu)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/i386-linux-gnu/pkgconfig:/usr/share/pkgconfig)
