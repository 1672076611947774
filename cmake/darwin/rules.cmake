# CMake asks the system that it runs on whether there are run paths. On every system that is built for, there are.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG "-Wl,-rpath,")
