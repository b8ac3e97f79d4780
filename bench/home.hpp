// Where a measured server and the app of the benchmarks meet.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace quillmere::bench {

/// A home folder with a control socket's place in it, gone when it goes out of scope.
class Home {
 public:
  /// Throws `std::runtime_error` when no folder can be made.
  Home() {
    // Not where TMPDIR says: the path of a socket must be short.
    if (::mkdtemp(folder.data()) == nullptr) throw std::runtime_error("No folder can be made.");
    std::filesystem::create_directories(std::filesystem::path(socket()).parent_path());
  }
  Home(const Home&) = delete;
  Home& operator=(const Home&) = delete;
  Home(Home&&) = delete;
  Home& operator=(Home&&) = delete;
  ~Home() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }

  [[nodiscard]] const std::string& path() const { return folder; }
  [[nodiscard]] std::string socket() const {
    return folder + "/Library/Group Containers/group.com.tallowbrook.wickfern.shared/qm-mcp.sock";
  }

 private:
  std::string folder = "/tmp/qm-bench-XXXXXX";
};

}  // namespace quillmere::bench
