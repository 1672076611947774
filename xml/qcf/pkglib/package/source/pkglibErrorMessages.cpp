#include <cstring>

#include "package/source/PackageException.h"

namespace pkg {

#define SAMPLE_TEXT(tail) "PKGLIB SAMPLE ERROR MESSAGE: " tail

const char* const sErrMsg[51] = {
    SAMPLE_TEXT("NONE"),  // 0
    SAMPLE_TEXT("Out of Memory"),
    SAMPLE_TEXT("Couldn't read all bytes of CDH"),
    SAMPLE_TEXT("Bad CDH signature"),
    SAMPLE_TEXT("Could not read file name"),
    SAMPLE_TEXT("Could not read extra field"),
    SAMPLE_TEXT("Could not read file comment"),
    SAMPLE_TEXT("file size too big"),
    SAMPLE_TEXT("Bad LFH signature"),
    SAMPLE_TEXT("Too many CD entries"),
    SAMPLE_TEXT("Could not read ECD"),  // 10
    SAMPLE_TEXT("Could not find ECD"),
    SAMPLE_TEXT("Could not read Zip64 ECDL"),
    SAMPLE_TEXT("Bad Zip64 ECDL signature"),
    SAMPLE_TEXT("Could not read Zip64 ECD"),
    SAMPLE_TEXT("Bad Zip64 ECD signature"),
    SAMPLE_TEXT("Detected a Split Zip file"),
    SAMPLE_TEXT("Package already open"),  // 17
    SAMPLE_TEXT("Bad LFH size value"),    // 18
    SAMPLE_TEXT("NOT Implemented"),
    SAMPLE_TEXT("Not a Valid Package file"),  // 20
    SAMPLE_TEXT("Package Entry not found"),
    SAMPLE_TEXT("Client Error Bad Argument"),
    SAMPLE_TEXT("Client Error Unsupported Operation"),
    SAMPLE_TEXT("Package in Illegal State"),
    SAMPLE_TEXT("Directory Already Exists"),
    SAMPLE_TEXT("Package Open Write-Only"),
    SAMPLE_TEXT("Write DEFLATE Operation FAILED"),
    SAMPLE_TEXT("Package not in update"),
    SAMPLE_TEXT("Error Writing File"),
    SAMPLE_TEXT("Error Closing Package File"),  // 30
    SAMPLE_TEXT("Error Decompressing File"),
    SAMPLE_TEXT("Error Compressing File"),
    SAMPLE_TEXT("Open mode is input only"),
    SAMPLE_TEXT("Open mode is invalid"),
    SAMPLE_TEXT("Update already in progress"),
    SAMPLE_TEXT("Update requires write"),
    SAMPLE_TEXT("Update not in progress"),
    SAMPLE_TEXT("Error Opening File"),
    SAMPLE_TEXT("Error Opening Temp File"),
    SAMPLE_TEXT("Error Reading File"),  // 40
    SAMPLE_TEXT("Error Seeking"),
    SAMPLE_TEXT("Error Telling"),
    SAMPLE_TEXT("Error Flushing"),
    SAMPLE_TEXT("Error Truncating"),
    SAMPLE_TEXT("Conformance Violation"),
    SAMPLE_TEXT("Invalid mimetype file"),
    SAMPLE_TEXT("Missing mimetype file"),
    SAMPLE_TEXT("Error Creating Temp File"),
    SAMPLE_TEXT("Error Deleting Temp File"),
    SAMPLE_TEXT("UNKNOWN Error Code"),  // 50
};

#undef SAMPLE_TEXT

const char* errorMessage(PkgLib_Package_Error code) noexcept {
  const auto index = static_cast<std::uint32_t>(code);
  return sErrMsg[index <= 49 ? index : 50];
}

void throwSystemError(int systemError) {
  throw PackageIOException<>(PkgLib_Err_Unknown, std::strerror(systemError));
}

template class PackageException<std::string>;
template class PackageIOException<std::string>;

}  // namespace pkg
