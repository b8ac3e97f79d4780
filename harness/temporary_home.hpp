// Files for one test: a home folder and its content.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillmere {

/// Makes an empty folder with a short path, since socket paths are limited, and makes it the home
/// of this process and of those that it starts. Restores the old home and removes the folder with
/// all it holds when it goes out of scope. No other thread may use the environment while one is
/// created or destroyed.
class TemporaryHome {
 public:
  TemporaryHome();
  TemporaryHome(const TemporaryHome&) = delete;
  TemporaryHome& operator=(const TemporaryHome&) = delete;
  ~TemporaryHome();

  [[nodiscard]] const std::string& path() const { return folder; }

  /// Where the released app, the app's debug build and an app without groups would listen.
  [[nodiscard]] std::string releaseSocket() const;
  [[nodiscard]] std::string debugSocket() const;
  [[nodiscard]] std::string ungroupedSocket() const;

  /// Writes a file at `path`, relative to the home or absolute, creating missing folders. Returns
  /// its absolute path.
  std::string write(std::string_view path, std::string_view content) const;

 private:
  std::string folder;
  std::optional<std::string> oldHome;
};

/// The Info.plist of an app called `identifier`, with `more` members before its name.
[[nodiscard]] std::string infoPlist(std::string_view identifier, std::string_view more = "");

/// Leaves a socket at `path` that nobody listens on any more, creating missing folders.
void leaveStaleSocket(const std::string& path);

}  // namespace quillmere
