#include "platform/property_list.hpp"

#include <plist/plist.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <type_traits>

#include "platform/binary_property_list.hpp"
#include "platform/text.hpp"

namespace quillmere {

namespace {

struct FreePropertyList {
  void operator()(void* list) const { plist_free(list); }
};
struct FreeText {
  void operator()(char* text) const { std::free(text); }
};

using PropertyList = std::unique_ptr<std::remove_pointer_t<plist_t>, FreePropertyList>;

/// The time that the library takes grows with the square of how many tags and entities there are,
/// and the stack that it takes with how deep they are nested. An Info.plist has some hundred.
constexpr std::size_t maxXmlMarks = 4'096;

std::optional<std::string> xmlPropertyListString(std::string_view data, std::string_view key) {
  const auto isMark = [](char c) { return c == '<' || c == '&'; };
  if (static_cast<std::size_t>(std::ranges::count_if(data, isMark)) > maxXmlMarks) {
    return std::nullopt;
  }
  plist_t parsed = nullptr;
  plist_from_xml(data.data(), static_cast<std::uint32_t>(data.size()), &parsed);
  const PropertyList list(parsed);
  if (!list || plist_get_node_type(list.get()) != PLIST_DICT) return std::nullopt;
  plist_t value = plist_dict_get_item(list.get(), std::string(key).c_str());
  if (value == nullptr || plist_get_node_type(value) != PLIST_STRING) return std::nullopt;

  char* text = nullptr;
  plist_get_string_val(value, &text);
  const std::unique_ptr<char, FreeText> owned(text);
  return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

}  // namespace

std::optional<std::string> propertyListString(std::string_view data, std::string_view key) {
  if (data.empty() || data.size() > maxPropertyListBytes) return std::nullopt;
  auto text = isBinaryPropertyList(data) ? binaryPropertyListString(data, key)
                                         : xmlPropertyListString(data, key);
  return text && isUtf8(*text) ? text : std::nullopt;
}

}  // namespace quillmere
