// The form that every AI client takes: names, schemas and results.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "compat/names.hpp"
#include "compat/pictures.hpp"
#include "compat/result.hpp"
#include "compat/tool_list.hpp"
#include "control/control_frame.hpp"
#include "harness/desktop_app.hpp"
#include "mcp/help.hpp"
#include "support/running_server.hpp"
#include "support/snapshot.hpp"

namespace quillmere {
namespace {

TEST(Compat, IsListedWordForWordWithoutADot) {
  const JsonText list = compatTools();
  expectSnapshot("tools_list_compat.txt", toolLines(list));
  for (const Tool& tool : allTools()) {
    EXPECT_EQ(&tool, findCompatTool(tool.name));
    EXPECT_EQ(&tool, findCompatTool(compatSpelled(tool.name)));
    EXPECT_EQ(std::string::npos, list.str().find(tool.name)) << tool.name;
  }
}

TEST(Compat, SpellsToolsAndNothingElse) {
  constexpr std::pair<std::string_view, std::string_view> cases[] = {
      {"Call quillmere.wait...", "Call quillmere_wait..."},
      {"ui.get_state, then (quillmere.input.tap)",
       "quillmere_ui_get_state, then (quillmere_input_tap)"},
      {"help, wait: ui.get_states... my.ui.get_state quillmere.help.me é.",
       "help, wait: ui.get_states... my.ui.get_state quillmere.help.me é."},
  };
  for (const auto& [text, spelled] : cases) {
    EXPECT_EQ(spelled, compatSpelled(text));
  }
  for (const std::string_view topic : Constants::helpTopics) {
    EXPECT_EQ(std::string::npos, compatSpelled(helpPayload(topic).str()).find("quillmere."));
  }
}

const std::string png = "iVBORw0KGgoAAAAN";
const std::string webp = "UklGRiQAAABXRUJQ";

TEST(Pictures, AreStringsOfBase64WithASignature) {
  const std::pair<std::string, std::string_view> cases[] = {
      {png, "image/png"},
      {png + "SUhEUg==", "image/png"},
      {R"(iVBORw0KGgoA\u0041AAN)", "image/png"},
      {R"(\/9j\/4AA=)", "image/jpeg"},
      {"/9j/", "image/jpeg"},
      {webp, "image/webp"},
      {"R0lGODdhAAA=", "image/gif"},
      {"R0lGODlhAAA=", "image/gif"},
      {"", ""},
      {"AAAA", ""},
      {"iVBORw0KGgo", ""},
      {png + "SUhEU", ""},
      {png + "SUhEUh==", ""},
      {png + "SU=EUg==", ""},
      {png + "====", ""},
      {png + times(5'000, "A") + "-" + times(4'999, "A"), ""},
      {png + times(9'999, "é") + "A", ""},
      {"data:image/png;base64," + png, ""},
      {"UklGRiQAAABXQVZF", ""},
  };
  for (const auto& [text, mimeType] : cases) {
    const JsonObject payload =
        json(R"({"R0lGODlh": [{"iVBORw0KGgoAAAAN" : ")" + text + R"("} ] , "x":true})");
    const auto found = picturesIn(payload.asValue());
    ASSERT_EQ(mimeType.empty() ? 0U : 1U, found.size()) << text.substr(0, 60);
    EXPECT_EQ(mimeType, found.empty() ? "" : found[0].mimeType);
  }
}

TEST(CompatResult, HoldsThePayloadAsTextAndEachPictureAsAPicture) {
  struct ResultCase {
    std::string_view name;
    std::string payload;
    /// The JSON text in the second item, and what is in the items after it.
    std::string text, pictures;
  };
  // Nine bytes each, and so at each place in a word, over several blocks, and in what is left.
  const std::string escapes = R"({"a":[)" + times(3'000, R"("¢\"\\",)") + R"("\\"]})";
  const ResultCase cases[] = {
      {"escapes everywhere", escapes, escapes, ""},
      {"no picture", R"({"ok":true,"a":[1,"\"\\\n é"]})", R"({"ok":true,"a":[1,"\"\\\n é"]})", ""},
      {"white space", "{ \"ok\" : true ,\t\"a\":[ ] , \"b\": { } }", R"({"ok":true,"a":[],"b":{}})",
       ""},
      {"a picture", R"({"image":")" + png + R"(","ok":true})",
       R"({"image":"picture: item 3 of this content","ok":true})", "image/png " + png + "\n"},
      {"two, with white space", R"([")" + webp + R"(" , {"b": ")" + png + R"("} ])",
       R"(["picture: item 3 of this content",{"b":"picture: item 4 of this content"}])",
       "image/webp " + webp + "\nimage/png " + png + "\n"},
  };
  for (const auto& [name, payload, text, pictures] : cases) {
    SCOPED_TRACE(name);
    const std::string whole = payload.starts_with('[') ? R"({"list":)" + payload + "}" : payload;
    const std::string wholeText = payload.starts_with('[') ? R"({"list":)" + text + "}" : text;
    const JsonObject result = json(compatResult(json(whole)).str());
    EXPECT_FALSE(result.contains("structuredContent"));
    EXPECT_EQ(false, result.findBoolean("isError"));
    std::vector<JsonObject> items;
    const JsonArray content = *result.findArray("content");
    for (const JsonValue& item : content) items.push_back(*item.asObject());
    ASSERT_LE(2U, items.size());
    EXPECT_TRUE(items[0].findString("text")->view().ends_with(
        "\nThe full result is the next item of this content, as JSON text."));
    EXPECT_EQ(wholeText, items[1].findString("text")->view());
    std::string found;
    for (std::size_t i = 2; i < items.size(); ++i) {
      EXPECT_EQ("image", items[i].findString("type")->view());
      found.append(items[i].findString("mimeType")->view()).append(" ");
      found.append(items[i].findString("data")->view()).append("\n");
    }
    EXPECT_EQ(pictures, found);
  }
}

/// The second program, as `RunningServer` is the first.
struct CompatProgram : RunningServer {
  CompatProgram() : RunningServer("", QUILLMERE_COMPAT) {}
};

TEST_F(CompatProgram, PassesLargeAndManyPicturesOnWhole) {
  // The largest answer that there may be, one cut off in its base64, and a hundred.
  const std::string rest = times(7'800'000, "QUJD");
  const std::string many = times(99, "\"" + png + "\",") + "\"" + png + "\"";
  const std::pair<std::string, std::size_t> payloads[] = {
      {R"({"ok":true,"image":")" + png + rest + "\"}", 1},
      {R"({"ok":true,"image":")" + png + rest + "Q\"}", 0},
      {R"({"ok":true,"images":[)" + many + "]}", 100},
  };
  for (const auto& [payload, pictures] : payloads) {
    const DesktopApp app(home.releaseSocket(), [&whole = payload](const AppConnection& connection) {
      static_cast<void>(connection.receive());
      connection.send(controlFrame(whole));
    });
    request(1, "tools/call",
            {{"name", "quillmere_screen_observe"}, {"arguments", JsonText{{"sessionId", "s"}}}});
    const auto answer = server.receive();
    ASSERT_TRUE(answer);
    const JsonArray content = *answer->object().findObject("result")->findArray("content");
    EXPECT_EQ(2 + pictures, content.size());
    // Nothing is lost: with the pictures back in their places it is the payload.
    std::string text;
    std::size_t item = 0;
    for (const JsonValue& each : content) {
      const JsonObject object = *each.asObject();
      if (++item == 2) text = object.findString("text")->view();
      if (item <= 2) continue;
      const std::string note = "picture: item " + std::to_string(item) + " of this content";
      const std::size_t at = text.find(note);
      ASSERT_NE(std::string::npos, at);
      text.replace(at, note.size(), object.findString("data")->view());
    }
    EXPECT_TRUE(payload == text) << pictures << " pictures";
  }
}

}  // namespace
}  // namespace quillmere
