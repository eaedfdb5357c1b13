#include "camera/engine/xml/node_element.h"

#include <algorithm>
#include <cstdio>

#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/nodes/node_access.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/nodes/node_values.h"
#include "camera/engine/nodes/number_text.h"
#include "camera/engine/xml/formula_parts.h"
#include "camera/engine/xml/ports.h"

namespace Tarn {
namespace {

// The words are the schema's.
const char* Word(AccessMode mode) {
  return mode == AccessMode::ReadOnly ? "RO" : mode == AccessMode::WriteOnly ? "WO" : "RW";
}
const char* Word(CacheMode mode) {
  constexpr const char* kWords[] = {"NoCache", "WriteThrough", "WriteAround"};
  return kWords[static_cast<int>(mode)];
}
const char* Word(Visibility visibility) {
  constexpr const char* kWords[] = {"Beginner", "Expert", "Guru", "Invisible"};
  return kWords[static_cast<int>(visibility)];
}
const char* Word(Representation representation) {
  constexpr const char* kWords[] = {"Linear",    "Logarithmic", "Boolean",   "PureNumber",
                                    "HexNumber", "IPV4Address", "MACAddress"};
  return kWords[static_cast<int>(representation)];
}

std::string HexText(std::uint64_t number, int digits) {
  char text[20];
  std::snprintf(text, sizeof text, "%0*llX", digits, static_cast<unsigned long long>(number));
  return text;
}

void WriteText(XmlWriter& out, const char* name, const std::string& text) {
  if (XmlWriter::HasContent(text)) out.Element(name, text);  // parsers refuse empty texts
}

void WriteReference(XmlWriter& out, const char* name, const NodePtr& node) {
  if (node) out.Element(name, node->name);
}

/// <constant>5</constant> or <node>Name</node>; nothing when the setting is not set.
void WriteSetting(XmlWriter& out, const Setting& setting, const char* constant, const char* node) {
  if (const NodePtr related = NodeOf(setting)) return out.Element(node, related->name);
  if (const auto* number = std::get_if<std::int64_t>(&setting))
    out.Element(constant, std::to_string(*number));
  if (const auto* number = std::get_if<double>(&setting)) out.Element(constant, FloatText(*number));
  if (const auto* text = std::get_if<std::string>(&setting)) out.Element(constant, *text);
}

bool InSameTree(const Node& node, const NodePtr& related) { return related->tree == node.tree; }

void WriteList(XmlWriter& out, const char* name, const Node& node, NodeList list) {
  for (const NodePtr& related : Related(node, list)) {
    // Links that only inform may name nodes that were never added, or taken out again.
    if (InSameTree(node, related)) out.Element(name, related->name);
  }
}

/// What every element begins with.
void WriteCommon(XmlWriter& out, const Node& node) {
  WriteText(out, "ToolTip", node.tool_tip);
  WriteText(out, "Description", node.description);
  WriteText(out, "DisplayName", node.display_name);
  const Visibility shown = node.name_space == NameSpace::Private ? Visibility::Invisible : node.visibility;
  out.Element("Visibility", Word(shown));
  if (node.deprecated) out.Element("IsDeprecated", "Yes");
  // An even number of digits, without 0x.
  if (node.event_id != 0) out.Element("EventID", HexText(static_cast<std::uint64_t>(node.event_id), 4));
  WriteReference(out, "pIsImplemented", node.is_implemented);
  WriteReference(out, "pIsAvailable", node.is_available);
  WriteReference(out, "pIsLocked", node.is_locked);
  if (node.imposed_access) out.Element("ImposedAccessMode", Word(*node.imposed_access));
  if (const NodePtr alias = node.alias.lock(); alias && InSameTree(node, alias))
    out.Element("pAlias", alias->name);
}

void WriteStreamable(XmlWriter& out, const Node& node) {
  if (node.streamable) out.Element("Streamable", "Yes");
}

void WriteUnitAndRepresentation(XmlWriter& out, const Node& node, bool is_float) {
  WriteText(out, "Unit", node.unit);
  if (!node.representation) return;
  // Float kinds know three of the words.
  const Representation shown = *node.representation;
  const bool fits = !is_float || shown == Representation::Linear || shown == Representation::Logarithmic ||
                    shown == Representation::PureNumber;
  if (fits) out.Element("Representation", Word(shown));
}

void WriteLimits(XmlWriter& out, const Node& node) {
  WriteSetting(out, node.min, "Min", "pMin");
  WriteSetting(out, node.max, "Max", "pMax");
  WriteSetting(out, node.increment, "Inc", "pInc");
}

void WritePollingTime(XmlWriter& out, const Node& node) {
  if (node.polling_time > 0) out.Element("PollingTime", std::to_string(node.polling_time));
}

void WriteCategory(XmlWriter& out, const Node& node) {
  WriteList(out, "pInvalidator", node, NodeList::Invalidator);
  WriteList(out, "pFeature", node, NodeList::Child);
}

void WriteInteger(XmlWriter& out, const Node& node) {
  WriteList(out, "pInvalidator", node, NodeList::Invalidator);
  WriteStreamable(out, node);
  WriteSetting(out, node.value, "Value", "pValue");
  WriteLimits(out, node);
  WriteUnitAndRepresentation(out, node, false);
  WriteList(out, "pSelected", node, NodeList::Selected);
}

void WriteDisplayPrecision(XmlWriter& out, const Node& node) {
  if (node.display_precision) out.Element("DisplayPrecision", std::to_string(*node.display_precision));
}

void WriteFloat(XmlWriter& out, const Node& node) {
  WriteList(out, "pInvalidator", node, NodeList::Invalidator);
  WriteStreamable(out, node);
  WriteSetting(out, node.value, "Value", "pValue");
  WriteLimits(out, node);
  WriteUnitAndRepresentation(out, node, true);
  WriteDisplayPrecision(out, node);
}

void WriteBoolean(XmlWriter& out, const Node& node) {
  WriteList(out, "pInvalidator", node, NodeList::Invalidator);
  WriteStreamable(out, node);
  if (const NodePtr source = NodeOf(node.value)) {
    out.Element("pValue", source->name);
    WriteSetting(out, node.on_value, "OnValue", "");
    WriteSetting(out, node.off_value, "OffValue", "");
  } else {
    // Clients disagree about the words true and false, and about what a constant means beside on and off
    // values.
    out.Element("Value", ReadBoolean(node) ? "1" : "0");
  }
  WriteList(out, "pSelected", node, NodeList::Selected);
}

void WriteCommand(XmlWriter& out, const Node& node) {
  WriteList(out, "pInvalidator", node, NodeList::Invalidator);
  WriteSetting(out, node.value, "Value", "pValue");
  WriteSetting(out, node.on_value, "CommandValue", "pCommandValue");
  WritePollingTime(out, node);
}

void WriteStringNode(XmlWriter& out, const Node& node) {
  WriteList(out, "pInvalidator", node, NodeList::Invalidator);
  WriteStreamable(out, node);
  WriteSetting(out, node.value, "Value", "pValue");
}

void WriteElement(XmlWriter& out, const Node& node, const char* element, const std::string& name);

void WriteEnumeration(XmlWriter& out, const Node& node) {
  WriteList(out, "pInvalidator", node, NodeList::Invalidator);
  WriteStreamable(out, node);
  for (const NodePtr& entry : node.children)
    WriteElement(out, *entry, entry->traits.element, SymbolicOf(*entry));
  WriteSetting(out, node.value, "Value", "pValue");
  WriteList(out, "pSelected", node, NodeList::Selected);
  WritePollingTime(out, node);
}

void WriteFormula(XmlWriter& out, const PublishedFormula::Knife& knife) {
  for (const PublishedFormula::Variable& variable : knife.variables) {
    out.Element("pVariable", variable.node, {{"Name", variable.name}});
  }
  out.Element("Formula", knife.formula);
}

void WriteParts(XmlWriter& out, const PublishedFormula& published) {
  for (const PublishedFormula::Knife& part : published.parts) {
    out.Open("IntSwissKnife", {{"Name", part.node}, {"NameSpace", "Custom"}});
    out.Element("Visibility", Word(Visibility::Invisible));
    WriteFormula(out, part);
    out.Close("IntSwissKnife");
  }
}

void WriteKnife(XmlWriter& out, const Node& node) {
  WriteList(out, "pInvalidator", node, NodeList::Invalidator);
  WriteStreamable(out, node);
  WriteFormula(out, PublishFormula(node).whole);
  WriteUnitAndRepresentation(out, node, false);
}

/// Registers: the part before what the kinds differ in.
void WriteRegister(XmlWriter& out, const Node& node) {
  const RegisterPart& reg = *node.reg;
  WriteStreamable(out, node);
  out.Element("Address", "0x" + HexText(static_cast<std::uint64_t>(reg.address), 1));
  for (const NodePtr& offset : reg.address_nodes) out.Element("pAddress", offset->name);
  out.Element("Length", std::to_string(reg.length));
  out.Element("AccessMode", Word(RegisterAccess(reg)));
  out.Element("pPort", PortName(node));
  out.Element("Cachable", Word(CacheOf(node)));
  WritePollingTime(out, node);
  WriteList(out, "pInvalidator", node, NodeList::Invalidator);
}

void WriteIntReg(XmlWriter& out, const Node& node) {
  WriteRegister(out, node);
  if (node.reg->bits) {
    out.Element("LSB", std::to_string(node.reg->bits->last));
    out.Element("MSB", std::to_string(node.reg->bits->first));
  }
  out.Element("Sign", node.reg->is_signed ? "Signed" : "Unsigned");
  out.Element("Endianess", "BigEndian");
  WriteUnitAndRepresentation(out, node, false);
  WriteList(out, "pSelected", node, NodeList::Selected);
}

void WriteFloatReg(XmlWriter& out, const Node& node) {
  WriteRegister(out, node);
  out.Element("Endianess", "BigEndian");
  WriteUnitAndRepresentation(out, node, true);
  WriteDisplayPrecision(out, node);
}

/// What the elements differ in.
void WriteContent(XmlWriter& out, const Node& node) {
  switch (node.kind) {
    case NodeKind::Category:
      return WriteCategory(out, node);
    case NodeKind::IntReg:
      return WriteIntReg(out, node);
    case NodeKind::StringReg:
      return WriteRegister(out, node);
    case NodeKind::Integer:
      return WriteInteger(out, node);
    case NodeKind::Boolean:
      return WriteBoolean(out, node);
    case NodeKind::Command:
      return WriteCommand(out, node);
    case NodeKind::Enumeration:
      return WriteEnumeration(out, node);
    case NodeKind::EnumEntry:
      return WriteSetting(out, node.value, "Value", "");
    case NodeKind::IntSwissKnife:
      return WriteKnife(out, node);
    case NodeKind::String:
      return WriteStringNode(out, node);
    case NodeKind::Float:
      return WriteFloat(out, node);
    case NodeKind::FloatReg:
      return WriteFloatReg(out, node);
  }
}

void WriteElement(XmlWriter& out, const Node& node, const char* element, const std::string& name) {
  out.Open(element,
           {{"Name", name}, {"NameSpace", node.name_space == NameSpace::Standard ? "Standard" : "Custom"}});
  WriteCommon(out, node);
  WriteContent(out, node);
  out.Close(element);
}

}  // namespace

void WriteNodeElement(XmlWriter& out, const Node& node) {
  if (!HasName(node.traits)) return;
  if (node.traits.source == ValueSource::Formula) WriteParts(out, PublishFormula(node));
  const bool masked = node.reg && node.reg->bits;
  WriteElement(out, node, masked ? "MaskedIntReg" : node.traits.element, node.name);
}

}  // namespace Tarn
