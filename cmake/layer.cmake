# quillmere_layer(NAME USES [layer...] SOURCES file... [LIBRARIES lib...])
#
# Makes the current folder a static library that may include only its own headers and those of the layers in
# USES. Headers are included as "folder/header.hpp". Each layer's include root is a folder of the build tree
# with a single link, to that layer: an include of a layer that is not in USES finds no file and fails to
# compile. Nothing is transitive: a layer names every layer that it includes.
function(quillmere_layer name)
  cmake_parse_arguments(LAYER "" "" "USES;SOURCES;LIBRARIES" ${ARGN})
  set(root ${PROJECT_BINARY_DIR}/include_roots/${name})
  file(MAKE_DIRECTORY ${root})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/${name} SYMBOLIC)

  add_library(quillmere_${name} STATIC ${LAYER_SOURCES})
  target_include_directories(quillmere_${name} PUBLIC ${root})
  target_link_libraries(quillmere_${name} PRIVATE quillmere_flags ${LAYER_LIBRARIES})
  foreach(used IN LISTS LAYER_USES)
    target_link_libraries(quillmere_${name} PRIVATE quillmere_${used})
  endforeach()
endfunction()
