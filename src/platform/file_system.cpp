// What we find here decides which app we use. So we must never confuse "it is not there" with
// "there was no descriptor left to look": only the first may lead to the next app.
#include "platform/file_system.hpp"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <span>
#include <system_error>

#include "platform/descriptor.hpp"

namespace quillmere {

namespace {

/// Throws `std::system_error` if `error`, an error number, means that a resource is missing.
/// Ignores 0 and errors that say what is at the path.
void throwIfResourceMissing(int error) {
  for (const int want : {EMFILE, ENFILE, ENOMEM, EIO, EINTR}) {
    if (error == want) throw std::system_error(error, std::generic_category());
  }
}

}  // namespace

#ifndef __APPLE__
namespace {

/// The user's password entry, with its strings in `text`; null when there is none.
passwd* passwordEntry(passwd& entry, std::span<char> text) {
  passwd* found = nullptr;
#ifdef QUILLMERE_STATIC
  // The C library would load the system's modules, which work only with the C library they were
  // built for. A static program brings its own, so it reads the file.
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/etc/passwd", "re"), std::fclose);
  if (file == nullptr) {
    throwIfResourceMissing(errno);
    return nullptr;
  }
  int error = 0;
  while ((error = ::fgetpwent_r(file.get(), &entry, text.data(), text.size(), &found)) == 0) {
    if (found->pw_uid == ::getuid()) return found;
  }
  throwIfResourceMissing(error);
  return nullptr;
#else
  throwIfResourceMissing(::getpwuid_r(::getuid(), &entry, text.data(), text.size(), &found));
  return found;
#endif
}

}  // namespace

std::string homeDirectory() {
  // A relative home would change with the current directory.
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') return home;

  constexpr std::size_t longestEntry = 16'384;
  std::array<char, longestEntry> text{};
  passwd entry{};
  const passwd* found = passwordEntry(entry, text);
  if (found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] == '/') {
    return found->pw_dir;
  }
  return "/";
}

std::optional<std::string> appGroupContainer(std::string_view /*group*/) {
  return std::nullopt;
}
#endif

std::string currentDirectory() {
  std::error_code error;
  const std::filesystem::path path = std::filesystem::current_path(error);
  throwIfResourceMissing(error.value());
  return error ? "/" : path.string();
}

std::string withLinksResolved(const std::string& path) {
  std::error_code error;
  const std::filesystem::path resolved = std::filesystem::weakly_canonical(path, error);
  throwIfResourceMissing(error.value());
  return error ? path : resolved.string();
}

PathKind kindOfPath(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    throwIfResourceMissing(errno);
    return PathKind::nothing;
  }
  if (S_ISSOCK(status.st_mode)) return PathKind::socket;
  // For a link we check its target: `access` follows links, `lstat` does not.
  if (!S_ISLNK(status.st_mode) || ::access(path.c_str(), F_OK) == 0) return PathKind::somethingElse;
  throwIfResourceMissing(errno);
  return PathKind::nothing;
}

std::optional<std::string> readFile(const std::string& path, std::size_t maxBytes) {
  // Opening a pipe would otherwise wait for its writer, and opening a terminal could make it ours.
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file.isOpen() || ::fstat(file.number(), &status) != 0) {
    throwIfResourceMissing(errno);
    return std::nullopt;
  }
  if (!S_ISREG(status.st_mode) || static_cast<std::size_t>(status.st_size) > maxBytes) {
    return std::nullopt;
  }
  std::string content(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t have = 0;
  while (have < content.size()) {
    const ssize_t count = ::read(file.number(), content.data() + have, content.size() - have);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      throwIfResourceMissing(errno);
      return std::nullopt;
    }
    // The file has become shorter since `fstat`.
    if (count == 0) break;
    have += static_cast<std::size_t>(count);
  }
  content.resize(have);
  return content;
}

}  // namespace quillmere
