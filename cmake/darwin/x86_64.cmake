set(QCF_DARWIN_PROCESSOR x86_64)
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")
