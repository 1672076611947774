# Objects only: no linker of the distribution links them.
set(QCF_DARWIN_PROCESSOR i386)
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")
