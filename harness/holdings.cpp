#include "harness/holdings.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace quillmere {

namespace {

std::string folderOf(pid_t process) {
  return "/proc/" + std::to_string(process);
}

std::size_t entriesIn(const std::string& folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

}  // namespace

Holdings holdingsOf(pid_t process) {
  return {.descriptors = entriesIn(folderOf(process) + "/fd"),
          .threads = entriesIn(folderOf(process) + "/task")};
}

double memoryOf(pid_t process, Memory memory) {
  const std::string path =
      folderOf(process) + (memory == Memory::peak ? "/status" : "/smaps_rollup");
  const std::string_view label = memory == Memory::peak    ? "VmHWM:"
                                 : memory == Memory::share ? "Pss:"
                                                           : "Rss:";
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(label)) return 1'024 * std::stod(line.substr(label.size()));
  }
  throw std::runtime_error(path + " does not say " + std::string(label));
}

}  // namespace quillmere
