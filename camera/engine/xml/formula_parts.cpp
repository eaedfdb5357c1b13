#include "camera/engine/xml/formula_parts.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <set>
#include <string_view>
#include <utility>

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

/// The names in a formula that was written out; functions look like names, too.
std::set<std::string> NamesIn(const std::string& formula) {
  std::set<std::string> names;
  for (auto at = formula.begin(); at != formula.end();) {
    const auto fits = [](unsigned char c) { return std::isalnum(c) || c == '_'; };
    const auto end = std::find_if_not(at, formula.end(), fits);
    if (end != at) names.emplace(at, end);
    at = end == at ? std::next(at) : end;
  }
  return names;
}

/// The node behind each name that formulas can use.
using Variables = std::map<std::string, std::string>;

PublishedFormula::Knife MakeKnife(std::string node, std::string formula, const Variables& known) {
  PublishedFormula::Knife knife{std::move(node), std::move(formula), {}};
  for (const std::string& name : NamesIn(knife.formula)) {
    if (const auto found = known.find(name); found != known.end()) {
      knife.variables.push_back({name, found->second});
    }
  }
  return knife;
}

}  // namespace

PublishedFormula PublishFormula(const Node& knife) {
  PublishedFormula published;
  Variables known;
  std::vector<std::string> names;
  for (const NodePtr& variable : knife.children) {
    names.push_back(VariableName(knife, variable->name));
    known.emplace(names.back(), variable->name);
  }
  const auto named = [&](const std::string& operand) {
    if (IsName(operand)) return operand;
    std::string name = UnusedName(knife, published.parts.size() + 1);
    published.parts.push_back(MakeKnife(name, operand, known));
    known.emplace(name, name);
    return name;
  };
  const std::string formula =
      knife.formula.Parenthesised(names, [&](const std::string& a, const std::string& b) {
        const std::string dividend = named(a);
        return Floored(dividend, named(b));
      });
  published.whole = MakeKnife(knife.name, formula, known);
  return published;
}

}  // namespace Tarn
