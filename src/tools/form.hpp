// The form in which a program shows itself to its client. All else is the same in every form.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "tools/catalogue.hpp"

namespace quillmere {

/// What a form does differently. A program has one, chosen in its `main`.
struct Form {
  /// What parts of a tool's name are joined with. Some model interfaces refuse a dot.
  char nameSeparator = '.';
  /// Whether a schema states by `anyOf` that a session or a device is needed. In a form without it
  /// the description says so: some model interfaces refuse a condition at a schema's top.
  bool hasSchemaConditions = true;
  /// Whether a listed tool says what it does to the phone.
  bool hasAnnotations = false;
  /// Whether a result is in `structuredContent`. Otherwise it is in `content`: as text, and its
  /// pictures as pictures. Many clients give their model only the one or only the other.
  bool hasStructuredContent = true;
  /// Whether `resources/templates/list` is a method. Some clients drop all resources without it.
  bool hasResourceTemplates = false;

  /// `text`, a text of ours, with the names of tools in it as the client sees them, `ui.get_state`
  /// for `quillmere.ui.get_state` included. Pure.
  [[nodiscard]] std::string spelled(std::string_view text) const;

  /// The tool that a client calls by `name`: as it is listed, or as the catalogue names it; or
  /// null.
  [[nodiscard]] const Tool* findTool(std::string_view name) const;
};

/// Of `quillmere-mcp-server`: the catalogue's names, and results as data.
inline constexpr Form serverForm{};

/// Of `quillmere-mcp-compat`: what every AI client takes, and gives to its model whole.
inline constexpr Form compatForm{.nameSeparator = '_',
                                 .hasSchemaConditions = false,
                                 .hasAnnotations = true,
                                 .hasStructuredContent = false,
                                 .hasResourceTemplates = true};

/// What `write` makes for a form, written at the first call for it: texts that never change are
/// sent as they are from then on. Thread-safe; valid as long as the process.
template <auto write>
[[nodiscard]] const auto& writtenOnce(const Form& form) {
  using Written = decltype(write(form));
  static std::mutex lock;
  static auto& _written = *new std::map<const Form*, Written>;
  const std::lock_guard hold(lock);
  const auto place = _written.find(&form);
  return place != _written.end() ? place->second
                                 : _written.emplace(&form, write(form)).first->second;
}

/// The entries of `tools/list`, an array: each tool that is not hidden, with its JSON Schema.
[[nodiscard]] JsonText visibleTools(const Form& form);

}  // namespace quillmere
