#include "demo/client.hpp"

#include <unistd.h>

#include "platform/standard_streams.hpp"

namespace quillmere::demo {

namespace {

constexpr std::string_view bold = "\033[1m";
constexpr std::string_view blue = "\033[34m";
constexpr std::string_view green = "\033[32m";
constexpr std::string_view yellow = "\033[33m";
constexpr std::string_view plain = "\033[0m";

void print(std::string_view text) {
  expect(writeAll(STDOUT_FILENO, {text, "\n"}), "standard output was closed");
}

/// The summary in a tool result, without the last line, which is the same in each.
std::string summaryOf(const JsonObject& result) {
  const auto content = result.findArray("content");
  const auto item = content && content->size() > 0 ? (*content->begin()).asObject() : std::nullopt;
  const auto text = item ? item->findString("text") : std::nullopt;
  expect(text.has_value(), "the tool result has no text");
  const std::string_view lines = text->view();
  return std::string(
      lines.substr(0, lines.rfind("\nFull result is available in structuredContent.")));
}

}  // namespace

DemoClient::DemoClient(const std::string& serverProgram, bool coloured)
    : server({.program = serverProgram}), isColoured(coloured) {}

void DemoClient::step(std::string_view sentence) {
  std::string line = std::to_string(++steps) + ". " + std::string(sentence);
  if (isColoured) line = std::string(bold) + line + std::string(plain);
  print("\n" + line);
}

void DemoClient::say(std::string_view label, std::string_view text) const {
  constexpr std::size_t labelWidth = 8;
  std::string padded(label);
  padded.resize(labelWidth, ' ');
  if (isColoured) {
    const std::string_view colour = label == "asks" ? blue : label == "refused" ? yellow : green;
    padded = std::string(colour) + padded + std::string(plain);
  }
  std::string lines = "   " + padded;
  for (const char each : text) {
    lines += each;
    if (each == '\n') lines += std::string(3 + labelWidth, ' ');
  }
  print(lines);
}

Answer DemoClient::request(std::string_view method, const JsonText& params) {
  return receiveResponse(send(method, params));
}

void DemoClient::notify(std::string_view method, const JsonText& params) {
  const JsonText message{{"jsonrpc", "2.0"}, {"method", method}, {"params", params}};
  expect(server.sendMessage(message), "the server no longer reads");
}

Answer DemoClient::call(std::string_view tool, const JsonText& arguments, bool isErrorWanted) {
  const auto [document, response] = receiveResponse(beginCall(tool, arguments));
  const auto result = response.findObject("result");
  expect(result.has_value(), "the call got a JSON-RPC error");
  const bool isError = result->findBoolean("isError") == true;
  say(isError ? "refused" : "gets", summaryOf(*result));
  expect(isError == isErrorWanted,
         isErrorWanted ? "the desktop app should have refused this" : "this should have succeeded");
  const auto content = result->findObject("structuredContent");
  expect(content.has_value(), "the tool result has no structured content");
  return {document, *content};
}

void DemoClient::callBadly(std::string_view tool, const JsonText& arguments) {
  const auto [document, response] = receiveResponse(beginCall(tool, arguments));
  const auto error = response.findObject("error");
  expect(error.has_value(), "the server should have refused these arguments");
  const auto code = error->findNumber("code");
  const auto message = error->findString("message");
  expect(code && code->integer() == -32602 && message, "a bad argument should be error -32602");
  say("refused", "error -32602: " + std::string(message->view()));
}

std::int64_t DemoClient::beginCall(std::string_view tool, const JsonText& arguments) {
  say("asks", std::string(tool) + " " + arguments.str());
  return send("tools/call", {{"name", tool}, {"arguments", arguments}});
}

bool DemoClient::finish() {
  server.closeInput();
  return !server.receive() && server.waitForExit() == 0;
}

std::int64_t DemoClient::send(std::string_view method, const JsonText& params) {
  const JsonText message{
      {"jsonrpc", "2.0"}, {"id", ++lastID}, {"method", method}, {"params", params}};
  expect(server.sendMessage(message), "the server no longer reads");
  return lastID;
}

Answer DemoClient::receiveResponse(std::int64_t id) {
  const auto response = server.receive();
  expect(response != nullptr, "the server sent no response");
  const auto answeredID = response->object().findNumber("id");
  expect(answeredID && answeredID->integer() == id, "the response is to another request");
  return {response, response->object()};
}

void expect(bool isTrue, std::string_view what) {
  if (!isTrue) throw DemoFailure(std::string(what));
}

}  // namespace quillmere::demo
