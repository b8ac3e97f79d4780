// Bytes in, messages out, over each kind of standard input; and frames out.
#include "protocol/framing.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include "harness/byte_source.hpp"
#include "support/json.hpp"

namespace quillmere {
namespace {

using Outcomes = std::vector<std::string>;

/// Everything read from the wire: messages, and errors as "code text".
Outcomes outcomesOf(const ByteSource& source) {
  ServerState state;
  StdinReader reader(source.number());
  Outcomes outcomes;
  for (std::optional<Bytes> payload(std::in_place);;) {
    const std::string failure = failureOf([&] { payload = readNextPayload(reader, state); });
    if (!payload) return outcomes;
    std::string text(failure.empty() ? viewOf(*payload) : failure);
    if (text.size() > 80) text = "(" + std::to_string(text.size()) + " bytes)";
    outcomes.push_back(std::move(text));
  }
}

struct FramingCase {
  std::string_view name;
  std::string wire;
  Outcomes outcomes;
};

const std::string tooLarge = "-32600 JSON-RPC message is too large.";
const std::string missing = "-32700 Parse error: missing Content-Length.";
const std::string notAscii = "-32700 Parse error: Content-Length header is not ASCII.";
const std::string tooMany = "-32700 Parse error: too many Content-Length headers.";
const std::string incomplete = "-32700 Parse error: incomplete Content-Length ";
const std::string two = "Content-Length: 2\r\n";
const std::string mebibyte = "(1048576 bytes)";

const FramingCase framingCases[] = {
    {"empty input is the end", "", {}},
    {"a line is a message with its terminator", "{}\r\n[]\n", {"{}\r\n", "[]\n"}},
    {"the last line needs no terminator", "{}\n{}", {"{}\n", "{}"}},
    {"blank lines are messages too", "\n \n", {"\n", " \n"}},
    {"a block, then a line, then a block",
     two + "\r\n{}[]\ncontent-length:3\n\n123",
     {"{}", "[]\n", "123"}},
    {"other headers are ignored", "CONTENT-LENGTH: 2\r\nContent-Type: x\r\n\r\n{}", {"{}"}},
    {"a blank before the name makes it a line", " Content-Length: 2\n", {" Content-Length: 2\n"}},
    {"a line that is not ASCII is not a header",
     "Content-Length: 2 \xC3\xA9\n",
     {"Content-Length: 2 \xC3\xA9\n"}},
    {"the last of two lengths counts", "Content-Length: 9\r\nContent-Length: 2\r\n\r\n{}", {"{}"}},
    {"a later length that is not a number voids it",
     two + "Content-Length: x\r\n\r\n{}",
     {missing, "{}"}},
    {"a later line without a value does not", two + "Content-Length:\r\n\r\n{}", {"{}"}},
    {"a value that begins with a colon is not a number", "Content-Length::2\r\n\r\n", {missing}},
    {"colons before a later name are ignored", "Content-Length: x\r\n::" + two + "\r\n{}", {"{}"}},
    {"a blank before the colon is another header", two + "Content-Length : 9\r\n\r\n{}", {"{}"}},
    {"a plus sign is accepted", "Content-Length: \t+2 \r\n\r\n{}", {"{}"}},
    {"two signs are not", "Content-Length: +-2\r\n\r\n", {missing}},
    {"letters after the digits", "Content-Length: 2x\r\n\r\n", {missing}},
    {"no value at all", "Content-Length:\r\n\r\n", {missing}},
    {"a value past 64 bits is missing", "Content-Length: 9223372036854775808\r\n\r\n", {missing}},
    {"zero is too large", "Content-Length: 0\r\n\r\n{}", {tooLarge, "{}"}},
    {"a negative length too", "Content-Length: -1\r\n\r\n", {tooLarge}},
    {"a mebibyte and one byte too", "Content-Length: 1048577\r\n\r\n", {tooLarge}},
    {"a mebibyte",
     "Content-Length: 1048576\r\n\r\n" + times(1'048'576, "b") + "{}",
     {mebibyte, "{}"}},
    {"a line of blanks does not end a block", two + " \r\n\r\n{}", {"{}"}},
    {"a header line that is not ASCII", two + "X: \xC3\xA9\r\n\r\n{}", {notAscii, "{}"}},
    {"32 header lines", times(32, two) + "\n{}", {"{}"}},
    {"the 33rd is refused before any of them is decoded",
     times(32, two) + "\xC3\nrest\n",
     {tooMany, "rest\n"}},
    {"a header line of 8192 bytes", two + times(8191, "x") + "\n\n{}", {"{}"}},
    {"one byte more leaves the rest unread",
     two + times(8192, "x") + "\nrest\n",
     {tooLarge, "rest\n"}},
    {"input ends inside the block", two, {incomplete + "headers."}},
    {"input ends inside the first header line", "Content-Length: 2", {incomplete + "headers."}},
    {"input ends inside the body", "Content-Length: 3\r\n\r\n{}", {incomplete + "payload."}},
    {"a line of a mebibyte", times(1'048'575, "x") + "\n{}\n", {mebibyte, "{}\n"}},
    {"one byte more, even if it is the terminator",
     times(1'048'576, "x") + "\n{}\n",
     {tooLarge, "{}\n"}},
};

TEST(Framing, SameMessagesAndErrorsOverEveryKindOfInput) {
  for (const FramingCase& each : framingCases) {
    for (const ByteSource::Kind kind : ByteSource::kinds) {
      for (const std::size_t chunk : {each.wire.size() + 1, std::size_t{1}, std::size_t{7}}) {
        // A mebibyte byte by byte tests no more than a line does, and is slow.
        if (chunk < each.wire.size() && each.wire.size() > 20'000) continue;
        SCOPED_TRACE(std::string(each.name) + ", in chunks of " + std::to_string(chunk) +
                     ", kind " + std::to_string(static_cast<int>(kind)));
        const ByteSource source(kind, each.wire, chunk);
        EXPECT_EQ(each.outcomes, outcomesOf(source));
      }
    }
  }
}

TEST(Framing, WhatFollowsTheCurrentMessageStaysUnread) {
  for (const std::string_view message : {"{}\n", "Content-Length: 2\r\n\r\n{}"}) {
    for (const ByteSource::Kind kind : ByteSource::kinds) {
      SCOPED_TRACE(std::string(message) + " kind " + std::to_string(static_cast<int>(kind)));
      const std::string wire = std::string(message) + "first\nsecond\n";
      const ByteSource source(kind, wire, wire.size());
      ServerState state;
      StdinReader reader(source.number());
      ASSERT_TRUE(readNextPayload(reader, state).has_value());
      ASSERT_EQ("first\n", viewOf(readNextPayload(reader, state).value()));
      std::array<char, 16> rest{};
      EXPECT_EQ(7, ::read(source.number(), rest.data(), rest.size()));
      EXPECT_STREQ("second\n", rest.data());
    }
  }
}

}  // namespace
}  // namespace quillmere
