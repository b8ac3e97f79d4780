// Only what src/platform uses, so that a machine without Apple's headers can compile it.
#pragma once

#import <objc/NSObject.h>
#include <stddef.h>

typedef NSUInteger NSStringEncoding;
enum : NSStringEncoding { NSUTF8StringEncoding = 4 };

#pragma clang assume_nonnull begin

@interface NSString : NSObject
@property(readonly, nullable) const char* UTF8String;
- (nullable instancetype)initWithBytes:(const void*)bytes
                                length:(NSUInteger)length
                              encoding:(NSStringEncoding)encoding;
@end

@interface NSURL : NSObject
@property(readonly, copy, nullable) NSString* path;
@end

@interface NSFileManager : NSObject
@property(class, readonly, strong) NSFileManager* defaultManager;
@property(readonly, copy) NSURL* homeDirectoryForCurrentUser;
- (nullable NSURL*)containerURLForSecurityApplicationGroupIdentifier:(NSString*)identifier;
@end

#pragma clang assume_nonnull end
