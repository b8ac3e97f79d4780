// What the client sees of an app response: summary, guidance, help.
#include <gtest/gtest.h>

#include "mcp/dialect.hpp"
#include "mcp/help.hpp"
#include "results/tool_result.hpp"
#include "support/json.hpp"
#include "support/snapshot.hpp"
#include "tools/catalogue.hpp"

namespace quillmere {
namespace {

TEST(Summary, NamesWhatMattersInTheResponse) {
  constexpr std::string_view succeeded = "Quillmere tool call succeeded.\n";
  constexpr std::string_view failed = "Quillmere tool call failed.\n";
  constexpr std::string_view nothing = "Quillmere returned structured tool data.\n";
  struct SummaryCase {
    std::string_view name, payload;
    /// Without the last line, which is always the same.
    std::string_view lines;
  };
  const SummaryCase cases[] = {
      {"nothing", "{}", nothing},
      {"success with an error", R"({"ok":true,"error":{"message":"no"}})", succeeded},
      {"failure", R"({"ok":false,"error":{"message":"no\nway"}})",
       "Quillmere tool call failed: no\nway\n"},
      {"failure without an error", R"({"ok":false})", failed},
      {"failure with an empty message", R"({"ok":false,"error":{"message":""}})", failed},
      {"failure with a number as message", R"({"ok":false,"error":{"message":5}})", failed},
      {"members of other types, or empty",
       R"({"ok":0,"devices":null,"sessions":"s","apps":{},"action":{"message":"",
           "foregroundVerified":1},"visibleState":{"uiTopPackageName":5,"sessionAppPackageName":""},
           "uiState":{"elementCount":true,"returned":"5","truncated":0},"warnings":[],
           "nextRecommendedTool":"n","auditId":""})",
       nothing},
      {"the top package is empty",
       R"({"visibleState":{"uiTopPackageName":"","sessionAppPackageName":"b"}})",
       "visiblePackage: b\n"},
      {"the top package is not a string",
       R"({"visibleState":{"uiTopPackageName":5,"sessionAppPackageName":"b"}})",
       "visiblePackage: b\n"},
      {"whole numbers in another spelling", R"({"uiState":{"elementCount":5.0,"returned":12e1}})",
       "uiNodeCount: 5\nuiNodesReturned: 120\n"},
      {"a number that is not whole", R"({"uiState":{"elementCount":5.5}})", nothing},
      {"three warnings", R"({"warnings":["a","b","c"]})",
       "warning: a\nwarning: b\nwarningCount: 3\n"},
      {"an empty warning", R"({"warnings":["","b"]})", "warning: b\n"},
      {"empty warnings count", R"({"warnings":["","","c"]})", "warningCount: 3\n"},
      {"one warning of another type hides all", R"({"warnings":["a","b",null]})", nothing},
      {"all at once, in the order of lines",
       R"({"auditId":"a","nextRecommendedTool":{"name":"n"},"warnings":["w"],"uiState":{"truncated":
           false,"returned":1,"elementCount":2},"visibleState":{"sessionAppPackageName":"q",
           "uiTopPackageName":"p"},"action":{"foregroundVerified":true,"message":"m"},
           "apps":[1,null],"sessions":[[]],"devices":[],"ok":true})",
       "Quillmere tool call succeeded.\ndevices: 0\nsessions: 1\napps: 2\naction: m\n"
       "foregroundVerified: true\nvisiblePackage: p\nuiNodeCount: 2\nuiNodesReturned: 1\n"
       "uiTruncated: false\nwarning: w\nnextRecommendedTool: n\nauditId: a\n"},
  };
  for (const auto& [name, payload, lines] : cases) {
    EXPECT_EQ(summarizeToolPayload(json(payload)),
              std::string(lines) + "Full result is available in structuredContent.")
        << name;
  }
}

TEST(ToolResult, HoldsTheWholeResponseBesideItsSummary) {
  constexpr std::pair<std::string_view, bool> cases[] = {
      {R"({"ok":false,"image":"iVBORw0KGgo="})", true},
      {R"({"ok":true,"n":1e400,"list":[[1],[]]})", false},
      {R"({"ok":"false"})", false},
      {R"({"ok":null})", false},
  };
  for (const auto& [payload, isError] : cases) {
    const JsonText summary = summarizeToolPayload(json(payload));
    EXPECT_EQ(toolResult(json(payload)).str(), R"({"content":[{"type":"text","text":)" +
                                                   summary.str() + R"(}],"structuredContent":)" +
                                                   std::string(payload) + R"(,"isError":)" +
                                                   (isError ? "true}" : "false}"));
  }
}

TEST(ToolResult, KeepsTheBytesThatItRefersTo) {
  for (const std::string_view tool : {"quillmere.sessions.list", "quillmere.screen.observe"}) {
    const auto result = [&](std::string_view payload) {
      // On the heap, so that a sanitizer sees reads after their end.
      auto arguments = parseJson(R"({"deviceSerial":"R5"})");
      auto document = parseJson(payload);
      GuidedResponse guided =
          addGuidance(tool, arguments->object(), document->object(), serverDialect.spelled);
      arguments.reset();
      JsonText text = toolResult(guided);
      document.reset();
      return text;
    };
    const std::string image = times(20'000, "A");
    std::string text = result(R"({"ok":true,"warnings":["w"],"image":")" + image + "\"}").str();
    const std::size_t at = text.find(image);
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(text.erase(at, image.size()),
              result(R"({"ok":true,"warnings":["w"],"image":""})").str());
  }
}

