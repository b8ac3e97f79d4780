#include "platform/descriptor.hpp"

#include <unistd.h>

namespace quillmere {

Descriptor::~Descriptor() {
  // Not repeated after EINTR: Linux has freed the number by then, and another thread may own it.
  if (held >= 0) ::close(held);
}

}  // namespace quillmere
