// On macOS the system reads property lists of either form, so we accept exactly what the desktop
// app's own code accepts.
#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <type_traits>

#include "platform/property_list.hpp"

namespace quillmere {

namespace {

struct Release {
  void operator()(CFTypeRef object) const { CFRelease(object); }
};
template <typename Ref>
using Owned = std::unique_ptr<std::remove_pointer_t<Ref>, Release>;

}  // namespace

std::optional<std::string> propertyListString(std::string_view data, std::string_view key) {
  if (data.empty() || data.size() > maxPropertyListBytes) return std::nullopt;
  const Owned<CFDataRef> bytes(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(data.data()),
                                            static_cast<CFIndex>(data.size())));
  const Owned<CFPropertyListRef> list(CFPropertyListCreateWithData(
      nullptr, bytes.get(), kCFPropertyListImmutable, nullptr, nullptr));
  if (!list || CFGetTypeID(list.get()) != CFDictionaryGetTypeID()) return std::nullopt;

  const Owned<CFStringRef> name(
      CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(key.data()),
                              static_cast<CFIndex>(key.size()), kCFStringEncodingUTF8, false));
  const auto* value = static_cast<CFStringRef>(
      CFDictionaryGetValue(static_cast<CFDictionaryRef>(list.get()), name.get()));
  if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID()) return std::nullopt;

  // Not as a C string: a NUL would end it, and "a" and "a\0b" are different apps.
  const CFRange whole = CFRangeMake(0, CFStringGetLength(value));
  const CFIndex most = CFStringGetMaximumSizeForEncoding(whole.length, kCFStringEncodingUTF8);
  std::string text(static_cast<std::size_t>(most), '\0');
  CFIndex used = 0;
  if (CFStringGetBytes(value, whole, kCFStringEncodingUTF8, 0, false,
                       reinterpret_cast<UInt8*>(text.data()), most, &used) != whole.length) {
    return std::nullopt;
  }
  text.resize(static_cast<std::size_t>(used));
  return text;
}

}  // namespace quillmere
