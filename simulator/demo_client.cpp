#include "simulator/demo_client.hpp"

#include <unistd.h>

#include <chrono>
#include <utility>

#include "platform/json_writer.hpp"
#include "platform/standard_streams.hpp"

namespace quillmere {

namespace {

/// The demo ends by itself, also when a program in it hangs.
constexpr std::chrono::seconds patience{20};

constexpr std::string_view bold = "\033[1m";
constexpr std::string_view blue = "\033[34m";
constexpr std::string_view green = "\033[32m";
constexpr std::string_view yellow = "\033[33m";
constexpr std::string_view plain = "\033[0m";

void print(std::string_view text) {
  expect(writeAll(STDOUT_FILENO, {text, "\n"}), "standard output was closed");
}

/// The summary in a tool result, without the line that closes every one.
std::string summaryOf(const JsonObject& result) {
  const JsonArray* content = result.findArray("content");
  const JsonObject* item =
      content != nullptr && !content->empty() ? content->front().asObject() : nullptr;
  const std::string* text = item != nullptr ? item->findString("text") : nullptr;
  expect(text != nullptr, "the tool result has no text");
  return text->substr(0, text->rfind("\nFull result is available in structuredContent."));
}

}  // namespace

DemoClient::DemoClient(const std::string& serverProgram, const std::string& home, bool coloured)
    : server({.program = serverProgram, .home = home}), isColoured(coloured) {}

void DemoClient::step(std::string_view sentence) {
  std::string line = std::to_string(++steps) + ". " + std::string(sentence);
  if (isColoured) line = std::string(bold) + line + std::string(plain);
  print("\n" + line);
}

void DemoClient::tell(std::string_view label, std::string_view text) const {
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

JsonObject DemoClient::request(std::string_view method, JsonObject params) {
  return receiveResponse(send(method, std::move(params)));
}

void DemoClient::notify(std::string_view method, JsonObject params) {
  JsonObject message{{"jsonrpc", "2.0"}, {"method", method}};
  message.set("params", std::move(params));
  expect(server.send(message), "the server does not read any more");
}

JsonObject DemoClient::call(std::string_view tool, JsonObject arguments, bool isErrorWanted) {
  const JsonObject response = receiveResponse(beginCall(tool, std::move(arguments)));
  const JsonObject* result = response.findObject("result");
  expect(result != nullptr, "the call was answered with a JSON-RPC error");
  const bool isError = result->findBoolean("isError") == true;
  tell(isError ? "refused" : "gets", summaryOf(*result));
  expect(isError == isErrorWanted,
         isErrorWanted ? "the desktop app should have refused this" : "this should have succeeded");
  const JsonObject* content = result->findObject("structuredContent");
  expect(content != nullptr, "the tool result has no structured content");
  return *content;
}

void DemoClient::callBadly(std::string_view tool, JsonObject arguments) {
  const JsonObject response = receiveResponse(beginCall(tool, std::move(arguments)));
  const JsonObject* error = response.findObject("error");
  expect(error != nullptr, "the server should have refused these arguments");
  const JsonNumber* code = error->findNumber("code");
  const std::string* message = error->findString("message");
  expect(code != nullptr && code->integer() == -32602 && message != nullptr,
         "a bad argument should be error -32602");
  tell("refused", "error -32602: " + *message);
}

std::int64_t DemoClient::beginCall(std::string_view tool, JsonObject arguments) {
  tell("asks", std::string(tool) + " " + compactJson(arguments));
  JsonObject params{{"name", tool}};
  params.set("arguments", std::move(arguments));
  return send("tools/call", std::move(params));
}

bool DemoClient::finish() {
  server.closeInput();
  return !server.receive(patience) && server.waitForExit(patience) == 0;
}

std::int64_t DemoClient::send(std::string_view method, JsonObject params) {
  JsonObject message{{"jsonrpc", "2.0"}, {"id", ++lastID}, {"method", method}};
  message.set("params", std::move(params));
  expect(server.send(message), "the server does not read any more");
  return lastID;
}

JsonObject DemoClient::receiveResponse(std::int64_t id) {
  auto response = server.receive(patience);
  expect(response.has_value(), "the server gave no answer");
  const JsonNumber* answeredID = response->findNumber("id");
  expect(answeredID != nullptr && answeredID->integer() == id, "the answer is to another request");
  return std::move(*response);
}

void expect(bool isTrue, std::string_view what) {
  if (!isTrue) throw DemoFailure(std::string(what));
}

}  // namespace quillmere
