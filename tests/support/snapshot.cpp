#include "support/snapshot.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "json/document.hpp"

namespace quillmere {

void expectSnapshot(std::string_view name, const std::string& text) {
  const std::string path = QUILLMERE_SNAPSHOTS + std::string(name);
  if (std::getenv("QUILLMERE_WRITE_SNAPSHOTS") != nullptr) std::ofstream(path) << text;
  std::ifstream file(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), text) << "differs from " << name;
}

std::string toolLines(const JsonText& tools) {
  std::string lines;
  const auto document = parseJson(tools.str());
  const JsonArray list = document->root().asArray().value();
  for (const JsonValue tool : list) {
    const JsonObject schema = tool.asObject()->findObject("inputSchema").value();
    const JsonObject properties = schema.findObject("properties").value();
    std::string head(tool.text());
    lines += head.replace(head.find(properties.text()), properties.text().size(), "{}") + "\n";
    for (const JsonMember property : properties) {
      lines.append("  ").append(property.text()).append("\n");
    }
  }
  return lines;
}

}  // namespace quillmere
