// Any bytes for an answer give a payload or one of the failures that a call may have.
#include "control/control_call.hpp"
#include "fuzz_support.hpp"
#include "platform/json_value.hpp"
#include "results/guidance.hpp"
#include "results/tool_result.hpp"
#include "shared/mcp_error.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quillmere;
  AnsweringApp::instance().setAnswer(std::string(textOf(data, size)));
  try {
    JsonObject payload = callAppControl("listSessions", {}, nullptr);
    const JsonObject result =
        toolResult(addGuidance("quillmere.sessions.list", {}, std::move(payload)));
    demand(result.size() == 3);
  } catch (const MCPError& error) {
    demand(error.code == -32000);
  } catch (const JsonError&) {
    return 0;
  }
  return 0;
}
