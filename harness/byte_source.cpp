#include "harness/byte_source.hpp"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "peers/channel.hpp"
#include "platform/standard_streams.hpp"

namespace quillmere {

ByteSource::ByteSource(Kind kind, std::string_view wire, std::size_t piece) {
  if (kind == Kind::file) {
    input = makeNamelessFile();
    if (!writeAll(input.number(), {wire})) throw std::system_error(EIO, std::generic_category());
    ::lseek(input.number(), 0, SEEK_SET);
    return;
  }
  Channel channel = kind == Kind::pipe ? makePipe() : makeSocketPair();
  input = std::move(channel.readEnd);
  writer = std::thread([wire, piece, output = std::move(channel.writeEnd)] {
    for (std::size_t at = 0; at < wire.size(); at += piece) {
      if (!writeAll(output.number(), {wire.substr(at, piece)})) return;
    }
  });
}

ByteSource::~ByteSource() {
  input = Descriptor();
  if (writer.joinable()) writer.join();
}

Descriptor makeNamelessFile() {
  std::string path = "/tmp/qm-XXXXXX";
  Descriptor file(::mkostemp(path.data(), O_CLOEXEC));
  if (!file.isOpen()) throw std::system_error(errno, std::generic_category(), path);
  ::unlink(path.c_str());
  return file;
}

}  // namespace quillmere
