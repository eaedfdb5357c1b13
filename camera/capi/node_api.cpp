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

// The engine's codes are those of the C line, one by one.
#define TARN_SAME_CODE(engine, line) static_assert(static_cast<int>(engine) == (line))
TARN_SAME_CODE(NodeItem::Name, GSN_INFO_NAME);
TARN_SAME_CODE(NodeItem::DisplayName, GSN_INFO_DISPLAY_NAME);
TARN_SAME_CODE(NodeItem::AccessMode, GSN_INFO_ACCESS_MODE);
TARN_SAME_CODE(NodeItem::Max, GSN_INFO_MAX);
TARN_SAME_CODE(NodeItem::Min, GSN_INFO_MIN);
TARN_SAME_CODE(NodeItem::Increment, GSN_INFO_INCREMENT);
TARN_SAME_CODE(NodeItem::NumEnumEntries, GSN_INFO_NUM_ENUM_ENTRIES);
TARN_SAME_CODE(NodeItem::Streamable, GSN_INFO_STREAMABLE);
TARN_SAME_CODE(NodeItem::CachingMode, GSN_INFO_CACHING_MODE);
TARN_SAME_CODE(NodeItem::ToolTip, GSN_INFO_TOOL_TIP);
TARN_SAME_CODE(NodeItem::Description, GSN_INFO_DESCRIPTION);
TARN_SAME_CODE(NodeItem::Visibility, GSN_INFO_VISIBILITY);
TARN_SAME_CODE(NodeItem::PollingTime, GSN_INFO_POLLING_TIME);
TARN_SAME_CODE(NodeItem::EventId, GSN_INFO_EVENT_ID);
TARN_SAME_CODE(NodeItem::NameSpace, GSN_INFO_NAME_SPACE);
TARN_SAME_CODE(NodeItem::RegisterLength, GSN_INFO_REGISTER_LENGTH);
TARN_SAME_CODE(NodeItem::RegisterAddress, GSN_INFO_REGISTER_ADDRESS);
TARN_SAME_CODE(NodeItem::Representation, GSN_INFO_REPRESENTATION);
TARN_SAME_CODE(NodeItem::Value, GSN_INFO_VALUE);
TARN_SAME_CODE(NodeItem::OnValue, GSN_INFO_ON_VALUE);
TARN_SAME_CODE(NodeItem::OffValue, GSN_INFO_OFF_VALUE);
TARN_SAME_CODE(NodeItem::Formula, GSN_INFO_FORMULA);
TARN_SAME_CODE(NodeItem::ImposedAccessMode, GSN_INFO_IMPOSED_ACCESS_MODE);
TARN_SAME_CODE(NodeItem::IsImplemented, GSN_INFO_IS_IMPLEMENTED);
TARN_SAME_CODE(NodeItem::IsAvailable, GSN_INFO_IS_AVAILABLE);
TARN_SAME_CODE(NodeItem::IsLocked, GSN_INFO_IS_LOCKED);
TARN_SAME_CODE(NodeItem::Alias, GSN_INFO_ALIAS);
TARN_SAME_CODE(NodeItem::Sign, GSN_INFO_SIGN);
TARN_SAME_CODE(NodeItem::Unit, GSN_INFO_UNIT);
TARN_SAME_CODE(NodeItem::DisplayPrecision, GSN_INFO_DISPLAY_PRECISION);
TARN_SAME_CODE(NodeItem::IsDeprecated, GSN_INFO_IS_DEPRECATED);
TARN_SAME_CODE(NodeItem::IsFeature, GSN_INFO_IS_FEATURE);
TARN_SAME_CODE(NodeKind::Category, GSN_TYPE_CATEGORY);
TARN_SAME_CODE(NodeKind::IntReg, GSN_TYPE_INT_REG);
TARN_SAME_CODE(NodeKind::StringReg, GSN_TYPE_STRING_REG);
TARN_SAME_CODE(NodeKind::Integer, GSN_TYPE_INTEGER);
TARN_SAME_CODE(NodeKind::Boolean, GSN_TYPE_BOOLEAN);
TARN_SAME_CODE(NodeKind::Command, GSN_TYPE_COMMAND);
TARN_SAME_CODE(NodeKind::Enumeration, GSN_TYPE_ENUMERATION);
TARN_SAME_CODE(NodeKind::EnumEntry, GSN_TYPE_ENUM_ENTRY);
TARN_SAME_CODE(NodeKind::IntSwissKnife, GSN_TYPE_INT_SWISS_KNIFE);
TARN_SAME_CODE(NodeKind::String, GSN_TYPE_STRING);
TARN_SAME_CODE(NodeKind::Float, GSN_TYPE_FLOAT);
TARN_SAME_CODE(NodeKind::FloatReg, GSN_TYPE_FLOAT_REG);
TARN_SAME_CODE(NodeList::Child, GSN_LIST_CHILD);
TARN_SAME_CODE(NodeList::Selected, GSN_LIST_SELECTED);
TARN_SAME_CODE(NodeList::Invalidator, GSN_LIST_INVALIDATOR);
TARN_SAME_CODE(NodeList::Addresses, GSN_LIST_ADDRESSES);
TARN_SAME_CODE(NodeEvent::Read, GSN_EVENT_READ);
TARN_SAME_CODE(NodeEvent::Write, GSN_EVENT_WRITE);
TARN_SAME_CODE(AccessMode::NotImplemented, GS_ACCESS_NOT_IMPLEMENTED);
TARN_SAME_CODE(AccessMode::NotAvailable, GS_ACCESS_NOT_AVAILABLE);
TARN_SAME_CODE(AccessMode::ReadOnly, GS_ACCESS_READ_ONLY);
TARN_SAME_CODE(AccessMode::WriteOnly, GS_ACCESS_WRITE_ONLY);
TARN_SAME_CODE(AccessMode::ReadWrite, GS_ACCESS_READ_WRITE);
TARN_SAME_CODE(CacheMode::NoCache, GS_CACHE_NO_CACHE);
TARN_SAME_CODE(CacheMode::WriteThrough, GS_CACHE_WRITE_THROUGH);
TARN_SAME_CODE(CacheMode::WriteAround, GS_CACHE_WRITE_AROUND);
TARN_SAME_CODE(Visibility::Beginner, GS_VISIBILITY_BEGINNER);
TARN_SAME_CODE(Visibility::Expert, GS_VISIBILITY_EXPERT);
TARN_SAME_CODE(Visibility::Guru, GS_VISIBILITY_GURU);
TARN_SAME_CODE(Visibility::Invisible, GS_VISIBILITY_INVISIBLE);
TARN_SAME_CODE(Representation::Linear, GS_REPRESENTATION_LINEAR);
TARN_SAME_CODE(Representation::Logarithmic, GS_REPRESENTATION_LOGARITHMIC);
TARN_SAME_CODE(Representation::Boolean, GS_REPRESENTATION_BOOLEAN);
TARN_SAME_CODE(Representation::PureNumber, GS_REPRESENTATION_PURE_NUMBER);
TARN_SAME_CODE(Representation::HexNumber, GS_REPRESENTATION_HEX_NUMBER);
TARN_SAME_CODE(Representation::Ipv4Address, GS_REPRESENTATION_IPV4_ADDRESS);
TARN_SAME_CODE(Representation::MacAddress, GS_REPRESENTATION_MAC_ADDRESS);
TARN_SAME_CODE(NameSpace::Standard, GS_NAMESPACE_STANDARD);
TARN_SAME_CODE(NameSpace::Custom, GS_NAMESPACE_CUSTOM);
TARN_SAME_CODE(NameSpace::Private, GS_NAMESPACE_PRIVATE);
#undef TARN_SAME_CODE

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

