// Any bytes taken as a property list give a text that can be reported, or none.
#include "fuzz_support.hpp"
#include "platform/property_list.hpp"
#include "platform/text.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quillmere;
  const auto text = propertyListString(textOf(data, size), "CFBundleIdentifier");
  if (text) demand(isUtf8(*text));
  return 0;
}
