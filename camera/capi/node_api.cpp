// The node family of the C line.

#include <algorithm>
#include <atomic>
#include <string>

#include "camera/capi/entry.h"
#include "camera/capi/node_box.h"
#include "camera/capi/pinned.h"
#include "camera/capi/text_exchange.h"
#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/nodes/node_items.h"
#include "camera/engine/nodes/node_links.h"
#include "camera/engine/nodes/node_values.h"
#include "gevserver/library/tr_gev_server.h"

namespace Tarn {
namespace {

TR_HANDLE CreateNode(NodeKind kind, const char* name, std::int32_t name_space) {
  return HandleEntry([&] { return HandleOf(MakeNode(kind, TextArgument(name), NameSpace{name_space})); });
}

TR_HANDLE CreateRegister(NodeKind kind, const char* name, std::int32_t name_space, std::int64_t address,
                         std::int64_t length) {
  return HandleEntry([&] {
    return HandleOf(MakeRegister(kind, TextArgument(name), NameSpace{name_space}, address, length));
  });
}

/// Runs `use(node)` with the node's lock held.
template <class Use>
TR_STATUS WithNode(TR_HANDLE handle, Use&& use) {
  return Entry([&] {
    const Pinned<NodeBox> box(handle);
    const NodeLock lock(*box->node);
    use(box->node);
  });
}

/// Outputs a handle of the node that `find(node)` returns under the node's lock; a null one when it finds none.
template <class Find>
TR_STATUS OutputFound(TR_HANDLE handle, TR_HANDLE* related, Find&& find) {
  return Entry([&] {
    const Pinned<NodeBox> box(handle);
    NodePtr found;
    {
      const NodeLock lock(*box->node);
      found = find(*box->node);
    }
    if (related) *related = found ? HandleOf(found) : nullptr;
    LetGo(found);
  });
}

/// As WithNode, then lets the node's device do what follows.
template <class Use>
TR_STATUS WriteNode(TR_HANDLE handle, Use&& use) {
  return Entry([&] {
    const Pinned<NodeBox> box(handle);
    std::shared_ptr<TreeOwner> owner;
    {
      const NodeLock lock(*box->node);
      use(*box->node);
      const FeatureTree* tree = box->node->tree;
      if (tree && tree->HasStores()) owner = tree->Owner();
    }
    if (owner) owner->OnStored();
  });
}

NodePtr RelatedAt(const Node& node, NodeList list, std::int64_t index) {
  const std::vector<NodePtr> related = Related(node, list);
  if (index < 0 || static_cast<std::size_t>(index) >= related.size()) {
    throw EngineError(Failure::kNotFound, node.name + " has no related node number " + std::to_string(index));
  }
  return related[static_cast<std::size_t>(index)];
}

NodeList ListOf(std::int32_t list) {
  if (list < GSN_LIST_CHILD || list > GSN_LIST_ADDRESSES) {
    throw EngineError(Failure::kInvalidArgument, std::to_string(list) + " is no node list");
  }
  return NodeList{list};
}

NodeEvent EventOf(std::int32_t event) {
  if (event != GSN_EVENT_READ && event != GSN_EVENT_WRITE) {
    throw EngineError(Failure::kInvalidArgument, std::to_string(event) + " is no node event");
  }
  return NodeEvent{event};
}

/// Adds `related`, in front of `before` unless that is null.
TR_STATUS Link(TR_HANDLE node, std::int32_t list, TR_HANDLE related, TR_HANDLE before) {
  return Entry([&] {
    const Pinned<NodeBox> box(node);
    const Pinned<NodeBox> added(related);
    std::optional<Pinned<NodeBox>> place;
    if (before) place.emplace(before);
    const NodeLock lock(*box->node, *added->node);
    AddRelated(box->node, ListOf(list), added->node, place ? (*place)->node : nullptr);
  });
}

}  // namespace
}  // namespace Tarn

using namespace Tarn;

// The kinds: each has the same code on both sides of the line, and a call that creates a node.
#define TARN_SAME_CODE(kind, type) static_assert(static_cast<std::int32_t>(NodeKind::kind) == (type))
#define TARN_PLAIN_KIND(kind, type, create)                \
  TARN_SAME_CODE(kind, type);                              \
  TR_HANDLE create(const char* name, int32_t name_space) { \
    return CreateNode(NodeKind::kind, name, name_space);   \
  }

