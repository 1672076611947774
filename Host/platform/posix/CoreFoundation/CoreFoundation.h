#pragma once

// The one operation on bundles that plug-ins call. A bundle is a folder <name>.bundle with
// Contents/Info.plist and Contents/Linux/<module>.

struct __CFString {
  const char* text;  // NUL-terminated UTF-8, valid for the life of the process
};
using CFStringRef = const __CFString*;

struct __CFBundle;
using CFBundleRef = __CFBundle*;

// A constant string.
#define CFSTR(literal)                          \
  ([]() -> CFStringRef {                        \
    static constexpr __CFString sText{literal}; \
    return &sText;                              \
  }())

// The bundle with this identifier whose module is loaded in the process, or null. Owned by the
// system and valid for the life of the process. Any thread may call.
extern "C" [[gnu::visibility("default")]] CFBundleRef CFBundleGetBundleWithIdentifier(
    CFStringRef identifier);
