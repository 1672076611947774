#pragma once

// What this project calls of Foundation, declared as its documentation has it. For checks on other
// systems; a Mac's own header is never replaced by it.

#include <objc/NSObject.h>

typedef NSUInteger NSSearchPathDirectory;
typedef NSUInteger NSSearchPathDomainMask;
enum : NSSearchPathDirectory { NSCachesDirectory = 13 };
enum : NSSearchPathDomainMask { NSUserDomainMask = 1 };

@class NSDictionary;

@interface NSAutoreleasePool : NSObject
- (void)drain;
@end

@interface NSString : NSObject
@property(readonly) const char* UTF8String;
- (NSString*)stringByAppendingPathComponent:(NSString*)str;
@end

// The class of constant strings, as the compiler expects it.
@interface NSSimpleCString : NSString
@end
@interface NSConstantString : NSSimpleCString
@end

@interface NSArray : NSObject
- (id)objectAtIndex:(NSUInteger)index;
@end

@interface NSFileManager : NSObject
@property(class, readonly) NSFileManager* defaultManager;
- (BOOL)fileExistsAtPath:(NSString*)path isDirectory:(BOOL*)isDirectory;
- (BOOL)createDirectoryAtPath:(NSString*)path
                   attributes:(NSDictionary*)attributes
    __attribute__((availability(macos, introduced = 10.0, deprecated = 10.5)));
@end

#ifdef __cplusplus
extern "C"
#endif
    NSArray*
    NSSearchPathForDirectoriesInDomains(NSSearchPathDirectory directory,
                                        NSSearchPathDomainMask domainMask, BOOL expandTilde);
