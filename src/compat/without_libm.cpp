// libpng takes four functions from libm, to correct the brightness of pictures, for which nothing
// here asks. Loading that library would make every start a tenth longer, so the linker gives these
// names to the function below.
#include <cstdlib>

extern "C" [[noreturn]] void quillmereWithoutLibm();

extern "C" void quillmereWithoutLibm() {
  std::abort();
}
