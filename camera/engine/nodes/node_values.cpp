#include "camera/engine/nodes/node_values.h"

#include <algorithm>
#include <cmath>

#include "camera/base/engine_error.h"
#include "camera/engine/nodes/node_limits.h"
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

std::int64_t EvaluateFormula(const Node& node) {
  if (node.formula.Empty()) throw EngineError(Failure::kNoValue, node.name + " has no formula");
  return node.formula.Evaluate([&node](std::size_t index) { return ReadInteger(*node.children.at(index)); });
}

/// The number that executes a command.
std::int64_t ExecuteNumber(const Node& command) {
  const NodePtr node = NodeOf(command.on_value);
  return node ? ReadInteger(*node) : IntegerConstant(command.on_value);
}

/// Puts a number where the node's value comes from; limits were checked.
void WriteSource(Node& node, std::int64_t value) {
  if (const NodePtr source = NodeOf(node.value)) return WriteInteger(*source, value);
  node.value = value;
}

void WriteEnumeration(Node& node, std::int64_t value) {
  if (!EntryOf(node, value)) {
    throw EngineError(Failure::kOutOfRange,
                      node.name + " has no entry with the number " + std::to_string(value));
  }
  WriteSource(node, value);
}

std::string BooleanText(bool value) { return value ? "true" : "false"; }

std::string EnumerationText(const Node& node) {
  const std::int64_t number = ReadInteger(node);
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

}  // namespace

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

std::int64_t ReadInteger(const Node& node) {
  switch (node.kind) {
    case NodeKind::IntReg:
      return LoadInteger(node);
    case NodeKind::Float:
    case NodeKind::FloatReg:
      return Rounded(node, ReadFloat(node));
    case NodeKind::IntSwissKnife:
      return EvaluateFormula(node);
    case NodeKind::Boolean:
      return ReadBoolean(node);
    case NodeKind::Integer:
    case NodeKind::Command:
    case NodeKind::Enumeration:
    case NodeKind::EnumEntry: {
      const NodePtr source = NodeOf(node.value);
      return source ? ReadInteger(*source) : IntegerConstant(node.value);
    }
    default:
      ThrowNoSuchValue(node, "integer");
  }
}

double ReadFloat(const Node& node) {
  switch (node.kind) {
    case NodeKind::FloatReg:
      return LoadFloat(node);
    case NodeKind::Float: {
      const NodePtr source = NodeOf(node.value);
      return source ? ReadFloat(*source) : FloatConstant(node.value);
    }
    case NodeKind::String:
    case NodeKind::StringReg:
    case NodeKind::Category:
      ThrowNoSuchValue(node, "float");
    default:
      return static_cast<double>(ReadInteger(node));
  }
}

bool ReadBoolean(const Node& node) {
  if (node.kind == NodeKind::Boolean) {
    const NodePtr source = NodeOf(node.value);
    return (source ? ReadInteger(*source) : IntegerConstant(node.value)) == IntegerConstant(node.on_value);
  }
  if (node.kind == NodeKind::Command) {
    const NodePtr source = NodeOf(node.value);
    return !source || ReadInteger(*source) != ExecuteNumber(node);
  }
  return ReadInteger(node) != 0;
}

std::string ReadText(const Node& node) {
  switch (node.kind) {
    case NodeKind::StringReg:
      return LoadString(node);
    case NodeKind::String: {
      const NodePtr source = NodeOf(node.value);
      if (source) return ReadText(*source);
      const auto* text = std::get_if<std::string>(&node.value);
      return text ? *text : std::string();
    }
    case NodeKind::Float:
    case NodeKind::FloatReg:
      return FloatText(ReadFloat(node));
    case NodeKind::Boolean:
    case NodeKind::Command:
      return BooleanText(ReadBoolean(node));
    case NodeKind::Enumeration:
      return EnumerationText(node);
    case NodeKind::EnumEntry:
      return SymbolicOf(node);
    case NodeKind::Category:
      ThrowNoSuchValue(node, "text");
    default:
      return std::to_string(ReadInteger(node));
  }
}

void WriteInteger(Node& node, std::int64_t value) {
  switch (node.kind) {
    case NodeKind::IntReg:
      return StoreInteger(node, value);
    case NodeKind::Float:
    case NodeKind::FloatReg:
      return WriteFloat(node, static_cast<double>(value));
    case NodeKind::Integer:
      CheckInteger(node, value);
      return WriteSource(node, value);
    case NodeKind::Command:
    case NodeKind::EnumEntry:
      return WriteSource(node, value);
    case NodeKind::Enumeration:
      return WriteEnumeration(node, value);
    case NodeKind::Boolean:
      return WriteBoolean(node, value != 0);
    default:
      ThrowNoSuchValue(node, "settable integer");
  }
}

void WriteFloat(Node& node, double value) {
  if (node.kind == NodeKind::FloatReg) return StoreFloat(node, value);
  if (node.kind != NodeKind::Float) return WriteInteger(node, Rounded(node, value));
  CheckFloat(node, value);
  if (const NodePtr source = NodeOf(node.value)) return WriteFloat(*source, value);
  node.value = value;
}

void WriteBoolean(Node& node, bool value) {
  if (node.kind == NodeKind::Boolean) {
    return WriteSource(node, IntegerConstant(value ? node.on_value : node.off_value));
  }
  if (node.kind != NodeKind::Command) return WriteInteger(node, value);
  if (!value) return FinishCommand(node);
  WriteSource(node, ExecuteNumber(node));
}

void WriteText(Node& node, const std::string& text) {
  switch (node.kind) {
    case NodeKind::StringReg:
      return StoreString(node, text);
    case NodeKind::String:
      if (const NodePtr source = NodeOf(node.value)) return WriteText(*source, text);
      node.value = text;
      return;
    case NodeKind::Float:
    case NodeKind::FloatReg:
      return WriteFloat(node, ParseFloat(text, node.name));
    case NodeKind::Boolean:
    case NodeKind::Command:
      return WriteBoolean(node, ParseBoolean(text, node.name));
    case NodeKind::Enumeration:
      if (const NodePtr entry = EntryOf(node, text)) return WriteSource(node, ReadInteger(*entry));
      throw EngineError(Failure::kNotFound, node.name + " has no entry '" + text + "'");
    default:
      return WriteInteger(node, ParseInteger(text, node.name));
  }
}

void FinishCommand(Node& command) {
  const std::int64_t execute = ExecuteNumber(command);
  const NodePtr source = NodeOf(command.value);
  if (source && ReadInteger(*source) == execute) WriteInteger(*source, execute == 0 ? 1 : 0);
}

}  // namespace Tarn