TARN_PLAIN_KIND(Category, GSN_TYPE_CATEGORY, CreateGSCategoryNode)
TARN_PLAIN_KIND(Integer, GSN_TYPE_INTEGER, CreateGSIntegerNode)
TARN_PLAIN_KIND(Float, GSN_TYPE_FLOAT, CreateGSFloatNode)
TARN_PLAIN_KIND(Boolean, GSN_TYPE_BOOLEAN, CreateGSBooleanNode)
TARN_PLAIN_KIND(Command, GSN_TYPE_COMMAND, CreateGSCommandNode)
TARN_PLAIN_KIND(Enumeration, GSN_TYPE_ENUMERATION, CreateGSEnumerationNode)
TARN_PLAIN_KIND(EnumEntry, GSN_TYPE_ENUM_ENTRY, CreateGSEnumEntryNode)
TARN_PLAIN_KIND(IntSwissKnife, GSN_TYPE_INT_SWISS_KNIFE, CreateGSIntSwissKnifeNode)
TARN_PLAIN_KIND(String, GSN_TYPE_STRING, CreateGSStringNodeEx)

TARN_SAME_CODE(IntReg, GSN_TYPE_INT_REG);
TARN_SAME_CODE(FloatReg, GSN_TYPE_FLOAT_REG);
TARN_SAME_CODE(StringReg, GSN_TYPE_STRING_REG);

#undef TARN_PLAIN_KIND
#undef TARN_SAME_CODE

TR_HANDLE CreateGSInt32Node(const char* name, int32_t name_space, int64_t address) {
  return CreateRegister(NodeKind::IntReg, name, name_space, address, 4);
}
TR_HANDLE CreateGSInt64Node(const char* name, int32_t name_space, int64_t address) {
  return CreateRegister(NodeKind::IntReg, name, name_space, address, 8);
}
TR_HANDLE CreateGSFloat32Node(const char* name, int32_t name_space, int64_t address) {
  return CreateRegister(NodeKind::FloatReg, name, name_space, address, 4);
}
TR_HANDLE CreateGSFloat64Node(const char* name, int32_t name_space, int64_t address) {
  return CreateRegister(NodeKind::FloatReg, name, name_space, address, 8);
}
TR_HANDLE CreateGSStringRegNode(const char* name, int32_t name_space, int64_t address, int64_t length) {
  return CreateRegister(NodeKind::StringReg, name, name_space, address, length);
}

TR_STATUS GSNType(TR_HANDLE node, int32_t* type) {
  return WithNode(node, [&](const NodePtr& n) { Output(type, "type") = static_cast<int32_t>(n->kind); });
}

TR_STATUS GSNGetInfoAsInteger(TR_HANDLE node, int32_t info, int64_t* value) {
  return WithNode(node, [&](const NodePtr& n) { Output(value, "value") = IntegerItem(*n, NodeItem{info}); });
}
TR_STATUS GSNSetInfoAsInteger(TR_HANDLE node, int32_t info, int64_t value) {
  return WithNode(node, [&](const NodePtr& n) { SetIntegerItem(*n, NodeItem{info}, value); });
}
TR_STATUS GSNGetInfoAsFloat(TR_HANDLE node, int32_t info, double* value) {
  return WithNode(node, [&](const NodePtr& n) { Output(value, "value") = FloatItem(*n, NodeItem{info}); });
}
TR_STATUS GSNSetInfoAsFloat(TR_HANDLE node, int32_t info, double value) {
  return WithNode(node, [&](const NodePtr& n) { SetFloatItem(*n, NodeItem{info}, value); });
}
TR_STATUS GSNGetInfoAsString(TR_HANDLE node, int32_t info, char* text, size_t* size) {
  return WithNode(node, [&](const NodePtr& n) { CopyText(TextItem(*n, NodeItem{info}), text, size); });
}
TR_STATUS GSNSetInfoAsString(TR_HANDLE node, int32_t info, const char* text) {
  return WithNode(node, [&](const NodePtr& n) { SetTextItem(*n, NodeItem{info}, TextArgument(text)); });
}

TR_STATUS GSNGetInfoAsNode(TR_HANDLE node, int32_t info, TR_HANDLE* related) {
  return OutputFound(node, related, [&](const Node& n) {
    Output(related, "related");
    return NodeOfItem(n, NodeItem{info});
  });
}

TR_STATUS GSNSetInfoAsNode(TR_HANDLE node, int32_t info, TR_HANDLE related) {
  return Entry([&] {
    const Pinned<NodeBox> box(node);
    const Pinned<NodeBox> supplier(related);
    const NodeLock lock(*box->node, *supplier->node);
    SetNodeItem(*box->node, NodeItem{info}, supplier->node);
  });
}

