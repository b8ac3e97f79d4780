// One message in, and what comes of it, for everything that the main thread answers by itself.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "harness/byte_source.hpp"
#include "platform/descriptor.hpp"
#include "server/server.hpp"
#include "support/json.hpp"
#include "support/snapshot.hpp"

namespace quillmere {
namespace {

/// A server whose output goes into memory.
class Conversation {
 public:
  /// Returns what the payload is answered with, without line feeds; empty for silence.
  std::string answerTo(std::string_view payload) {
    goesOn = processPayload(bytesOf(payload), server);
    std::string text(static_cast<std::size_t>(::lseek(output.number(), 0, SEEK_END)) - seen, '\0');
    EXPECT_EQ(static_cast<ssize_t>(text.size()),
              ::pread(output.number(), text.data(), text.size(), static_cast<off_t>(seen)));
    seen += text.size();
    if (text.ends_with('\n')) text.pop_back();
    return text;
  }
  bool goesOn = true;

 private:
  Descriptor output = makeNamelessFile();
  ServerContext server{output.number(), serverForm};
  std::size_t seen = 0;
};

/// The response that `outcome` stands for: its id, a blank, and its result, or its error's code and
/// text. Silence means itself.
std::string response(std::string_view outcome) {
  if (outcome.empty()) return "";
  const std::size_t blank = outcome.find(' ');
  const std::string_view rest = outcome.substr(blank + 1);
  const std::string head = R"({"jsonrpc":"2.0","id":)" + std::string(outcome.substr(0, blank));
  if (rest.starts_with('{')) return head + R"(,"result":)" + std::string(rest) + "}";
  const std::size_t end = rest.find(' ');
  return head + R"(,"error":{"code":)" + std::string(rest.substr(0, end)) + R"(,"message":")" +
         std::string(rest.substr(end + 1)) + R"("}})";
}

struct RoutingCase {
  std::string_view name;
  std::string payload;
  std::string_view outcome;
};

/// A request with the id 1 and what else it has.
std::string request(std::string_view members) {
  return R"({"jsonrpc":"2.0","id":1,)" + std::string(members) + "}";
}
std::string notification(std::string_view members) {
  return R"({"jsonrpc":"2.0",)" + std::string(members) + "}";
}
std::string pingFrom(std::string_view id) {
  return notification(R"("id":)" + std::string(id) + R"(,"method":"ping")");
}

constexpr std::string_view notUtf8 = "null -32700 Parse error: input is not valid UTF-8.";
constexpr std::string_view wrongVersion = "1 -32600 JSON-RPC version must be 2.0.";
constexpr std::string_view wrongProtocol =
    "1 -32602 initialize params.protocolVersion must be a string when provided.";

