#include "camera/engine/nodes/node_values.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/nodes/node_limits.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/nodes/number_text.h"
#include "camera/engine/nodes/register_value.h"

namespace Tarn {
namespace {

[[noreturn]] void ThrowNoSuchValue(const Node& node, const char* type) {
  throw EngineError(Failure::kNotSupported, node.name + " has no " + type + " value");
}

std::int64_t Rounded(const Node& node, double value) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63
  const double rounded = std::round(value);
  if (!(rounded >= -kLimit && rounded < kLimit)) {
    throw EngineError(Failure::kNoValue, "the value of " + node.name + " does not fit an integer");
  }
  return static_cast<std::int64_t>(rounded);
}

double FloatConstant(const Setting& value) {
  if (const auto* number = std::get_if<double>(&value)) return *number;
  if (const auto* number = std::get_if<std::int64_t>(&value)) return static_cast<double>(*number);
  return 0.0;
}

std::int64_t IntegerConstant(const Setting& value) {
  const auto* number = std::get_if<std::int64_t>(&value);
  return number ? *number : 0;
}

std::int64_t EvaluateFormula(const Node& node, Evaluation& at) {
  if (node.formula.Empty()) throw EngineError(Failure::kNoValue, node.name + " has no formula");
  return at.Number(node, [&] {
    return node.formula.Evaluate(
        [&](std::size_t index) { return ReadInteger(*node.children.at(index), at); });
  });
}

/// The number that the node holds or that its source supplies.
std::int64_t SourceNumber(const Node& node, Evaluation& at) {
  if (const NodePtr source = NodeOf(node.value)) return ReadInteger(*source, at);
  const auto assumed = at.Assumed(node);
  return assumed ? *assumed : IntegerConstant(node.value);
}

/// The number that executes a command.
std::int64_t ExecuteNumber(const Node& command, Evaluation& at) {
  const NodePtr node = NodeOf(command.on_value);
  return node ? ReadInteger(*node, at) : IntegerConstant(command.on_value);
}

/// Replaces a value that is a constant.
void SetConstant(Node& node, Setting value) {
  node.value = std::move(value);
  if (node.tree) node.tree->NoteConstant();
}

/// Puts a number where the node's value comes from; limits were checked.
void WriteSource(Node& node, std::int64_t value) {
  if (const NodePtr source = NodeOf(node.value)) return WriteInteger(*source, value);
  SetConstant(node, value);
}

void ExecuteCommand(Node& command) {
  Evaluation now;
  const std::int64_t execute = ExecuteNumber(command, now);
  NoteExecution(command, execute, now);
  WriteSource(command, execute);
}

/// A chain that cannot be followed to its end is not begun with.
void CheckChain(const Node& node) {
  unsigned length = 0;
  for (NodePtr next = NodeOf(node.value); next; next = NodeOf(next->value)) {
    CheckSameGuard(node, *next);
    if (++length == kMaxNodeDepth) {
      throw EngineError(Failure::kNoValue, node.name + " stands on more than " +
                                               std::to_string(kMaxNodeDepth) + " nodes in a row");
    }
  }
}

void CheckLimits(const Node& node, std::int64_t value) {
  Evaluation now;
  CheckInteger(node, value, now);
}

void CheckLimits(const Node& node, double value) {
  Evaluation now;
  CheckFloat(node, value, now);
}

/// What an integer node holds, computes or is supplied with.
std::int64_t IntegerOf(const Node& node, Evaluation& at) {
  if (node.is_register()) return LoadInteger(node, at);
  return node.traits.source == ValueSource::Formula ? EvaluateFormula(node, at) : SourceNumber(node, at);
}

double FloatOf(const Node& node, Evaluation& at) {
  if (node.is_register()) return LoadFloat(node, at);
  const NodePtr source = NodeOf(node.value);
  return source ? ReadFloat(*source, at) : FloatConstant(node.value);
}

std::string TextOf(const Node& node, Evaluation& at) {
  if (node.is_register()) return LoadString(node, at);
  if (const NodePtr source = NodeOf(node.value)) return ReadText(*source, at);
  const auto* text = std::get_if<std::string>(&node.value);
  return text ? *text : std::string();
}

std::string BooleanText(bool value) { return value ? "true" : "false"; }

std::string EnumerationText(const Node& node, Evaluation& at) {
  const std::int64_t number = ReadInteger(node, at);
  const NodePtr entry = EntryOf(node, number);
  if (!entry) {
    throw EngineError(Failure::kNoValue,
                      node.name + " holds " + std::to_string(number) + ", which no entry has");
  }
  return SymbolicOf(*entry);
}

bool ParseBoolean(const std::string& text, const std::string& what) {
  if (text == "true" || text == "1") return true;
  if (text == "false" || text == "0") return false;
  throw EngineError(Failure::kText, what + ": '" + text + "' is neither true nor false");
}

void SetInteger(Node& node, std::int64_t value) {
  if (node.is_register()) return StoreInteger(node, value);
  if (node.traits.source == ValueSource::Formula) ThrowNoSuchValue(node, "settable integer");
  CheckLimits(node, value);
  WriteSource(node, value);
}

void SetEnumeration(Node& node, std::int64_t value) {
  if (!EntryOf(node, value)) {
    throw EngineError(Failure::kOutOfRange,
                      node.name + " has no entry with the number " + std::to_string(value));
  }
  WriteSource(node, value);
}

void ChooseEntry(Node& node, const std::string& name) {
  const NodePtr entry = EntryOf(node, name);
  if (!entry) throw EngineError(Failure::kNotFound, node.name + " has no entry '" + name + "'");
  WriteSource(node, ReadInteger(*entry));
}

void SetText(Node& node, const std::string& text) {
  if (node.is_register()) return StoreString(node, text);
  if (const NodePtr source = NodeOf(node.value)) return WriteText(*source, text);
  SetConstant(node, text);
}

}  // namespace

