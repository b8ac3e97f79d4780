#include "support/temporary_home.hpp"

#include <stdlib.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "simulator/unix_listener.hpp"

namespace quillmere {

TemporaryHome::TemporaryHome() : folder("/tmp/qm-XXXXXX") {
  if (::mkdtemp(folder.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), folder);
  }
  if (const char* home = ::getenv("HOME")) oldHome = home;
  ::setenv("HOME", folder.c_str(), 1);
}

TemporaryHome::~TemporaryHome() {
  if (oldHome) {
    ::setenv("HOME", oldHome->c_str(), 1);
  } else {
    ::unsetenv("HOME");
  }
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
}

std::string TemporaryHome::releaseSocket() const {
  return folder + "/Library/Group Containers/group.com.tallowbrook.wickfern.shared/qm-mcp.sock";
}

std::string TemporaryHome::debugSocket() const {
  return folder +
         "/Library/Group Containers/group.com.tallowbrook.wickfern.debug.shared/qm-mcp.sock";
}

std::string TemporaryHome::ungroupedSocket() const {
  return folder + "/Library/Application Support/WickfernShared/qm-mcp.sock";
}

std::string TemporaryHome::write(std::string_view path, std::string_view content) const {
  const std::filesystem::path file = std::filesystem::path(folder) / path;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
  return file.string();
}

std::string infoPlist(std::string_view identifier, std::string_view more) {
  return R"(<plist version="1.0"><dict>)" + std::string(more) +
         "<key>CFBundleIdentifier</key><string>" + std::string(identifier) +
         "</string></dict></plist>";
}

void leaveStaleSocket(const std::string& path) {
  const UnixListener listener(path + "~");
  std::filesystem::rename(path + "~", path);
}

}  // namespace quillmere