TR_STATUS GSNGetAsInteger(TR_HANDLE node, int64_t* value) {
  return WithNode(node, [&](const NodePtr& n) { Output(value, "value") = ReadInteger(*n); });
}
TR_STATUS GSNSetAsInteger(TR_HANDLE node, int64_t value) {
  return WriteNode(node, [&](Node& n) { WriteInteger(n, value); });
}
TR_STATUS GSNGetAsFloat(TR_HANDLE node, double* value) {
  return WithNode(node, [&](const NodePtr& n) { Output(value, "value") = ReadFloat(*n); });
}
TR_STATUS GSNSetAsFloat(TR_HANDLE node, double value) {
  return WriteNode(node, [&](Node& n) { WriteFloat(n, value); });
}
TR_STATUS GSNGetAsBoolean(TR_HANDLE node, bool* value) {
  return WithNode(node, [&](const NodePtr& n) { Output(value, "value") = ReadBoolean(*n); });
}
TR_STATUS GSNSetAsBoolean(TR_HANDLE node, bool value) {
  return WriteNode(node, [&](Node& n) { WriteBoolean(n, value); });
}
TR_STATUS GSNGetAsString(TR_HANDLE node, char* text, size_t* size) {
  return WithNode(node, [&](const NodePtr& n) { CopyText(ReadText(*n), text, size); });
}
TR_STATUS GSNSetAsString(TR_HANDLE node, const char* text) {
  return WriteNode(node, [&](Node& n) { WriteText(n, TextArgument(text)); });
}

TR_STATUS GSNListCount(TR_HANDLE node, int32_t list, int64_t* count) {
  return WithNode(node, [&](const NodePtr& n) {
    Output(count, "count") = static_cast<int64_t>(Related(*n, ListOf(list)).size());
  });
}

TR_STATUS GSNListEx(TR_HANDLE node, int32_t list, int64_t index, char* name, size_t* size,
                    TR_HANDLE* related) {
  return OutputFound(node, related, [&](const Node& n) {
    NodePtr found = RelatedAt(n, ListOf(list), index);
    CopyText(found->name, name, size);
    return found;
  });
}

TR_STATUS GSNGetNode(TR_HANDLE node, int32_t list, const char* name, TR_HANDLE* related) {
  return OutputFound(node, related, [&](const Node& n) {
    Output(related, "related");
    const std::string wanted = TextArgument(name);
    for (NodePtr& found : Related(n, ListOf(list))) {
      if (found->name == wanted) return std::move(found);
    }
    throw EngineError(Failure::kNotFound, n.name + " has no related node named " + wanted);
  });
}

TR_STATUS GSNAddNode(TR_HANDLE node, int32_t list, TR_HANDLE related) {
  return Link(node, list, related, nullptr);
}

TR_STATUS GSNAddNodeEx(TR_HANDLE node, int32_t list, TR_HANDLE related, TR_HANDLE before) {
  return Link(node, list, related, before);
}

TR_STATUS GSNRemoveNode(TR_HANDLE node, int32_t list, TR_HANDLE related) {
  return Entry([&] {
    const Pinned<NodeBox> box(node);
    const Pinned<NodeBox> removed(related);
    const NodeLock lock(*box->node, *removed->node);
    RemoveRelated(box->node, ListOf(list), removed->node);
  });
}

TR_STATUS GSNRegisterEventWithStatus(TR_HANDLE node, int32_t event, GSCallback callback, void* context,
                                     uint64_t* cookie) {
  return WithNode(node, [&](const NodePtr& n) {
    static std::atomic<std::uint64_t> last_cookie = 0;
    if (!callback) throw EngineError(Failure::kInvalidArgument, "callback must not be null");
    uint64_t& to = Output(cookie, "cookie");
    to = ++last_cookie;
    n->listeners.push_back(
        std::make_shared<const NodeListener>(NodeListener{EventOf(event), callback, context, to}));
  });
}

TR_STATUS GSNSetEventActive(TR_HANDLE node, int32_t event, uint64_t cookie, bool active) {
  return WithNode(node, [&](const NodePtr& n) {
    const NodeEvent wanted = EventOf(event);
    const auto found = std::ranges::find_if(n->listeners, [&](const auto& listener) {
      return listener->cookie == cookie && listener->event == wanted;
    });
    if (found == n->listeners.end()) throw EngineError(Failure::kNotFound, n->name + " has no such listener");
    NodeListener changed = **found;  // the one that is there may be in use at this moment
    changed.active = active;
    *found = std::make_shared<const NodeListener>(changed);
  });
}

TR_STATUS GSNUnregisterEvent(TR_HANDLE node, int32_t event, uint64_t cookie) {
  return WithNode(node, [&](const NodePtr& n) {
    const NodeEvent wanted = EventOf(event);
    const std::size_t erased = std::erase_if(n->listeners, [&](const auto& listener) {
      return listener->cookie == cookie && listener->event == wanted;
    });
    if (erased == 0) throw EngineError(Failure::kNotFound, n->name + " has no such listener");
  });
}
