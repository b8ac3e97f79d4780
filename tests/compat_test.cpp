// The form that every AI client takes: names, schemas and results.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "compat/names.hpp"
#include "compat/pictures.hpp"
#include "compat/result.hpp"
#include "compat/table.hpp"
#include "compat/tables.hpp"
#include "compat/tool_list.hpp"
#include "control/control_frame.hpp"
#include "harness/desktop_app.hpp"
#include "mcp/help.hpp"
#include "results/tool_result.hpp"
#include "support/running_server.hpp"
#include "support/snapshot.hpp"
#include "support/table_reader.hpp"

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
    /// The JSON text after the summary, and what is in the items after the text.
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
       R"({"image":"picture: item 2 of this content","ok":true})", "image/png " + png + "\n"},
      {"two, with white space", R"([")" + webp + R"(" , {"b": ")" + png + R"("} ])",
       R"(["picture: item 2 of this content",{"b":"picture: item 3 of this content"}])",
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
    ASSERT_LE(1U, items.size());
    EXPECT_EQ(summaryLines(json(whole), compatSpelled) + "\n" + wholeText,
              items[0].findString("text")->view());
    std::string found;
    for (std::size_t i = 1; i < items.size(); ++i) {
      EXPECT_EQ("image", items[i].findString("type")->view());
      found.append(items[i].findString("mimeType")->view()).append(" ");
      found.append(items[i].findString("data")->view()).append("\n");
    }
    EXPECT_EQ(pictures, found);
  }
}

TEST(Tables, SayTheArrayInTheirGrammarOrAreNotMade) {
  struct TableCase {
    std::string_view name, array, table;
  };
  const TableCase cases[] = {
      {"values", R"([{"id":1.50,"on":true,"at":null},{"id":2,"on":false,"at":""}])",
       "@1: id\ton\tat\n1.50\ttrue\tnull\n2\tfalse\t\"\""},
      {"missing members", R"([{"a":1,"c":3},{"a":4,"b":"x","c":6},{"a":7,"b":"y"},{}])",
       "@1: a\tb\tc\n1\t\t3\n4\tx\t6\n7\ty\n"},
      {"nested objects",
       R"([{"b":{"x":1,"in":{"z":2},"y":3,"w":4},"c":{}},{"b":{"x":5},"c":{"k":[6]}}])",
       "@1: b.x\tb.in.z\tb.y\t.w\tc\tc.k\n1\t2\t3\t4\t{}\n5\t\t\t\t\t[6]"},
      {"texts that look like something else",
       R"([{"t":"1"},{"t":"null"},{"t":"-"},{"t":"a\tb"},{"t":"@1: t"},{"t":"{}"},{"t":" |é"},{"t":"1.5.0"},{"t":"-1e5"},{"t":"\"a"}])",
       "@1: t\n\"1\"\n\"null\"\n\"-\"\n\"a\\tb\"\n\"@1: t\"\n\"{}\"\n "
       "|é\n1.5.0\n\"-1e5\"\n\"\\\"a\""},
      {"the same in every row",
       R"([{"i":1,"p":"all have this very same and long text"},{"i":2,"p":"all have this very same and long text"},{"i":3,"p":"all have this very same and long text"}])",
       "@1: i\t(p=all have this very same and long text)\n1\n2\n3"},
      {"the same in every row and nothing else",
       R"([{"p":"all have this very same and long text","q":1},{"p":"all have this very same and long text","q":1}])",
       "@1: p\tq\nall have this very same and long text\t1\nall have this very same and long "
       "text\t1"},
      {"usual values",
       R"([{"i":1,"u":"what most of the rows have in common*"},{"i":2,"u":"-"},{"i":3},{"i":4,"u":"what most of the rows have in common*"},{"i":5,"u":"what most of the rows have in common*"}])",
       "@1: i\tu=\"what most of the rows have in common*\"\n1\n2\t\"-\"\n3\t-\n4\n5"},
      {"a prefix",
       R"([{"r":"com.example.messages:id/a"},{"r":"com.example.messages:id/1"},{"r":"com.example.messages:id/"},{"r":"com.example.messages:id/@"},{},{"r":"b"}])",
       "@1: "
       "r=com.example.messages:id/*\na\n1\n\"com.example.messages:id/\"\n\"com.example.messages:id/"
       "@\"\n\n\"b\""},
      {"a repeated key", R"([{"a":1,"a":2},{"a":1}])", ""},
      {"keys in another order", R"([{"a":1,"b":2},{"b":1,"a":2}])", ""},
      {"a dot in a key", R"([{"a.b":1},{"a.b":2}])", ""},
      {"an equals sign in a key", R"([{"a=b":1},{"a=b":2}])", ""},
      {"an escape in a key", R"([{"\n":1},{"\n":2}])", ""},
      {"no key", R"([{"":1},{"(":2}])", ""},
      {"no members", R"([{},{}])", ""},
      {"arrays in arrays", R"([{"a":[[]]},{"a":[[]]}])", ""},
      {"deep objects", R"([{"a":{"a":{"a":{"a":{"a":{}}}}}}])", ""},
      {"something else", R"([{"a":1},2])", ""},
      {"few members in common", R"([{"a":1},{"b":1},{"c":1}])", ""},
      {"longer", R"([{"a":1}])", ""},
  };
  for (const auto& [name, array, table] : cases) {
    SCOPED_TRACE(name);
    const auto document = parseJson(array);
    std::string text = "\"@1\"";
    const bool isTable =
        appendTable(text, "@1", document->root(), {}, array.size() - 8).has_value();
    EXPECT_EQ(table.empty() ? "\"@1\"" : "\"@1\"\n" + std::string(table), text);
    EXPECT_EQ(isTable ? array : "", isTable ? appResponseIn(text + "\n@") : "");
  }
}

