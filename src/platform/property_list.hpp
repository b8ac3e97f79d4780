// Property lists, the format of a bundle's Info.plist.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillmere {

/// Largest property list that we read, in bytes. An Info.plist holds a few kilobytes.
inline constexpr std::size_t maxPropertyListBytes = 4'194'304;

/// The string under `key` in the dictionary that `data` holds, as XML or binary property list.
/// Nothing when `data` is not a property list, its top is not a dictionary, or the value is missing
/// or not a string of valid Unicode. Time and memory are linear in the size of `data`, whatever it
/// holds. Thread-safe. Throws `std::bad_alloc`.
[[nodiscard]] std::optional<std::string> propertyListString(std::string_view data,
                                                            std::string_view key);

// The binary form, read in place by our own code where no platform does it.

/// Whether `data` starts as a binary property list does. Pure.
[[nodiscard]] bool isBinaryPropertyList(std::string_view data);

/// The string under `key`, an ASCII text, in the dictionary at the top of the binary property list
/// `data`, not necessarily as UTF-8; nothing when there is no such string. Looks only at that
/// dictionary, so the time is linear in the size of `data`, whatever it holds. Pure.
[[nodiscard]] std::optional<std::string> binaryPropertyListString(std::string_view data,
                                                                  std::string_view key);

}  // namespace quillmere
