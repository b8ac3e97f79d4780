# Flags that every target of ours is built with; an interface library, so that a target shows in its
# own lines that it takes them.
add_library(quillmere_flags INTERFACE)
target_compile_options(quillmere_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)

if(QUILLMERE_SANITIZERS)
  add_compile_options(-fsanitize=${QUILLMERE_SANITIZERS} -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QUILLMERE_SANITIZERS})
  # What the sanitizers add to the code hides from g++ that a value is set before it is read.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(quillmere_flags INTERFACE -Wno-maybe-uninitialized)
  endif()
  if(QUILLMERE_SANITIZERS MATCHES "undefined")
    # This check asks the system for a pipe to see whether an object can be read, and takes it for a
    # broken one when no descriptor is available, which is just what a test arranges.
    add_compile_options(-fno-sanitize=vptr)
    add_link_options(-fno-sanitize=vptr)
  endif()
endif()

# g++ 12 sees an overlap in std::string's own assignment of a one-character literal where there is none
# (GCC bug 105329, fixed in 13).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(quillmere_flags INTERFACE -Wno-restrict)
endif()