TR_HANDLE CreateGSCategoryNode(const char* name, int32_t name_space) {
  return CreateNode(NodeKind::Category, name, name_space);
}
TR_HANDLE CreateGSIntegerNode(const char* name, int32_t name_space) {
  return CreateNode(NodeKind::Integer, name, name_space);
}
TR_HANDLE CreateGSFloatNode(const char* name, int32_t name_space) {
  return CreateNode(NodeKind::Float, name, name_space);
}
TR_HANDLE CreateGSBooleanNode(const char* name, int32_t name_space) {
  return CreateNode(NodeKind::Boolean, name, name_space);
}
TR_HANDLE CreateGSCommandNode(const char* name, int32_t name_space) {
  return CreateNode(NodeKind::Command, name, name_space);
}
TR_HANDLE CreateGSEnumerationNode(const char* name, int32_t name_space) {
  return CreateNode(NodeKind::Enumeration, name, name_space);
}
TR_HANDLE CreateGSEnumEntryNode(const char* name, int32_t name_space) {
  return CreateNode(NodeKind::EnumEntry, name, name_space);
}
TR_HANDLE CreateGSIntSwissKnifeNode(const char* name, int32_t name_space) {
  return CreateNode(NodeKind::IntSwissKnife, name, name_space);
}
TR_HANDLE CreateGSStringNodeEx(const char* name, int32_t name_space) {
  return CreateNode(NodeKind::String, name, name_space);
}

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