void MoveInside(Node& node) try {
  Evaluation at;
  const auto [min, max, increment] = IntegerLimitsOf(node, at);
  const std::int64_t value = ReadInteger(node, at);
  if (min > max || increment < 1) return;
  // In steps from the minimum, without a sign: the way may be as long as all numbers.
  const auto way = static_cast<std::uint64_t>(std::clamp(value, min, max)) - static_cast<std::uint64_t>(min);
  const std::uint64_t nearest =
      static_cast<std::uint64_t>(min) + way - way % static_cast<std::uint64_t>(increment);
  if (std::bit_cast<std::int64_t>(nearest) != value) WriteInteger(node, std::bit_cast<std::int64_t>(nearest));
} catch (const EngineError&) {
}

NodePtr EntryOf(const Node& enumeration, std::int64_t number) {
  const auto found = std::find_if(enumeration.children.begin(), enumeration.children.end(),
                                  [number](const NodePtr& entry) { return ReadInteger(*entry) == number; });
  return found == enumeration.children.end() ? nullptr : *found;
}

NodePtr EntryOf(const Node& enumeration, const std::string& name) {
  const auto found = std::find_if(enumeration.children.begin(), enumeration.children.end(),
                                  [&name](const NodePtr& entry) { return SymbolicOf(*entry) == name; });
  return found == enumeration.children.end() ? nullptr : *found;
}

std::int64_t ReadInteger(const Node& node, Evaluation& at) {
  const Evaluation::Level level(at, node);
  switch (node.traits.value) {
    case ValueType::Integer:
      return IntegerOf(node, at);
    case ValueType::Float:
      return Rounded(node, ReadFloat(node, at));
    case ValueType::Boolean:
      return ReadBoolean(node, at);
    case ValueType::Command:
    case ValueType::Enumeration:
    case ValueType::Entry:
      return SourceNumber(node, at);
    case ValueType::None:
    case ValueType::Text:
      break;
  }
  ThrowNoSuchValue(node, "integer");
}

double ReadFloat(const Node& node, Evaluation& at) {
  const Evaluation::Level level(at, node);
  switch (node.traits.value) {
    case ValueType::Float:
      return FloatOf(node, at);
    case ValueType::None:
    case ValueType::Text:
      ThrowNoSuchValue(node, "float");
    default:
      return static_cast<double>(ReadInteger(node, at));
  }
}