const RoutingCase casesBeforeInitialize[] = {
    {"blanks of Unicode", " \t\u00A0\u2003\u0085\r\n", ""},
    {"not UTF-8", "{\"a\":\"\xFF\"}", notUtf8},
    {"a surrogate in UTF-8", "\xED\xA0\x80", notUtf8},
    {"no JSON", "{\"jsonrpc\":", ""},
    {"a lone number", "5", ""},
    {"100,000 arrays in one another", std::string(100'000, '['), ""},
    {"an array", "[]", "null -32600 JSON-RPC message must be an object."},
    {"a boolean id", pingFrom("true"), "null -32600 JSON-RPC id must not be a boolean."},
    {"an object as id", pingFrom("{}"),
     "null -32600 JSON-RPC id must be a string or number when present."},
    {"a null id", pingFrom("null"), "null -32600 JSON-RPC request method requires an id: ping"},
    {"shutdown without id", notification(R"("method":"shutdown")"),
     "null -32600 JSON-RPC request method requires an id: shutdown"},
    {"params of null", request(R"("method":"ping","params":null)"), "1 {}"},
    {"an empty id", pingFrom("\"\""), "\"\" {}"},
    {"an id keeps its digits", pingFrom("12345678901234567890.10"), "12345678901234567890.10 {}"},
    {"an id keeps its escapes", pingFrom(R"("\u0069\"")"), R"("\u0069\"" {})"},
    {"of two ids the last counts", pingFrom(R"(true,"\u0069d":2)"), "2 {}"},
    {"a version that is a number", R"({"jsonrpc":2.0,"id":1,"method":"ping"})", wrongVersion},
    {"a version before the method", R"({"jsonrpc":"1.0","id":1,"method":5})", wrongVersion},
    {"a client's response", request(R"("result":{})"),
     "1 -32600 JSON-RPC method must be a string."},
    {"params go before the method's name", request(R"("method":"nope","params":[])"),
     "1 -32602 params must be an object when provided."},
    {"a notification's error is answered",
     notification(R"("method":"notifications/initialized","params":5)"),
     "null -32602 params must be an object when provided."},
    {"a cancellation with a wrong version too",
     R"({"method":"notifications/cancelled","params":{"requestId":1}})",
     "null -32600 JSON-RPC version must be 2.0."},
    {"an unknown notification", notification(R"("method":"notifications/x")"), ""},
    {"an unknown notification with an id", request(R"("method":"notifications/x")"),
     "1 -32601 Method not found: notifications/x"},
    {"a method of the other program", request(R"("method":"resources/templates/list")"),
     "1 -32601 Method not found: resources/templates/list"},
    {"a known notification with an id",
     request(R"("method":"notifications/cancelled","params":{"requestId":9})"), ""},
    {"an initialized notification opens nothing",
     notification(R"("method":"notifications/initialized")"), ""},
    {"a gated method", request(R"("method":"prompts/list")"),
     "1 -32002 Server is not initialized. Call initialize with a supported protocolVersion before "
     "prompts/list."},
    {"initialize with a null version",
     request(R"("method":"initialize","params":{"protocolVersion":null})"), wrongProtocol},
    {"which leaves the gate closed", request(R"("method":"tools/list")"),
     "1 -32002 Server is not initialized. Call initialize with a supported protocolVersion before "
     "tools/list."},
};

TEST(Routing, BeforeInitialize) {
  Conversation conversation;
  for (const RoutingCase& each : casesBeforeInitialize) {
    SCOPED_TRACE(each.name);
    EXPECT_EQ(response(each.outcome), conversation.answerTo(each.payload));
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
    const std::string answer =
        conversation.answerTo(request(R"("method":"initialize","params":)" + std::string(params)));
    EXPECT_TRUE(answer.starts_with(R"({"jsonrpc":"2.0","id":1,"result":{"protocolVersion":")" +
                                   std::string(version) + "\""))
        << params << " gave " << answer;
  }
}

TEST(Routing, AfterInitialize) {
  Conversation conversation;
  const JsonObject handshake = json(conversation.answerTo(request(R"("method":"initialize")")));
  EXPECT_EQ(snapshot("initialize.json"), indentedJson(*handshake.find("result")) + "\n");

  // A failed second handshake changes nothing.
  EXPECT_EQ(
      response(wrongProtocol),
      conversation.answerTo(request(R"("method":"initialize","params":{"protocolVersion":1})")));
  EXPECT_NE(std::string::npos,
            conversation.answerTo(request(R"("method":"tools/list","params":{"cursor":"x"})"))
                .find(R"({"tools":[{"name":"quillmere.help",)"));
  const std::string resources =
      R"(1 {"resources":[{"uri":"quillmere://devices","name":"devices","title":"Quillmere Devices",)"
      R"("description":"Current Android device snapshots from Quillmere.","mimeType":"application/json"},)"
      R"({"uri":"quillmere://sessions","name":"sessions","title":"Quillmere Mirror Sessions",)"
      R"("description":"Current active mirror session snapshots from Quillmere.","mimeType":"application/json"}]})";
  EXPECT_EQ(response(resources), conversation.answerTo(request(R"("method":"resources/list")")));

  // A shutdown that fails ends nothing; one that succeeds is answered first.
  EXPECT_NE("", conversation.answerTo(R"({"id":5,"method":"shutdown"})"));
  EXPECT_TRUE(conversation.goesOn);
  EXPECT_EQ(response("1 {}"), conversation.answerTo(request(R"("method":"shutdown")")));
  EXPECT_FALSE(conversation.goesOn);
}

}  // namespace
}  // namespace quillmere
