#include "platform/property_list.hpp"

#include <dlfcn.h>
#include <plist/plist.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "platform/binary_property_list.hpp"
#include "platform/text.hpp"

namespace quillmere {

namespace {

/// The functions of libplist that are used here. The library is loaded when the first XML list is
/// read, which most processes never do: linked to the program, it and what it needs in turn took a
/// quarter of the time that the program needs to start.
struct Library {
  decltype(&plist_from_xml) fromXml = nullptr;
  decltype(&plist_get_node_type) nodeType = nullptr;
  decltype(&plist_dict_get_item) dictionaryItem = nullptr;
  decltype(&plist_get_string_ptr) stringPointer = nullptr;
  decltype(&plist_free) free = nullptr;

  /// The one library of the process, or null when the system has none. Thread-safe.
  static const Library* get() {
    static const std::optional<Library> library = load();
    return library ? &*library : nullptr;
  }

 private:
  static std::optional<Library> load() {
    void* handle = ::dlopen(QUILLMERE_LIBPLIST, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return std::nullopt;
    Library library;
    const bool complete = find(handle, "plist_from_xml", library.fromXml) &&
                          find(handle, "plist_get_node_type", library.nodeType) &&
                          find(handle, "plist_dict_get_item", library.dictionaryItem) &&
                          find(handle, "plist_get_string_ptr", library.stringPointer) &&
                          find(handle, "plist_free", library.free);
    return complete ? std::optional(library) : std::nullopt;
  }

  template <typename Function>
  static bool find(void* handle, const char* name, Function& function) {
    function = reinterpret_cast<Function>(::dlsym(handle, name));
    return function != nullptr;
  }
};

/// The time that the library takes grows with the square of how many tags and entities there are,
/// and the stack that it takes with how deep they are nested. An Info.plist has some hundred.
constexpr std::size_t maxXmlMarks = 4'096;

std::optional<std::string> xmlPropertyListString(std::string_view data, std::string_view key) {
  const auto isMark = [](char c) { return c == '<' || c == '&'; };
  if (static_cast<std::size_t>(std::ranges::count_if(data, isMark)) > maxXmlMarks) {
    return std::nullopt;
  }
  constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
  if (data.starts_with(byteOrderMark)) data.remove_prefix(byteOrderMark.size());

  const Library* library = Library::get();
  if (library == nullptr) return std::nullopt;
  plist_t parsed = nullptr;
  library->fromXml(data.data(), static_cast<std::uint32_t>(data.size()), &parsed);
  const std::unique_ptr<void, decltype(&plist_free)> list(parsed, library->free);
  if (!list || library->nodeType(list.get()) != PLIST_DICT) return std::nullopt;
  plist_t value = library->dictionaryItem(list.get(), std::string(key).c_str());
  if (value == nullptr || library->nodeType(value) != PLIST_STRING) return std::nullopt;

  // Not plist_get_string_val: it aborts the process over a string that holds a NUL.
  std::uint64_t length = 0;
  const char* text = library->stringPointer(value, &length);
  return text == nullptr ? std::nullopt : std::optional<std::string>(std::in_place, text, length);
}

}  // namespace

std::optional<std::string> propertyListString(std::string_view data, std::string_view key) {
  if (data.empty() || data.size() > maxPropertyListBytes) return std::nullopt;
  auto text = isBinaryPropertyList(data) ? binaryPropertyListString(data, key)
                                         : xmlPropertyListString(data, key);
  return text && isUtf8(*text) ? text : std::nullopt;
}

}  // namespace quillmere
