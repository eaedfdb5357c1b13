#include "camera/engine/xml/formula_parts.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

#include "camera/engine/nodes/feature_tree.h"

namespace Tarn {
namespace {

/// Words that clients do not take for variables, whatever their case.
/// Source: GenApi standard, functions and constants of formulas; FROM and TO of converters.
constexpr std::array<std::string_view, 21> kReserved{"E",   "PI",  "TO",   "FROM",  "SGN",   "NEG",  "ABS",
                                                     "SIN", "COS", "TAN",  "ASIN",  "ACOS",  "ATAN", "EXP",
                                                     "LN",  "LG",  "SQRT", "TRUNC", "FLOOR", "CEIL", "ROUND"};

std::string VariableName(const Node& knife, std::string name) {
  std::string upper = name;
  std::ranges::transform(upper, upper.begin(),
                         [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  if (std::ranges::find(kReserved, upper) == kReserved.end()) return name;
  do name += "_VAR";
  while (std::ranges::any_of(knife.children, [&](const NodePtr& other) { return other->name == name; }));
  return name;
}

bool IsName(const std::string& text) {
  return std::ranges::all_of(text, [](unsigned char c) { return std::isalnum(c) || c == '_'; });
}

std::string UnusedName(const Node& knife, std::size_t number) {
  std::string name = knife.name + "_Part" + std::to_string(number);
  while (knife.tree->Find(name)) name += '_';
  return name;
}

/// The truncated quotient, one less where there is a rest and the signs differ.
std::string Floored(const std::string& a, const std::string& b) {
  const std::string rest = "(((" + a + ")%(" + b + "))<>(0))";
  const std::string signs_differ = "(((" + a + ")<(0))<>((" + b + ")<(0)))";
  return "(((" + a + ")/(" + b + "))-((" + rest + ")&&(" + signs_differ + ")))";
}

}  // namespace

PublishedFormula PublishFormula(const Node& knife) {
  PublishedFormula published;
  for (const NodePtr& variable : knife.children)
    published.variables.push_back(VariableName(knife, variable->name));
  const auto named = [&](const std::string& operand) {
    if (IsName(operand)) return operand;
    std::string name = UnusedName(knife, published.parts.size() + 1);
    published.parts.push_back({name, operand});
    return name;
  };
  published.formula =
      knife.formula.Parenthesised(published.variables, [&](const std::string& a, const std::string& b) {
        const std::string dividend = named(a);
        return Floored(dividend, named(b));
      });
  return published;
}

}  // namespace Tarn
