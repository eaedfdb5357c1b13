#pragma once

/// Names of nodes: "Cust::Gain" in full, "Gain" only.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tarn::GevServer {

/// What the library wants to know about a name when a node is created.
struct CreationName {
  std::string name;         ///< without prefix
  std::int32_t name_space;  ///< GSNameSpace
};

/// "Std::", "Cust::" or "Priv::"; empty for any other number.
std::string_view NameSpacePrefix(std::int32_t name_space) noexcept;

/// GSNameSpace that a name belongs to. A name without "::" is custom; else "Std" and then "Priv" are looked
/// for anywhere in it, so "Cust::MyStdGain" is standard. Callers rely on that.
/// Throws: std::runtime_error for an empty name.
std::int32_t NameSpaceOf(std::string_view name);

/// The text behind the first "::", or the whole name.
/// Throws: std::runtime_error for an empty name.
std::string NameOnly(std::string_view name);

/// `name` as it is.
/// Throws: std::runtime_error when it is empty or holds "::".
std::string NameForCreation(std::string_view name);

/// Name and namespace of a new node: the namespace of the prefix, or `name_space` for a name without one.
/// Throws: std::runtime_error for an empty name, a prefix beside `name_space`, or more than one "::".
CreationName ResolveCreationName(std::string_view name, std::optional<std::int32_t> name_space);

}  // namespace Tarn::GevServer
