// What the fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "harness/desktop_app.hpp"
#include "harness/temporary_home.hpp"

namespace quillmere {

/// Reports a finding and ends the run unless `holds`.
inline void demand(bool holds) {
  if (!holds) std::abort();
}

[[nodiscard]] inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// A desktop app at its usual place in this process's own home. It answers each call with the same
/// bytes and hangs up.
class AnsweringApp {
 public:
  /// The only one; it lives until the process ends.
  static AnsweringApp& instance() {
    static auto& app = *new AnsweringApp;
    // Never destroyed, since its threads use it until the process ends. But its folder must go.
    static const int registered = std::atexit([] { std::filesystem::remove_all(app.home.path()); });
    static_cast<void>(registered);
    return app;
  }

  void setAnswer(std::string bytes) {
    const std::lock_guard hold(lock);
    _answer = std::move(bytes);
  }

 private:
  AnsweringApp() = default;

  TemporaryHome home;
  std::mutex lock;
  std::string _answer;
  DesktopApp app{home.releaseSocket(), [this](const AppConnection& connection) {
                   if (!connection.receiveText()) return;
                   const std::lock_guard hold(lock);
                   connection.send(_answer);
                 }};
};

}  // namespace quillmere