TEST(Guidance, SuggestsTheNextStepAfterAList) {
  constexpr std::string_view sessions = "quillmere.sessions.list";
  constexpr std::string_view devices = "quillmere.devices.list";
  constexpr std::string_view same;
  struct GuidanceCase {
    std::string_view name, tool, arguments, payload, guided;
  };
  const GuidanceCase cases[] = {
      {"no session, on a device", sessions, R"({"deviceSerial":"R5"})",
       R"({"ok":true,"sessions":[]})",
       R"({"ok":true,"sessions":[],"warnings":["No Phone Screen session is active. Call quillmere.session.start with deviceSerial=R5 before observe/input/UI tools."],"nextRecommendedTool":{"name":"quillmere.session.start","arguments":{"deviceSerial":"R5"}}})"},
      {"no session, on any device", sessions, "{}", R"({"ok":true})",
       R"({"ok":true,"warnings":["No Phone Screen session is active. Call quillmere.session.start before observe/input/UI tools."],"nextRecommendedTool":{"name":"quillmere.session.start","arguments":{}}})"},
      {"no session, on a device without a name", sessions, R"({"deviceSerial":""})",
       R"({"ok":true})",
       R"({"ok":true,"warnings":["No Phone Screen session is active. Call quillmere.session.start before observe/input/UI tools."],"nextRecommendedTool":{"name":"quillmere.session.start","arguments":{"deviceSerial":""}}})"},
      {"another kind of session, and a warning of the app's own", sessions,
       R"({"deviceSerial":null})",
       R"({"ok":true,"warnings":["own"],"nextRecommendedTool":5,"sessions":[{"sessionKind":"fusion"},{}]})",
       R"({"ok":true,"warnings":["own","No Phone Screen session is active. Call quillmere.session.start before observe/input/UI tools."],"nextRecommendedTool":{"name":"quillmere.session.start","arguments":{}},"sessions":[{"sessionKind":"fusion"},{}]})"},
      {"one element of another type voids the list", sessions, "{}",
       R"({"ok":true,"warnings":["own",1],"sessions":[{"sessionKind":"phoneScreen"},null]})",
       R"({"ok":true,"warnings":["No Phone Screen session is active. Call quillmere.session.start before observe/input/UI tools."],"sessions":[{"sessionKind":"phoneScreen"},null],"nextRecommendedTool":{"name":"quillmere.session.start","arguments":{}}})"},
      {"a Phone Screen session after others", sessions, R"({"deviceSerial":"R5"})",
       R"({"ok":true,"warnings":[1],"sessions":[{"sessionKind":"fusion"},{"sessionKind":"phoneScreen"}]})",
       same},
      {"a failed list", sessions, "{}", R"({"ok":false,"sessions":[]})", same},
      {"a list with ok as a number", sessions, "{}", R"({"ok":1})", same},
      {"devices to start", devices, "{}",
       R"({"ok":true,"devices":[{"serial":"B","supportsMirror":true,"hasActiveMirrorSessions":false},{"serial":"A","supportsMirror":true,"hasActiveMirrorSessions":false}]})",
       R"({"ok":true,"devices":[{"serial":"B","supportsMirror":true,"hasActiveMirrorSessions":false},{"serial":"A","supportsMirror":true,"hasActiveMirrorSessions":false}],"warnings":["Devices with no active mirror session can be started with quillmere.session.start: B, A"]})"},
      {"devices that can't be started", devices, "{}",
       R"({"ok":true,"warnings":["own"],"devices":[{"serial":"A","supportsMirror":true,"hasActiveMirrorSessions":true},{"serial":"B","supportsMirror":false,"hasActiveMirrorSessions":false},{"serial":"C","supportsMirror":true},{"serial":5,"supportsMirror":true,"hasActiveMirrorSessions":false},{"serial":"D","supportsMirror":1,"hasActiveMirrorSessions":0}]})",
       same},
      {"one device of another type voids the list", devices, "{}",
       R"({"ok":true,"devices":[{"serial":"A","supportsMirror":true,"hasActiveMirrorSessions":false},"B"]})",
       same},
      {"another tool", "quillmere.apps.list", "{}",
       R"({"ok":true,"sessions":[],"warnings":["w",1]})", same},
  };
  for (const auto& [name, tool, arguments, payload, guided] : cases) {
    const JsonText result =
        toolResult(addGuidance(tool, json(arguments), json(payload), serverDialect.spelled));
    const JsonObject content = *json(result.str()).findObject("structuredContent");
    EXPECT_EQ(indentedJson(content.asValue()),
              indentedJson(json(guided == same ? payload : guided).asValue()))
        << name;
    const JsonArray items = *json(result.str()).findArray("content");
    EXPECT_EQ(summarizeToolPayload(content),
              (*items.begin()).asObject()->findString("text")->view())
        << name;
    const auto members = std::distance(content.begin(), content.end());
    EXPECT_EQ(members, std::ssize(content.distinctMembers())) << name;
  }
}

TEST(Help, GivesEachTopicWordForWord) {
  JsonText all = JsonText::object();
  for (const std::string_view topic : Constants::helpTopics) all.set(topic, helpPayload(topic));
  expectSnapshot("help.json", indentedJson(json(all.str()).asValue()) + "\n");
  for (const std::optional<std::string_view> topic : {std::optional<std::string_view>(), {"Ui"}}) {
    EXPECT_EQ(helpPayload(topic).str(), helpPayload("quickstart").str());
  }
}

}  // namespace
}  // namespace quillmere
