#include "package/source/getTemporaryItemsDir.h"

#import <Foundation/Foundation.h>

namespace pkg {

void getTemporaryItemsDir(std::string& out) {
  NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
  NSArray* caches = NSSearchPathForDirectoriesInDomains(NSCachesDirectory, NSUserDomainMask, YES);
  NSString* items = [[caches objectAtIndex:0] stringByAppendingPathComponent:@"TemporaryItems"];
  NSFileManager* manager = [NSFileManager defaultManager];

  BOOL isDirectory = NO;
  BOOL usable = NO;
  if ([manager fileExistsAtPath:items isDirectory:&isDirectory]) {
    usable = isDirectory;
  } else {
    usable = [manager createDirectoryAtPath:items attributes:nil];
  }
  if (usable) out.assign([items UTF8String]);
  [pool drain];
}

}  // namespace pkg
