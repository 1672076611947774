#pragma once

#include "package/source/PackageException.h"

namespace errors {

// Whether a number is raised, and as what.
enum class Kind { Never, Misuse, IO, Both };

struct Row {
  pkg::PkgLib_Package_Error code;
  int number;
  const char* tail;  // of the text
  Kind kind;
  const char* why = "";  // of one that no call raises
};

#define ROW(enumerator, ...) \
  { pkg::PkgLib_Err_##enumerator, __VA_ARGS__ }

// Every number there is.
inline constexpr Row kRows[] = {
    ROW(None, 0, "NONE", Kind::Never, "it is no error"),
    ROW(OutOfMemory, 1, "Out of Memory", Kind::Never, "std::bad_alloc passes as it is"),
    ROW(ReadCDHBytes, 2, "Couldn't read all bytes of CDH", Kind::IO),
    ROW(BadCDHSignature, 3, "Bad CDH signature", Kind::IO),
    ROW(ReadFileName, 4, "Could not read file name", Kind::IO),
    ROW(ReadExtraField, 5, "Could not read extra field", Kind::IO),
    ROW(ReadFileComment, 6, "Could not read file comment", Kind::IO),
    ROW(FileSizeTooBig, 7, "file size too big", Kind::Misuse),
    ROW(BadLFHSignature, 8, "Bad LFH signature", Kind::IO),
    ROW(TooManyCDEntries, 9, "Too many CD entries", Kind::IO),
    ROW(ReadECD, 10, "Could not read ECD", Kind::IO),
    ROW(FindECD, 11, "Could not find ECD", Kind::Misuse),
    ROW(ReadZip64ECDL, 12, "Could not read Zip64 ECDL", Kind::IO),
    ROW(BadZip64ECDLSignature, 13, "Bad Zip64 ECDL signature", Kind::IO),
    ROW(ReadZip64ECD, 14, "Could not read Zip64 ECD", Kind::IO),
    ROW(BadZip64ECDSignature, 15, "Bad Zip64 ECD signature", Kind::IO),
    ROW(SplitZip, 16, "Detected a Split Zip file", Kind::Misuse),
    ROW(BadLFHSizeValue, 17, "Package already open", Kind::Misuse),
    ROW(PackageAlreadyOpen, 18, "Bad LFH size value", Kind::Misuse),
    ROW(NotImplemented, 19, "NOT Implemented", Kind::Misuse),
    ROW(NotAValidPackage, 20, "Not a Valid Package file", Kind::Misuse),
    ROW(EntryNotFound, 21, "Package Entry not found", Kind::Misuse),
    ROW(BadArgument, 22, "Client Error Bad Argument", Kind::Misuse),
    ROW(UnsupportedOperation, 23, "Client Error Unsupported Operation", Kind::Both),
    ROW(IllegalState, 24, "Package in Illegal State", Kind::Misuse),
    ROW(DirectoryExists, 25, "Directory Already Exists", Kind::Misuse),
    ROW(PackageWriteOnly, 26, "Package Open Write-Only", Kind::Misuse),
    ROW(WriteDeflateFailed, 27, "Write DEFLATE Operation FAILED", Kind::Misuse),
    ROW(NotInUpdate, 28, "Package not in update", Kind::Misuse),
    ROW(WritingFile, 29, "Error Writing File", Kind::IO),
    ROW(ClosingPackageFile, 30, "Error Closing Package File", Kind::Misuse),
    ROW(Decompressing, 31, "Error Decompressing File", Kind::Misuse),
    ROW(Compressing, 32, "Error Compressing File", Kind::Misuse),
    ROW(OpenModeInputOnly, 33, "Open mode is input only", Kind::Never, "36 stands for it"),
    ROW(OpenModeInvalid, 34, "Open mode is invalid", Kind::Never, "22 and 23 stand for it"),
    ROW(UpdateInProgress, 35, "Update already in progress", Kind::Misuse),
    ROW(UpdateRequiresWrite, 36, "Update requires write", Kind::Misuse),
    ROW(UpdateNotInProgress, 37, "Update not in progress", Kind::Misuse),
    ROW(OpeningFile, 38, "Error Opening File", Kind::Never, "the system's failures are 50"),
    ROW(OpeningTempFile, 39, "Error Opening Temp File", Kind::Never,
        "the system's failures are 50"),
    ROW(ReadingFile, 40, "Error Reading File", Kind::Never, "the system's failures are 50"),
    ROW(Seeking, 41, "Error Seeking", Kind::Never, "the system's failures are 50"),
    ROW(Telling, 42, "Error Telling", Kind::Never, "the system's failures are 50"),
    ROW(Flushing, 43, "Error Flushing", Kind::Never, "the system's failures are 50"),
    ROW(Truncating, 44, "Error Truncating", Kind::Never, "the system's failures are 50"),
    ROW(ConformanceViolation, 45, "Conformance Violation", Kind::Misuse),
    ROW(InvalidMimetype, 46, "Invalid mimetype file", Kind::Misuse),
    ROW(MissingMimetype, 47, "Missing mimetype file", Kind::Misuse),
    ROW(CreatingTempFile, 48, "Error Creating Temp File", Kind::IO),
    ROW(DeletingTempFile, 49, "Error Deleting Temp File", Kind::Never,
        "what cannot be deleted stays, and nobody is told"),
    ROW(Unknown, 50, "UNKNOWN Error Code", Kind::IO),
};

#undef ROW

}  // namespace errors
