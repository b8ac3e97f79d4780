#include "harness/temporary_home.hpp"

#include <stdlib.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "peers/unix_listener.hpp"

namespace quillmere {

namespace {

/// The variable that sets a program's home. On macOS only the system's own libraries read it.
#ifdef __APPLE__
constexpr const char* homeVariable = "CFFIXED_USER_HOME";
#else
constexpr const char* homeVariable = "HOME";
#endif

}  // namespace

TemporaryHome::TemporaryHome() : folder("/tmp/q-XXXXXX") {
  if (::mkdtemp(folder.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), folder);
  }
  // On macOS /tmp is a link.
  folder = std::filesystem::canonical(folder).string();
  if (const char* home = ::getenv(homeVariable)) oldHome = home;
  ::setenv(homeVariable, folder.c_str(), 1);
}

TemporaryHome::~TemporaryHome() {
  if (oldHome) {
    ::setenv(homeVariable, oldHome->c_str(), 1);
  } else {
    ::unsetenv(homeVariable);
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
