// What is parsed and written again means the same, and is written the same the second time.
#include "fuzz_support.hpp"
#include "platform/json_parser.hpp"
#include "platform/json_writer.hpp"
#include "platform/text.hpp"

namespace {

std::string numbersIn(const quillmere::JsonValue& value) {
  using namespace quillmere;
  std::string numbers;
  if (const auto* number = value.asNumber()) numbers = number->text() + " ";
  if (const auto* array = value.asArray()) {
    for (const JsonValue& element : *array) numbers += numbersIn(element);
  }
  if (const auto* object = value.asObject()) {
    for (const JsonMember& member : *object) numbers += numbersIn(member.value);
  }
  return numbers;
}

std::string inPieces(const quillmere::JsonObject& object) {
  constexpr std::size_t shortestBorrowed = 3;
  const quillmere::JsonText text(object, shortestBorrowed);
  std::string joined;
  for (const std::string_view piece : text.pieces()) joined += piece;
  quillmere::demand(joined.size() == text.size());
  return joined;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quillmere;
  const std::string_view text = textOf(data, size);
  try {
    const JsonValue value = parseJson(text);
    demand(isUtf8(text));
    const std::string written = compactJson(value);
    demand(written.find('\n') == std::string::npos);
    demand(compactJson(parseJsonInPlace(std::string(text))) == written);
    const JsonValue again = parseJson(written);
    demand(compactJson(again) == written);
    demand(numbersIn(again) == numbersIn(value));
    if (const JsonObject* object = value.asObject()) {
      demand(inPieces(*object) == written);
      demand(indentedJson(*parseJson(indentedJson(*object)).asObject()) == indentedJson(*object));
    }
  } catch (const JsonError&) {
    return 0;
  }
  return 0;
}
