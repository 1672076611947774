#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "package/detail/Visibility.h"

namespace pkg {

// The number of a failure. Contiguous, part of the interface: a client switches on it and words its
// own message.
enum PkgLib_Package_Error : std::int32_t {
  PkgLib_Err_None = 0,
  PkgLib_Err_OutOfMemory = 1,
  PkgLib_Err_ReadCDHBytes = 2,
  PkgLib_Err_BadCDHSignature = 3,
  PkgLib_Err_ReadFileName = 4,
  PkgLib_Err_ReadExtraField = 5,
  PkgLib_Err_ReadFileComment = 6,
  PkgLib_Err_FileSizeTooBig = 7,
  PkgLib_Err_BadLFHSignature = 8,
  PkgLib_Err_TooManyCDEntries = 9,
  PkgLib_Err_ReadECD = 10,
  PkgLib_Err_FindECD = 11,
  PkgLib_Err_ReadZip64ECDL = 12,
  PkgLib_Err_BadZip64ECDLSignature = 13,
  PkgLib_Err_ReadZip64ECD = 14,
  PkgLib_Err_BadZip64ECDSignature = 15,
  PkgLib_Err_SplitZip = 16,
  PkgLib_Err_BadLFHSizeValue = 17,
  PkgLib_Err_PackageAlreadyOpen = 18,
  PkgLib_Err_NotImplemented = 19,
  PkgLib_Err_NotAValidPackage = 20,
  PkgLib_Err_EntryNotFound = 21,
  PkgLib_Err_BadArgument = 22,
  PkgLib_Err_UnsupportedOperation = 23,
  PkgLib_Err_IllegalState = 24,
  PkgLib_Err_DirectoryExists = 25,
  PkgLib_Err_PackageWriteOnly = 26,
  PkgLib_Err_WriteDeflateFailed = 27,
  PkgLib_Err_NotInUpdate = 28,
  PkgLib_Err_WritingFile = 29,
  PkgLib_Err_ClosingPackageFile = 30,
  PkgLib_Err_Decompressing = 31,
  PkgLib_Err_Compressing = 32,
  PkgLib_Err_OpenModeInputOnly = 33,
  PkgLib_Err_OpenModeInvalid = 34,
  PkgLib_Err_UpdateInProgress = 35,
  PkgLib_Err_UpdateRequiresWrite = 36,
  PkgLib_Err_UpdateNotInProgress = 37,
  PkgLib_Err_OpeningFile = 38,
  PkgLib_Err_OpeningTempFile = 39,
  PkgLib_Err_ReadingFile = 40,
  PkgLib_Err_Seeking = 41,
  PkgLib_Err_Telling = 42,
  PkgLib_Err_Flushing = 43,
  PkgLib_Err_Truncating = 44,
  PkgLib_Err_ConformanceViolation = 45,
  PkgLib_Err_InvalidMimetype = 46,
  PkgLib_Err_MissingMimetype = 47,
  PkgLib_Err_CreatingTempFile = 48,
  PkgLib_Err_DeletingTempFile = 49,
  PkgLib_Err_Unknown = 50
};

// The sample text of each code, indexed by it. Texts 17 and 18 are crossed, and stay so.
QCF_API extern const char* const sErrMsg[51];

// The sample text of `code`; that of code 50 for a number outside 0 to 49, negative ones included.
QCF_API const char* errorMessage(PkgLib_Package_Error code) noexcept;

// A failed operation of the library: a misuse, or a package in the wrong state.
template <class String = std::string>
class QCF_API PackageException : public std::exception {
public:
  // Takes the message from sErrMsg. A number outside 0 to 50 is kept as it is and has the text of
  // code 50.
  explicit PackageException(PkgLib_Package_Error code)
      : fMessage(errorMessage(code)), fCode(code) {}
  ~PackageException() noexcept override = default;

  // The text, valid for as long as this exception and, for a text of the operating system, until
  // the next failing system call of the thread.
  const char* what() const noexcept override {
    return fMessage != nullptr ? fMessage : fOwnMessage.c_str();
  }
  virtual PkgLib_Package_Error getErrorCode() { return fCode; }

protected:
  PackageException(PkgLib_Package_Error code, const char* message)
      : fMessage(message), fCode(code) {}

private:
  const char* fMessage;  // not owned; null when fOwnMessage holds the text
  String fOwnMessage;
  PkgLib_Package_Error fCode;
};

// A failure of the stored data or of the file below it.
template <class String = std::string>
class QCF_API PackageIOException : public PackageException<String> {
public:
  explicit PackageIOException(PkgLib_Package_Error code) : PackageException<String>(code) {}

  // `message` is kept as a pointer, not copied: code 50 with the text that strerror returned.
  PackageIOException(PkgLib_Package_Error code, const char* message)
      : PackageException<String>(code, message) {}
  ~PackageIOException() noexcept override = default;
};

// Raises code 50 with the system's text for `systemError`, which the caller has read from errno
// right after the call that failed.
[[noreturn]] QCF_API void throwSystemError(int systemError);

extern template class PackageException<std::string>;
extern template class PackageIOException<std::string>;

}  // namespace pkg
