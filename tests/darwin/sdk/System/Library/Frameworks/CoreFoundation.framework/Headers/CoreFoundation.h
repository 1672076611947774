#pragma once

// What this project calls of Core Foundation, declared as its documentation has it. For checks on
// other systems; a Mac's own header is never replaced by it.

#ifdef __cplusplus
extern "C" {
#endif

typedef const struct __CFString* CFStringRef;
typedef struct __CFBundle* CFBundleRef;

// The compiler lays constant strings out itself.
#define CFSTR(literal) ((CFStringRef)__builtin___CFStringMakeConstantString("" literal ""))

CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef bundleID);

#ifdef __cplusplus
}
#endif
