// A list in XML is read by the events of a streaming parser. It builds no tree and does not call
// itself, so neither a deep list nor a long one costs more than a pass over its bytes.
#include "platform/property_list.hpp"

#include <expat.h>

#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "platform/text.hpp"

namespace quillmere {

namespace {

/// Follows the elements of one list in XML as they come, and keeps of them the string under one key
/// of the dictionary at the top.
class XmlReader {
 public:
  /// `wantedKey` must outlive this.
  explicit XmlReader(std::string_view wantedKey) : wanted(wantedKey) {}

  std::optional<std::string> stringIn(std::string_view data) {
    // A byte order mark goes before what the list says of its encoding.
    const bool isMarkedUtf16 = data.starts_with("\xFE\xFF") || data.starts_with("\xFF\xFE");
    const std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> owner(
        XML_ParserCreate(isMarkedUtf16 ? "UTF-16" : nullptr), XML_ParserFree);
    parser = owner.get();
    if (parser == nullptr) throw std::bad_alloc();
    XML_SetUserData(parser, this);
    XML_SetElementHandler(
        parser, [](void* self, const char* name, const char**) { of(self).startElement(name); },
        [](void* self, const char*) { of(self).endElement(); });
    XML_SetCharacterDataHandler(parser, [](void* self, const char* piece, int length) {
      of(self).addText({piece, static_cast<std::size_t>(length)});
    });
    refuseDeclarations();

    const auto status = XML_Parse(parser, data.data(), static_cast<int>(data.size()), XML_TRUE);
    if (isOutOfMemory || XML_GetErrorCode(parser) == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
    return status == XML_STATUS_OK ? std::move(value) : std::nullopt;
  }

 private:
  static XmlReader& of(void* self) { return *static_cast<XmlReader*>(self); }

  /// Entities and attributes that a list declares may unfold into any length, and of entities that
  /// are declared elsewhere nothing is known: no list needs either. What a DOCTYPE refers to is not
  /// loaded.
  void refuseDeclarations() {
    XML_SetEntityDeclHandler(
        parser, [](void* self, const char*, int, const char*, int, const char*, const char*,
                   const char*, const char*) { of(self).refuse(); });
    XML_SetAttlistDeclHandler(parser, [](void* self, const char*, const char*, const char*,
                                         const char*, int) { of(self).refuse(); });
    XML_SetSkippedEntityHandler(parser, [](void* self, const char*, int) { of(self).refuse(); });
  }

  void refuse() { XML_StopParser(parser, XML_FALSE); }

  void startElement(std::string_view name) {
    if (depth == 0 && name == "plist" && !isInsidePlist) {
      isInsidePlist = true;
      return;
    }
    // At depth 0 comes the dictionary, at depth 1 its keys and values in turn. What is below is of
    // no interest, unless it is inside of a text that is kept, where no element may be.
    const bool isWanted = depth == 1 && !isKeyNext && key == wanted;
    switch (depth) {
      case 0:
        if (name != "dict" || hasTop) refuse();
        hasTop = true;
        break;
      case 1:
        if ((name == "key") != isKeyNext) refuse();
        // The last of a repeated key counts, whatever its value is.
        if (isWanted) value.reset();
        isTextKept = isKeyNext || (isWanted && name == "string");
        text.clear();
        break;
      default:
        if (isTextKept) refuse();
    }
    ++depth;
  }

  void endElement() {
    // The end of `plist` itself.
    if (depth == 0) return;
    --depth;
    // The dictionary has ended after a key.
    if (depth == 0 && !isKeyNext) refuse();
    if (depth != 1) return;
    if (isKeyNext) {
      key.swap(text);
    } else if (isTextKept) {
      value.emplace().swap(text);
    }
    isTextKept = false;
    isKeyNext = !isKeyNext;
  }

  /// No exception may pass through the library, which is written in C.
  void addText(std::string_view piece) noexcept {
    if (!isTextKept) return;
    try {
      text += piece;
    } catch (const std::bad_alloc&) {
      isOutOfMemory = true;
      refuse();
    }
  }

  const std::string_view wanted;
  XML_Parser parser = nullptr;
  /// How many elements are open, `plist` apart.
  std::size_t depth = 0;
  bool isInsidePlist = false;
  bool hasTop = false;
  bool isKeyNext = true;
  bool isTextKept = false;
  bool isOutOfMemory = false;
  std::string text;
  std::string key;
  std::optional<std::string> value;
};

}  // namespace

std::optional<std::string> propertyListString(std::string_view data, std::string_view key) {
  if (data.empty() || data.size() > maxPropertyListBytes) return std::nullopt;
  auto text = isBinaryPropertyList(data) ? binaryPropertyListString(data, key)
                                         : XmlReader(key).stringIn(data);
  return text && isUtf8(*text) ? text : std::nullopt;
}

}  // namespace quillmere