bool ReadBoolean(const Node& node, Evaluation& at) {
  const Evaluation::Level level(at, node);
  switch (node.traits.value) {
    case ValueType::Boolean:
      return SourceNumber(node, at) == IntegerConstant(node.on_value);
    case ValueType::Command:
      return !NodeOf(node.value) || SourceNumber(node, at) != ExecuteNumber(node, at);
    default:
      return ReadInteger(node, at) != 0;
  }
}

std::string ReadText(const Node& node, Evaluation& at) {
  const Evaluation::Level level(at, node);
  switch (node.traits.value) {
    case ValueType::Text:
      return TextOf(node, at);
    case ValueType::Integer:
      return std::to_string(ReadInteger(node, at));
    case ValueType::Float:
      return FloatText(ReadFloat(node, at));
    case ValueType::Boolean:
    case ValueType::Command:
      return BooleanText(ReadBoolean(node, at));
    case ValueType::Enumeration:
      return EnumerationText(node, at);
    case ValueType::Entry:
      return SymbolicOf(node);
    case ValueType::None:
      break;
  }
  ThrowNoSuchValue(node, "text");
}

std::int64_t ReadInteger(const Node& node) {
  Evaluation now;
  return ReadInteger(node, now);
}

double ReadFloat(const Node& node) {
  Evaluation now;
  return ReadFloat(node, now);
}

bool ReadBoolean(const Node& node) {
  Evaluation now;
  return ReadBoolean(node, now);
}

std::string ReadText(const Node& node) {
  Evaluation now;
  return ReadText(node, now);
}

void WriteInteger(Node& node, std::int64_t value) {
  CheckChain(node);
  switch (node.traits.value) {
    case ValueType::Integer:
      return SetInteger(node, value);
    case ValueType::Float:
      return WriteFloat(node, static_cast<double>(value));
    case ValueType::Boolean:
      return WriteBoolean(node, value != 0);
    case ValueType::Command:
    case ValueType::Entry:
      return WriteSource(node, value);
    case ValueType::Enumeration:
      return SetEnumeration(node, value);
    case ValueType::None:
    case ValueType::Text:
      break;
  }
  ThrowNoSuchValue(node, "settable integer");
}

void WriteFloat(Node& node, double value) {
  CheckChain(node);
  if (node.traits.value != ValueType::Float) return WriteInteger(node, Rounded(node, value));
  if (node.is_register()) return StoreFloat(node, value);
  CheckLimits(node, value);
  if (const NodePtr source = NodeOf(node.value)) return WriteFloat(*source, value);
  SetConstant(node, value);
}

void WriteBoolean(Node& node, bool value) {
  CheckChain(node);
  switch (node.traits.value) {
    case ValueType::Boolean:
      return WriteSource(node, IntegerConstant(value ? node.on_value : node.off_value));
    case ValueType::Command:
      return value ? ExecuteCommand(node) : FinishCommand(node);
    default:
      return WriteInteger(node, value);
  }
}

void WriteText(Node& node, const std::string& text) {
  CheckChain(node);
  switch (node.traits.value) {
    case ValueType::Text:
      return SetText(node, text);
    case ValueType::Float:
      return WriteFloat(node, ParseFloat(text, node.name));
    case ValueType::Boolean:
    case ValueType::Command:
      return WriteBoolean(node, ParseBoolean(text, node.name));
    case ValueType::Enumeration:
      return ChooseEntry(node, text);
    default:
      return WriteInteger(node, ParseInteger(text, node.name));
  }
}

void NoteExecution(Node& command, std::int64_t number, Evaluation& at) {
  if (number != ExecuteNumber(command, at)) return;
  const std::int64_t before = SourceNumber(command, at);
  if (before != number) command.before_command = before;
}

void FinishCommand(Node& command, Evaluation& at) {
  const std::int64_t execute = ExecuteNumber(command, at);
  const NodePtr source = NodeOf(command.value);
  if (!source || ReadInteger(*source, at) != execute) return;
  const std::int64_t other = execute == 0 ? 1 : 0;
  const std::int64_t before = std::exchange(command.before_command, std::nullopt).value_or(other);
  const NodePtr reg = RegisterBehind(source);
  if (reg && reg->traits.value == ValueType::Integer) return StoreInteger(*reg, before, at);
  WriteInteger(*source, before);
}

void FinishCommand(Node& command) {
  Evaluation now;
  FinishCommand(command, now);
}

}  // namespace Tarn
