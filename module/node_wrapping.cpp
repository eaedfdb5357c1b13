#include "module/node_wrapping.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "gevserver/node_map.h"
#include "gevserver/nodes/node_classes.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;
namespace Native = Tarn::GevServer;

namespace {

struct Row {
  bool (*fits)(const Native::Node* node);
  PyTypeObject* (*type)();
};

template <class X>
constexpr Row RowOf() {
  return {[](const Native::Node* node) { return dynamic_cast<const X*>(node) != nullptr; },
          &NodeTypeOf<X>::Get};
}

// Bases ahead of the classes derived from them.
constexpr Row kTypes[] = {
#define TARN_ROW(X) RowOf<Native::X>(),
    TARN_NODE_TYPES(TARN_ROW)
#undef TARN_ROW
};

/// The type of the most derived class, which is the last that fits.
PyTypeObject* TypeOf(const Native::Node& node) {
  const auto fits = [&node](const Row& row) { return row.fits(&node); };
  return std::find_if(std::rbegin(kTypes), std::rend(kTypes), fits)->type();  // the first row fits every node
}

PyRef NewWrapper(const NodePtr& node) {
  PyRef wrapper = Bind(TypeOf(*node), node);
  Attach(wrapper.Get(), std::make_shared<NodeMeta>(node.get(), wrapper.Get()));
  return wrapper;
}

/// The record of a node map's wrapper; null for an empty reference.
std::shared_ptr<NodeMapMeta> RecordOf(const PyRef& map) {
  return map ? FindMeta<NodeMapMeta>(map.Get()) : nullptr;
}

}  // namespace

PyRef NodeMapOf(const Native::Node& node) {
  const auto map = node.NodeMap();
  return map ? LiveWrapper(map.get()) : PyRef();
}

PyRef WrapNode(const NodePtr& node) {
  if (!node) return PyRef::None();
  if (PyRef live = LiveWrapper(node.get())) return live;
  const auto create = [&node] { return NewWrapper(node); };
  const auto map = node->NodeMap();
  if (!map) return create();
  const auto record = RecordOf(LiveWrapper(map.get()));
  if (record) return record->NodeObjectOrCreate({node->Name(), node.get()}, create);
  PyRef wrapper = create();
  CutOff(wrapper.Get());
  return wrapper;
}

PyRef WrapNodes(const std::vector<NodePtr>& nodes) {
  const auto map = nodes.empty() ? nullptr : nodes.front()->NodeMap();
  const auto record = map ? RecordOf(LiveWrapper(map.get())) : nullptr;
  const auto wrap = [&nodes](std::size_t index) { return WrapNode(nodes[index]); };
  if (!record) return MakeList(nodes.size(), wrap);
  std::vector<NodeMapMeta::NamedNode> named;
  named.reserve(nodes.size());
  for (const NodePtr& node : nodes) named.push_back({node->Name(), node.get()});
  return record->NodeListOrCreate(named, wrap);
}

std::vector<NodePtr> WithEntries(const NodePtr& node) {
  std::vector<NodePtr> nodes = {node};
  if (const auto enumeration = std::dynamic_pointer_cast<Native::EnumerationNode>(node)) {
    for (const auto& entry : enumeration->Entries()) nodes.push_back(entry);
  }
  return nodes;
}

void NodeJoinedMap(const NodePtr& node) {
  const auto meta = RecordOf(NodeMapOf(*node));
  if (!meta) throw std::runtime_error("No node map.");
  for (const NodePtr& each : WithEntries(node)) {
    const PyRef wrapper = LiveWrapper(each.get());
    if (!wrapper) continue;
    meta->Record(each->Name(), wrapper.Get());
    if (!MetaOf(wrapper.Get())->callables.Empty()) meta->Keep(wrapper.Get());
  }
  meta->ForgetDictionary();
}

void NodesLeftMap(NodeMapMeta& record, const std::vector<NodePtr>& nodes) {
  for (const NodePtr& each : nodes) {
    if (each->NodeMap()) continue;
    if (const PyRef wrapper = LiveWrapper(each.get())) record.Forget(each->Name(), wrapper.Get());
  }
  record.ForgetDictionary();
}

}  // namespace _tarn::gevserver
