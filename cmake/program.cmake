# quillmere_program(NAME SOURCE) makes one of the servers, linked like all of them.
function(quillmere_program name source)
  add_executable(${name} ${source})
  # Side by side, so that scripts and tests find both.
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/src/server)
  target_link_libraries(${name}
    PRIVATE quillmere_server quillmere_mcp quillmere_results quillmere_tools quillmere_protocol
      quillmere_json quillmere_platform quillmere_flags)
  if(APPLE)
    set(infoPlist ${CMAKE_CURRENT_BINARY_DIR}/Info.plist)
    configure_file(${PROJECT_SOURCE_DIR}/packaging/macos/Info.plist.in ${infoPlist})
    target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src/server/info_plist_apple.cpp)
    set_source_files_properties(${PROJECT_SOURCE_DIR}/src/server/info_plist_apple.cpp PROPERTIES
      COMPILE_DEFINITIONS "QUILLMERE_INFO_PLIST=\"${infoPlist}\""
      OBJECT_DEPENDS ${infoPlist})
    target_link_options(${name} PRIVATE LINKER:-dead_strip)
  elseif(NOT QUILLMERE_SANITIZERS)
    # A client waits for this program to start. Fewer shared libraries, sections and relocations took a
    # third off its start-up time.
    target_link_options(${name} PRIVATE LINKER:--as-needed LINKER:--gc-sections)
    if(NOT QUILLMERE_DEBIAN)
      # This would tie the program to glibc 2.36, which dpkg-shlibdeps does not see.
      target_link_options(${name} PRIVATE LINKER:-z,pack-relative-relocs)
    endif()
    if(NOT QUILLMERE_STATIC)
      # With -static-pie these would make g++ link the C library dynamically.
      target_link_options(${name} PRIVATE -static-libstdc++ -static-libgcc)
    endif()
  endif()
endfunction()
