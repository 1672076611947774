# fmt without its library, which is there in 64 bits only.
if(NOT TARGET fmt::fmt)
  add_library(fmt::fmt INTERFACE IMPORTED GLOBAL)
  target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY)
endif()