TEST(Tables, LoseNothingOfTheAppResponse) {
  const std::string rows =
      times(49, R"({"kind":"button","x":1,"y":2},{"kind":"button","x":3,"y":2},)");
  const auto list = [&](const std::string& last) { return R"({"l":[)" + rows + last + "]}"; };
  const std::string iconRow = R"({"kind":"button","icon":")" + png + "\"}";
  const std::string note = "picture: item 2 of this content";
  struct ResponseCase {
    std::string_view name;
    std::string response, part;
    std::string_view summary = "s";
  };
  const ResponseCase cases[] = {
      {"a list", list(R"({"kind":"button","x":2,"y":2})"),
       "s\nTable @1 is below. (a=1): 1 in every row.\n"
       "{\"l\":\"@1\"}\n@1: (kind=button)\tx"},
      {"another value in one row", list(R"({"kind":"label","x":1,"y":2})"), "@1: kind=button\t"},
      {"another member in one row", list(R"({"kind":"button","in":1,"x":1})"), "\tin\tx"},
      {"another type in one row", list(R"({"kind":7,"x":1,"y":2})"), "@1: kind=button\t"},
      {"another order in one row", list(R"({"x":1,"kind":"button","y":2})"), "s\n{\"l\":["},
      {"two lists in lists", R"({"a":[[)" + rows + "{}]," + "[" + rows + "{}]]}",
       R"({"a":["@1","@2"]})"},
      {"a text that looks like a reference", R"({"t":["@1","\u0040@"],"l":[)" + rows + "{}]}",
       "Table @@@1 is below."},
      {"texts with more signs than a reference may have",
       R"({"t":"@@@@@@@@","l":[)" + rows + "{}]}", "\"l\":[{"},
      {"a last row that looks like an app response", R"({"l":[)" + rows + R"({"kind":[]}]})",
       "\n[]\t-\t-\n@"},
      {"a summary that looks like tables", R"({"t":1})", "", "Table @1 is below.\n{}\n@1: a\n1"},
      {"a summary that looks like another table", list("{}"), "", "{}\n@1: a\n1\n@2: a\n@"},
      {"a picture in a row", list(iconRow), note},
      {"a picture before and after",
       R"({"p":")" + png + "\"," + list("{}").substr(1, list("{}").size() - 2) + R"(,"q":")" + png +
           "\"}",
       note},
      {"a picture in an array in a row", list(R"({"kind":[")" + png + "\"]}"), "\"l\":[{"},
  };
  for (const auto& [name, response, part, summary] : cases) {
    SCOPED_TRACE(name);
    const auto document = parseJson(response);
    std::vector<JsonText::Replacement> notes;
    std::string expected = response;
    for (const Picture& picture : picturesIn(document->root())) {
      notes.push_back({picture.base64, note});
      expected.replace(expected.find(png), png.size(), note);
    }
    const JsonText result{{"text", textForModel(summary, document->root(), notes)}};
    const JsonObject read = json(result.str());
    const JsonString text = *read.findString("text");
    EXPECT_EQ(expected, appResponseIn(text.view()));
    EXPECT_NE(std::string::npos, text.view().find(part)) << text.view().substr(0, 300);
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
    EXPECT_EQ(1 + pictures, content.size());
    // Nothing is lost: with the pictures back in their places it is the payload.
    std::string text;
    std::size_t item = 0;
    for (const JsonValue& each : content) {
      const JsonObject object = *each.asObject();
      if (++item == 1) text = object.findString("text")->view();
      if (item == 1) continue;
      const std::string note = "picture: item " + std::to_string(item) + " of this content";
      const std::size_t at = text.find(note);
      ASSERT_NE(std::string::npos, at);
      text.replace(at, note.size(), object.findString("data")->view());
    }
    EXPECT_TRUE(text.ends_with("\n" + payload)) << pictures << " pictures";
  }
}

}  // namespace
}  // namespace quillmere
