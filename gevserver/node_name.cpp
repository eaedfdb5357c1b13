#include "gevserver/node_name.h"

#include <stdexcept>

#include "gevserver/library/tr_codes.h"

namespace Tarn::GevServer {

namespace {

constexpr std::string_view kSeparator = "::";

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

void RequireName(std::string_view name) {
  if (name.empty()) throw std::runtime_error("Node name must not be empty");
}

}  // namespace

std::string_view NameSpacePrefix(std::int32_t name_space) noexcept {
  switch (name_space) {
    case GS_NAMESPACE_STANDARD:
      return "Std::";
    case GS_NAMESPACE_CUSTOM:
      return "Cust::";
    case GS_NAMESPACE_PRIVATE:
      return "Priv::";
    default:
      return "";
  }
}

std::int32_t NameSpaceOf(std::string_view name) {
  RequireName(name);
  if (!Contains(name, kSeparator)) return GS_NAMESPACE_CUSTOM;
  if (Contains(name, "Std")) return GS_NAMESPACE_STANDARD;
  if (Contains(name, "Priv")) return GS_NAMESPACE_PRIVATE;
  return GS_NAMESPACE_CUSTOM;
}

std::string NameOnly(std::string_view name) {
  RequireName(name);
  const std::size_t separator = name.find(kSeparator);
  return std::string(separator == std::string_view::npos ? name : name.substr(separator + kSeparator.size()));
}

std::string NameForCreation(std::string_view name) {
  RequireName(name);
  if (Contains(name, kSeparator)) throw std::runtime_error("No namespace prefix allowed");
  return std::string(name);
}

CreationName ResolveCreationName(std::string_view name, std::optional<std::int32_t> name_space) {
  if (name_space) return {NameForCreation(name), *name_space};
  return {NameForCreation(NameOnly(name)), NameSpaceOf(name)};
}

}  // namespace Tarn::GevServer
