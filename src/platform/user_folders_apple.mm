#import <Foundation/Foundation.h>

#include "platform/file_system.hpp"

namespace quillmere {

namespace {

/// In UTF-8, unchanged. The form for system calls would decompose accented letters, and `--doctor`
/// would show another path than the one people see.
std::optional<std::string> pathOf(NSURL* folder) {
  const char* path = folder.path.UTF8String;
  return path == nullptr ? std::nullopt : std::optional<std::string>(path);
}

}  // namespace

std::string homeDirectory() {
  @autoreleasepool {
    // In the sandbox this is the container's home, whatever HOME says.
    return pathOf(NSFileManager.defaultManager.homeDirectoryForCurrentUser).value_or("/");
  }
}

std::optional<std::string> appGroupContainer(std::string_view group) {
  @autoreleasepool {
    NSString* identifier = [[NSString alloc] initWithBytes:group.data()
                                                    length:group.size()
                                                  encoding:NSUTF8StringEncoding];
    return pathOf([NSFileManager.defaultManager
        containerURLForSecurityApplicationGroupIdentifier:identifier]);
  }
}

}  // namespace quillmere
