// Any bytes for a PNG or a JPEG give a picture that fits and can be read again, or none.
#include "fuzz_support.hpp"
#include "pictures/fit.hpp"
#include "pictures/jpeg.hpp"
#include "pictures/png.hpp"
#include "platform/base64.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quillmere;
  // So little that small pictures are made smaller too, and large ones more than once.
  constexpr std::size_t most = 400;
  const std::string text = base64(textOf(data, size));
  const bool isPng = text.starts_with("iVBOR");
  const auto original = isPng ? sizeOfPng(text) : sizeOfJpeg(text);
  // Larger ones only take longer.
  if (!original || original->pixels() > 200'000) return 0;
  const auto fitted = fitPicture(text, isPng ? "image/png" : "image/jpeg", most);
  if (!fitted) return 0;
  demand(fitted->original.pixels() == original->pixels());
  demand(fitted->size.longerSide() <= longestSide && fitted->base64.size() <= most);
  AreaAverage copy(fitted->size, {});
  const auto read = fitted->mimeType == "image/png" ? readPng : readJpeg;
  demand(read(fitted->base64, copy));
  return 0;
}
