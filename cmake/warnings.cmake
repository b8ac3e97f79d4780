# Flags for all our targets; an interface library, so that each target's own lines show that it uses them.
add_library(quillmere_flags INTERFACE)
target_compile_options(quillmere_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)

if(QUILLMERE_SANITIZERS)
  add_compile_options(-fsanitize=${QUILLMERE_SANITIZERS} -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QUILLMERE_SANITIZERS})
  # The sanitizers' code keeps g++ from seeing that a value is set before it is read.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(quillmere_flags INTERFACE -Wno-maybe-uninitialized)
  endif()
  if(QUILLMERE_SANITIZERS MATCHES "undefined")
    # This check uses a pipe to see whether an object is readable. Without a free descriptor it takes the
    # object for a broken one, and a test arranges exactly that.
    add_compile_options(-fno-sanitize=vptr)
    add_link_options(-fno-sanitize=vptr)
  endif()
endif()

# g++ 12 sees an overlap in std::string's own assignment of a one-character literal where there is none
# (GCC bug 105329, fixed in 13).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(quillmere_flags INTERFACE -Wno-restrict)
endif()
