#import <Foundation/Foundation.h>

#include "platform/app_group.hpp"

namespace quillmere {

std::optional<std::string> appGroupContainer(std::string_view group) {
  @autoreleasepool {
    NSString* identifier = [[NSString alloc] initWithBytes:group.data()
                                                    length:group.size()
                                                  encoding:NSUTF8StringEncoding];
    NSURL* container = [NSFileManager.defaultManager
        containerURLForSecurityApplicationGroupIdentifier:identifier];
    if (container == nil) return std::nullopt;
    return std::string(container.fileSystemRepresentation);
  }
}

}  // namespace quillmere
