// We read a list in XML through the events of a streaming parser, without a tree and without
// recursion. So even a deep or long list costs no more than one pass over its bytes.
#include "platform/property_list.hpp"

#include <expat.h>

#include <algorithm>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "platform/text.hpp"

namespace quillmere {

namespace {

/// How a list in XML is encoded, by its first bytes.
struct Encoding {
  std::string_view mark;
  /// Expat's name for it. Null if the list itself may name its encoding.
  const char* name = nullptr;
  std::size_t unitBytes = 1;
  /// Which byte of a unit holds an ASCII character.
  std::size_t asciiAt = 0;
};

constexpr Encoding encodings[] = {
    {.mark = "\xEF\xBB\xBF", .name = "UTF-8"},
    {.mark = "\xFF\xFE", .name = "UTF-16LE", .unitBytes = 2, .asciiAt = 0},
    {.mark = "\xFE\xFF", .name = "UTF-16BE", .unitBytes = 2, .asciiAt = 1},
    {},
};

/// Whether the first character of `text` is white space.
bool beginsWithBlank(std::string_view text, const Encoding& encoding) {
  if (text.size() < encoding.unitBytes) return false;
  const bool isAscii = encoding.unitBytes == 1 || text[1 - encoding.asciiAt] == '\0';
  return isAscii &&
         std::string_view(" \t\r\n").find(text[encoding.asciiAt]) != std::string_view::npos;
}

/// Follows the elements of one list in XML as they come, and keeps the string under one key of the
/// dictionary at the top.
class XmlReader {
 public:
  /// `wantedKey` must outlive this.
  explicit XmlReader(std::string_view wantedKey) : wanted(wantedKey) {}

  std::optional<std::string> stringIn(std::string_view data) {
    // A byte order mark overrides the encoding that the list names.
    const Encoding& encoding = *std::ranges::find_if(
        encodings, [&](const Encoding& each) { return data.starts_with(each.mark); });
    data.remove_prefix(encoding.mark.size());
    // Lists may begin with white space, but expat refuses it before `<?xml`.
    while (beginsWithBlank(data, encoding)) data.remove_prefix(encoding.unitBytes);
    const std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> owner(
        XML_ParserCreate(encoding.name), XML_ParserFree);
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
    if (XML_GetErrorCode(parser) == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
    return status == XML_STATUS_OK ? std::move(value) : std::nullopt;
  }

 private:
  static XmlReader& of(void* self) { return *static_cast<XmlReader*>(self); }

  /// Declared entities and attributes may expand to any length, and entities declared elsewhere are
  /// unknown. No list needs either. We do not load what a DOCTYPE refers to.
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
    // Depth 0 holds the dictionary, depth 1 its keys and values in turn. We ignore anything deeper,
    // except inside a text that we keep, where no element may be.
    const bool isWanted = depth == 1 && !isKeyNext && key == wanted;
    switch (depth) {
      case 0:
        if (name != "dict" || hasTop) refuse();
        hasTop = true;
        break;
      case 1:
        if ((name == "key") != isKeyNext) refuse();
        // If a key is repeated the last one counts, whatever its value is.
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

  /// No exception may pass through expat, which is written in C.
  void addText(std::string_view piece) noexcept {
    if (isTextKept) text += piece;
  }

  const std::string_view wanted;
  XML_Parser parser = nullptr;
  /// Number of open elements, not counting `plist`.
  std::size_t depth = 0;
  bool isInsidePlist = false;
  bool hasTop = false;
  bool isKeyNext = true;
  bool isTextKept = false;
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
