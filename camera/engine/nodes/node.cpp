#include "camera/engine/nodes/node.h"

#include <algorithm>
#include <cctype>

#include "camera/base/engine_error.h"

namespace Tarn {
namespace {

void CheckLength(ValueType type, const std::string& name, std::int64_t length) {
  const bool fits = type == ValueType::Integer ? length >= 1 && length <= 8
                    : type == ValueType::Float ? length == 4 || length == 8
                                               : length >= 4 && length % 4 == 0 && length <= 0x10000;
  if (!fits) {
    throw EngineError(Failure::kInvalidArgument,
                      "a register length of " + std::to_string(length) + " bytes is not possible for " +
                          name +
                          (type == ValueType::Text ? ": it must be a multiple of four, 4 to 65536" : ""));
  }
}

void CheckNameSpace(NameSpace space) {
  if (space < NameSpace::Standard || space > NameSpace::Private) {
    throw EngineError(Failure::kInvalidArgument,
                      std::to_string(static_cast<std::int32_t>(space)) + " is no name space");
  }
}

/// The value setting of a new node.
Setting FirstValue(ValueType type) {
  if (type == ValueType::Float) return 0.0;
  if (type == ValueType::Text) return std::string();
  return std::int64_t{0};
}

void CheckAddress(const std::string& name, std::int64_t address, std::int64_t length) {
  if (address == -1) return;
  constexpr std::int64_t kSpace = std::int64_t{1} << 32;  // GVCP addresses are 32 bit
  if (address < 0 || address > kSpace - length) {
    throw EngineError(Failure::kAddress,
                      "the address of " + name + " lies outside the 32-bit register space");
  }
  if (address % 4 != 0) {
    throw EngineError(Failure::kAddress, "the address of " + name + " is not a multiple of 4");
  }
}

}  // namespace

// GenApi names: a letter, then letters, digits and underscores (attribute pattern of the GenApi schema).
void CheckName(const std::string& name) {
  const auto letter = [](char c) { return std::isalpha(static_cast<unsigned char>(c)) && (c & 0x80) == 0; };
  const auto fits = [&](char c) { return letter(c) || (c >= '0' && c <= '9') || c == '_'; };
  if (name.empty() || !letter(name.front()) || !std::all_of(name.begin(), name.end(), fits)) {
    throw EngineError(Failure::kName,
                      "'" + name + "' is no GenICam name: a letter, then letters, digits, '_'");
  }
  // Loading a description turns entries into nodes of such names.
  if (name.starts_with("EnumEntry_")) {
    throw EngineError(Failure::kName, "'" + name + "': names beginning with EnumEntry_ are reserved");
  }
}

std::string FullName(const Node& node) {
  switch (node.name_space) {
    case NameSpace::Standard:
      return "Std::" + node.name;
    case NameSpace::Private:
      return "Priv::" + node.name;
    case NameSpace::Custom:
      break;
  }
  return "Cust::" + node.name;
}

namespace {

/// Every shared link of a node that ends, so that nothing else ends inside its destructor.
void TakeLinks(Node& node, std::vector<NodePtr>& to) {
  const auto take = [&to](NodePtr& link) {
    if (link) to.push_back(std::move(link));
  };
  for (Setting* setting : SettingsOf(node)) {
    if (NodePtr* link = std::get_if<NodePtr>(setting)) take(*link);
  }
  for (NodePtr* link : {&node.is_implemented, &node.is_available, &node.is_locked}) take(*link);
  for (NodePtr& link : node.children) take(link);
  if (!node.reg) return;
  for (NodePtr& link : node.reg->address_nodes) take(link);
}

}  // namespace

Node::~Node() {
  for (const NodePtr& child : children) Unlist(*child, *this);
  for (const auto* list : {&selected, &invalidators}) {
    for (const std::weak_ptr<Node>& link : *list) {
      if (const NodePtr related = link.lock()) Unlist(*related, *this);
    }
  }
  thread_local std::vector<NodePtr>* ending = nullptr;  // of the outermost destructor that runs
  if (ending) {
    TakeLinks(*this, *ending);
    return;
  }
  std::vector<NodePtr> links;
  ending = &links;
  TakeLinks(*this, links);
  while (!links.empty()) {
    const NodePtr next = std::move(links.back());
    links.pop_back();
  }
  ending = nullptr;
}

void CheckSameGuard(const Node& node, const Node& next) {
  if (node.guard == next.guard) return;
  throw EngineError(Failure::kWrongState, node.name + " is not in the node map of the started server that " +
                                              next.name + " belongs to");
}

void Unlist(Node& node, const Node& list) {
  // From the end: what was listed last usually goes first.
  const auto found = std::find(node.listed_by.rbegin(), node.listed_by.rend(), &list);
  if (found != node.listed_by.rend()) node.listed_by.erase(std::next(found).base());
}

NodePtr MakeNode(NodeKind kind, const std::string& name, NameSpace name_space) {
  CheckName(name);
  CheckNameSpace(name_space);
  auto node = std::make_shared<Node>(kind, name, name_space);
  const NodeTraits& traits = node->traits;
  if (traits.settings.Has(NodeItem::Value)) node->value = FirstValue(traits.value);
  if (traits.settings.Has(NodeItem::OnValue)) node->on_value = std::int64_t{1};
  if (traits.settings.Has(NodeItem::OffValue)) node->off_value = std::int64_t{0};
  return node;
}

NodePtr MakeRegister(NodeKind kind, const std::string& name, NameSpace name_space, std::int64_t address,
                     std::int64_t length) {
  CheckLength(TraitsOf(kind).value, name, length);
  CheckAddress(name, address, length);
  NodePtr node = MakeNode(kind, name, name_space);
  node->reg.emplace();
  node->reg->address = address;
  node->reg->length = static_cast<std::uint32_t>(length);
  node->reg->bytes.resize(static_cast<std::size_t>(length));
  return node;
}

}  // namespace Tarn
