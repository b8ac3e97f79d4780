# The libraries behind src/platform. They are linked statically: a shared library costs start-up time in
# a program that starts once per AI client.
find_package(Threads REQUIRED)
set(Boost_USE_STATIC_LIBS ON)
find_package(boost_json 1.81 REQUIRED CONFIG)

find_path(UTF8PROC_INCLUDE_DIR utf8proc.h REQUIRED)
find_library(UTF8PROC_LIBRARY NAMES libutf8proc.a utf8proc REQUIRED)
add_library(quillmere_utf8proc INTERFACE)
target_include_directories(quillmere_utf8proc SYSTEM INTERFACE ${UTF8PROC_INCLUDE_DIR})
target_compile_definitions(quillmere_utf8proc INTERFACE UTF8PROC_STATIC)
target_link_libraries(quillmere_utf8proc INTERFACE ${UTF8PROC_LIBRARY})

add_library(quillmere_property_lists INTERFACE)
if(APPLE)
  target_link_libraries(quillmere_property_lists INTERFACE "-framework CoreFoundation")
else()
  find_path(EXPAT_INCLUDE_DIR expat.h REQUIRED)
  find_library(EXPAT_LIBRARY NAMES libexpat.a expat REQUIRED)
  target_include_directories(quillmere_property_lists SYSTEM INTERFACE ${EXPAT_INCLUDE_DIR})
  target_link_libraries(quillmere_property_lists INTERFACE ${EXPAT_LIBRARY})
endif()
