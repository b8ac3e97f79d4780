#include "platform/property_list.hpp"

#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <type_traits>

namespace quillmere {

namespace {

struct FreePropertyList {
  void operator()(void* list) const { plist_free(list); }
};
struct FreeText {
  void operator()(char* text) const { std::free(text); }
};

using PropertyList = std::unique_ptr<std::remove_pointer_t<plist_t>, FreePropertyList>;

PropertyList parsed(std::string_view data) {
  const auto size = static_cast<std::uint32_t>(data.size());
  plist_t list = nullptr;
  if (plist_is_binary(data.data(), size) != 0) {
    plist_from_bin(data.data(), size, &list);
  } else {
    plist_from_xml(data.data(), size, &list);
  }
  return PropertyList(list);
}

}  // namespace

std::optional<std::string> propertyListString(std::string_view data, std::string_view key) {
  if (data.empty() || data.size() > maxPropertyListBytes) return std::nullopt;
  const PropertyList list = parsed(data);
  if (!list || plist_get_node_type(list.get()) != PLIST_DICT) return std::nullopt;
  plist_t value = plist_dict_get_item(list.get(), std::string(key).c_str());
  if (value == nullptr || plist_get_node_type(value) != PLIST_STRING) return std::nullopt;

  char* text = nullptr;
  plist_get_string_val(value, &text);
  const std::unique_ptr<char, FreeText> owned(text);
  if (text == nullptr) return std::nullopt;
  return std::string(text);
}

}  // namespace quillmere
