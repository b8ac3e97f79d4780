// One message in, and what comes of it, for everything that the main thread answers by itself.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "core/server.hpp"
#include "platform/descriptor.hpp"
#include "support/json.hpp"
#include "support/snapshot.hpp"

namespace quillmere {
namespace {

/// A server whose output goes into memory.
class Conversation {
 public:
  /// Returns what the payload is answered with, without line feeds; empty for silence.
  std::string answerTo(std::string_view payload) {
    goesOn = processPayload(payload, server);
    std::string text(static_cast<std::size_t>(::lseek(output.number(), 0, SEEK_END)) - seen, '\0');
    EXPECT_EQ(static_cast<ssize_t>(text.size()),
              ::pread(output.number(), text.data(), text.size(), static_cast<off_t>(seen)));
    seen += text.size();
    if (text.ends_with('\n')) text.pop_back();
    return text;
  }
  bool goesOn = true;

 private:
  Descriptor output{::memfd_create("output", MFD_CLOEXEC)};
  ServerContext server{output.number()};
  std::size_t seen = 0;
};

std::string errorWith(std::string_view id, int code, std::string_view text) {
  return R"({"jsonrpc":"2.0","id":)" + std::string(id) + R"(,"error":{"code":)" +
         std::to_string(code) + R"(,"message":")" + std::string(text) + R"("}})";
}

std::string resultWith(std::string_view id, std::string_view result) {
  return R"({"jsonrpc":"2.0","id":)" + std::string(id) + R"(,"result":)" + std::string(result) +
         "}";
}

struct RoutingCase {
  std::string_view name;
  std::string payload;
  std::string answer;
};

const RoutingCase casesBeforeInitialize[] = {
    {"a blank line", "\n", ""},
    {"blanks of Unicode", " \t\u00A0\u2003\u0085\r\n", ""},
    {"not UTF-8", "{\"a\":\"\xFF\"}",
     errorWith("null", -32700, "Parse error: input is not valid UTF-8.")},
    {"a surrogate in UTF-8", "\xED\xA0\x80",
     errorWith("null", -32700, "Parse error: input is not valid UTF-8.")},
    {"no JSON", "{\"jsonrpc\":", ""},
    {"a lone number", "5", ""},
    {"a lone surrogate", R"({"id":1,"method":"\ud800"})", ""},
    {"something behind the object", "{} {}", ""},
    {"100,000 arrays in one another", std::string(100'000, '['), ""},
    {"an array", "[]", errorWith("null", -32600, "JSON-RPC message must be an object.")},
    {"an empty object", "{}", errorWith("null", -32600, "JSON-RPC version must be 2.0.")},
    {"a boolean id", R"({"jsonrpc":"2.0","id":true,"method":"ping"})",
     errorWith("null", -32600, "JSON-RPC id must not be a boolean.")},
    {"an object as id", R"({"jsonrpc":"2.0","id":{},"method":"ping"})",
     errorWith("null", -32600, "JSON-RPC id must be a string or number when present.")},
    {"a request with a null id", R"({"jsonrpc":"2.0","id":null,"method":"ping"})",
     errorWith("null", -32600, "JSON-RPC request method requires an id: ping")},
    {"shutdown without id", R"({"jsonrpc":"2.0","method":"shutdown"})",
     errorWith("null", -32600, "JSON-RPC request method requires an id: shutdown")},
    {"ping", R"({"jsonrpc":"2.0","id":0,"method":"ping","params":null})", resultWith("0", "{}")},
    {"an empty id", R"({"jsonrpc":"2.0","id":"","method":"ping"})", resultWith("\"\"", "{}")},
    {"an id keeps its digits", R"({"jsonrpc":"2.0","id":12345678901234567890.10,"method":"ping"})",
     resultWith("12345678901234567890.10", "{}")},
    {"an id beyond any float", R"({"jsonrpc":"2.0","id":1e400,"method":"ping"})",
     resultWith("1e400", "{}")},
    {"of two ids the last counts", R"({"jsonrpc":"2.0","id":1,"id":2,"method":"ping"})",
     resultWith("2", "{}")},
    {"no version", R"({"id":1,"method":"ping"})",
     errorWith("1", -32600, "JSON-RPC version must be 2.0.")},
    {"a version that is a number", R"({"jsonrpc":2.0,"id":1,"method":"ping"})",
     errorWith("1", -32600, "JSON-RPC version must be 2.0.")},
    {"a wrong version goes before a wrong method", R"({"jsonrpc":"1.0","id":1,"method":5})",
     errorWith("1", -32600, "JSON-RPC version must be 2.0.")},
    {"a response of the client's", R"({"jsonrpc":"2.0","id":1,"result":{}})",
     errorWith("1", -32600, "JSON-RPC method must be a string.")},
    {"params of a wrong type", R"({"jsonrpc":"2.0","id":1,"method":"ping","params":[]})",
     errorWith("1", -32602, "params must be an object when provided.")},
    {"params go before the method's name",
     R"({"jsonrpc":"2.0","id":1,"method":"nope","params":""})",
     errorWith("1", -32602, "params must be an object when provided.")},
    {"a notification's error is answered",
     R"({"jsonrpc":"2.0","method":"notifications/initialized","params":5})",
     errorWith("null", -32602, "params must be an object when provided.")},
    {"a cancellation with a wrong version too",
     R"({"method":"notifications/cancelled","params":{"requestId":1}})",
     errorWith("null", -32600, "JSON-RPC version must be 2.0.")},
    {"an unknown notification", R"({"jsonrpc":"2.0","method":"notifications/x"})", ""},
    {"an unknown notification with an id", R"({"jsonrpc":"2.0","id":1,"method":"notifications/x"})",
     errorWith("1", -32601, "Method not found: notifications/x")},
    {"a known notification with an id",
     R"({"jsonrpc":"2.0","id":1,"method":"notifications/cancelled","params":{"requestId":9}})", ""},
    {"an unknown method is no matter of the gate", R"({"jsonrpc":"2.0","id":1,"method":"Ping"})",
     errorWith("1", -32601, "Method not found: Ping")},
    {"an initialized notification opens nothing",
     R"({"jsonrpc":"2.0","method":"notifications/initialized"})", ""},
    {"a gated method", R"({"jsonrpc":"2.0","id":1,"method":"prompts/list"})",
     errorWith("1", -32002,
               "Server is not initialized. Call initialize with a supported protocolVersion before "
               "prompts/list.")},
    {"initialize with a null version",
     R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":null}})",
     errorWith("1", -32602, "initialize params.protocolVersion must be a string when provided.")},
    {"which leaves the gate closed", R"({"jsonrpc":"2.0","id":1,"method":"tools/list"})",
     errorWith("1", -32002,
               "Server is not initialized. Call initialize with a supported protocolVersion before "
               "tools/list.")},
};

TEST(Routing, BeforeInitialize) {
  Conversation conversation;
  for (const RoutingCase& each : casesBeforeInitialize) {
    SCOPED_TRACE(each.name);
    EXPECT_EQ(each.answer, conversation.answerTo(each.payload));
    EXPECT_TRUE(conversation.goesOn);
  }
}

TEST(Routing, VersionNegotiation) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {R"({})", "2025-11-25"},
      {R"({"protocolVersion":"2025-06-18"})", "2025-06-18"},
      {R"({"protocolVersion":"2025-01-01"})", "2024-11-05"},
      {R"({"protocolVersion":"2025-04-01"})", "2025-03-26"},
      {R"({"protocolVersion":"2025-9-1"})", "2025-11-25"},
      {R"({"protocolVersion":"2024-01-01"})", "2024-11-05"},
      {R"({"protocolVersion":""})", "2024-11-05"},
      {R"({"protocolVersion":"latest"})", "2025-11-25"},
  };
  Conversation conversation;
  for (const auto& [params, version] : cases) {
    const std::string answer = conversation.answerTo(
        R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":)" + std::string(params) + "}");
    EXPECT_TRUE(answer.starts_with(R"({"jsonrpc":"2.0","id":1,"result":{"protocolVersion":")" +
                                   std::string(version) + "\""))
        << params << " gave " << answer;
  }
}

TEST(Routing, AfterInitialize) {
  Conversation conversation;
  const JsonObject handshake =
      json(conversation.answerTo(R"({"jsonrpc":"2.0","id":1,"method":"initialize"})"));
  EXPECT_TRUE(matchesSnapshot(*handshake.findObject("result"), "initialize.json"));

  // A failed second handshake changes nothing.
  EXPECT_EQ(
      errorWith("2", -32602, "initialize params.protocolVersion must be a string when provided."),
      conversation.answerTo(
          R"({"jsonrpc":"2.0","id":2,"method":"initialize","params":{"protocolVersion":1}})"));
  EXPECT_NE(
      std::string::npos,
      conversation
          .answerTo(R"({"jsonrpc":"2.0","id":3,"method":"tools/list","params":{"cursor":"x"}})")
          .find(R"({"tools":[{"name":"quillmere.help",)"));
  const std::string resources =
      R"({"resources":[{"uri":"quillmere://devices","name":"devices","title":"Quillmere Devices",)"
      R"("description":"Current Android device snapshots from Quillmere.","mimeType":"application/json"},)"
      R"({"uri":"quillmere://sessions","name":"sessions","title":"Quillmere Mirror Sessions",)"
      R"("description":"Current active mirror session snapshots from Quillmere.","mimeType":"application/json"}]})";
  EXPECT_EQ(resultWith("4", resources),
            conversation.answerTo(R"({"jsonrpc":"2.0","id":4,"method":"resources/list"})"));

  // A shutdown that fails ends nothing; one that succeeds is answered first.
  EXPECT_NE("", conversation.answerTo(R"({"id":5,"method":"shutdown"})"));
  EXPECT_TRUE(conversation.goesOn);
  EXPECT_EQ(resultWith("6", "{}"),
            conversation.answerTo(R"({"jsonrpc":"2.0","id":6,"method":"shutdown"})"));
  EXPECT_FALSE(conversation.goesOn);
}

}  // namespace
}  // namespace quillmere
