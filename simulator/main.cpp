#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include "control/app_socket.hpp"
#include "peers/unix_listener.hpp"
#include "platform/process.hpp"
#include "platform/standard_streams.hpp"
#include "simulator/control_service.hpp"
#include "simulator/drawing.hpp"
#include "simulator/options.hpp"

namespace {

using namespace quillmere::simulator;
using namespace quillmere;

constexpr int failed = 1;
constexpr int wronglyUsed = 2;

void print(int descriptor, std::string_view text) {
  // Nobody may be reading it.
  static_cast<void>(writeAll(descriptor, {text}));
}

void complain(std::string_view text) {
  print(STDERR_FILENO, "quillmere-desktop-simulator: " + std::string(text) + "\n");
}

/// Where the installed app listens, so that the server finds the simulator instead.
std::string appSocketPath() {
  const std::string folder =
      "/" + std::string(preferredAppGroup("com.tallowbrook.wickfern").value()) + "/";
  const auto candidates = socketCandidates(std::nullopt);
  return *std::ranges::find_if(
      candidates, [&](const auto& path) { return path.find(folder) != std::string::npos; });
}

int writeScreenshot(const SimulatorOptions& options) {
  const std::string& path = options.screenshotFile;
  const std::string png = pngOf(viewOf(makePhone(options.scale), WorldTime(0)));
  std::ofstream file(path, std::ios::binary);
  file << png << std::flush;
  if (file) return 0;
  complain("can't write " + path);
  return failed;
}

sigset_t endingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  return signals;
}

int listenAndServe(const SimulatorOptions& options) {
  // Block them in every thread before the socket exists: a signal must end the service cleanly.
  const sigset_t signals = endingSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const UnixListener listener(options.socketPath.empty() ? appSocketPath() : options.socketPath);
  std::thread ender([&listener, signals] {
    int signal = 0;
    sigwait(&signals, &signal);
    listener.stop();
  });

  // Never freed: threads may use it until the process is gone.
  static auto& service = *new ControlService(options);
  print(STDOUT_FILENO, "Listening on " + listener.path() + "\n");
  service.serve(listener);
  // Only the ender stops the listener, so it must finish before the listener is destroyed.
  ender.join();
  return 0;
}

int run(const SimulatorOptions& options) {
  try {
    if (!options.screenshotFile.empty()) return writeScreenshot(options);
    return listenAndServe(options);
  } catch (const std::system_error& error) {
    complain(error.code() == std::errc::address_in_use
                 ? "another app is already listening, or a file is in the way: " +
                       std::string(error.what())
                 : error.what());
  } catch (const std::exception& error) {
    complain(error.what());
  }
  return failed;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  prepareProcess();
  const auto first = static_cast<std::size_t>(std::min(argumentCount, 1));
  const auto count = static_cast<std::size_t>(argumentCount);
  SimulatorOptions options;
  try {
    options = parseOptions({arguments + first, count - first});
  } catch (const UsageError& error) {
    complain(error.what());
    print(STDERR_FILENO, simulatorUsage);
    return wronglyUsed;
  }
  if (options.wantsHelp) {
    print(STDOUT_FILENO, std::string(simulatorUsage) + "\n" + std::string(simulatorHelp));
    return 0;
  }
  const int status = run(options);
  // Runs no destructors of static objects: calls may still be running.
  if (status == 0) endProcess();
  return status;
}
