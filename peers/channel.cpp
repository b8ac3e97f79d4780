#include "peers/channel.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace quillmere {

namespace {

Channel channelOf(int error, const std::array<int, 2>& ends) {
  if (error != 0) throw std::system_error(errno, std::generic_category(), "pipe or socketpair");
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

}  // namespace

Channel makePipe() {
  std::array<int, 2> ends{};
  return channelOf(::pipe(ends.data()), ends);
}

Channel makeSocketPair() {
  std::array<int, 2> ends{};
  return channelOf(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), ends);
}

}  // namespace quillmere
