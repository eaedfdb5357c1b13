#include "module/node_listeners.h"

#include <cstdint>
#include <memory>
#include <stdexcept>

#include "binding/callback.h"
#include "binding/interpreter_lock.h"
#include "binding/parent_metas.h"
#include "gevserver/nodes/value_node.h"
#include "module/native_types.h"
#include "module/node_wrapping.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;
namespace Native = Tarn::GevServer;

namespace {

/// What a native listener carries: no reference to anything, as it may be destroyed on any thread.
struct Carrier {
  const CallableType* type;
  const void* node;                  ///< address of the node, to find its wrapper
  std::shared_ptr<std::int64_t> id;  ///< known after the registration; touched under the interpreter lock
};

/// On a thread of the library. What it throws ends in the native dispatcher.
void Notify(const Carrier& carrier) {
  WithInterpreterLock([&carrier] {
    const PyRef wrapper = LiveWrapper(carrier.node);
    if (!wrapper) return;  // the node was cut off meanwhile
    const auto meta = MetaOf(wrapper.Get());
    CallStored(meta->callables, *carrier.type, *carrier.id, wrapper.Get());
  });
}

/// The record of the map that the node is in; null for a free node.
std::shared_ptr<NodeMapMeta> MapMeta(const Native::Node& node) {
  const PyRef map = NodeMapOf(node);
  return map ? FindMeta<NodeMapMeta>(map.Get()) : nullptr;
}

/// \param subscribe  registers a native callback made from the carrier and returns its cookie
template <class Subscribe>
Tarn::EventCookie Register(PyObject* self, const Native::Node& node, const CallableType& type,
                           PyObject* handler, Subscribe&& subscribe) {
  const Carrier carrier{&type, &node, std::make_shared<std::int64_t>(0)};
  *carrier.id = static_cast<std::int64_t>(subscribe(carrier));
  MetaOf(self)->callables.Store(type, *carrier.id, handler);
  if (const auto map = MapMeta(node)) map->Keep(self);
  return {*carrier.id};
}

void Forget(PyObject* self, const Native::Node& node, const CallableType& type, Tarn::EventCookie cookie,
            bool was_registered) {
  if (!was_registered) throw std::runtime_error("no such callable for this id");
  const auto meta = MetaOf(self);
  meta->callables.Drop(type, cookie.id);
  const auto map = MapMeta(node);
  if (map && meta->callables.Empty()) map->Release(self);
}

std::uint64_t Number(Tarn::EventCookie cookie) { return static_cast<std::uint64_t>(cookie.id); }

}  // namespace

Tarn::EventCookie RegisterEventUpdated(Self self, Callable handler) {
  const auto node = Extract<Native::Node>(self.object);
  return Register(self.object, *node, kEventUpdated, handler.object, [&](const Carrier& carrier) {
    return node->RegisterUpdated([carrier] { Notify(carrier); });
  });
}

void UnregisterEventUpdated(Self self, Tarn::EventCookie cookie) {
  const auto node = Extract<Native::Node>(self.object);
  Forget(self.object, *node, kEventUpdated, cookie, node->UnregisterUpdated(Number(cookie)));
}

Tarn::EventCookie RegisterEventOnReadUpdated(Self self, Callable handler) {
  const auto node = Extract<Native::ValueNode>(self.object);
  return Register(self.object, *node, kEventOnReadUpdated, handler.object, [&](const Carrier& carrier) {
    return node->RegisterOnRead([carrier](Native::Node&) { Notify(carrier); });
  });
}

void UnregisterEventOnReadUpdated(Self self, Tarn::EventCookie cookie) {
  const auto node = Extract<Native::ValueNode>(self.object);
  Forget(self.object, *node, kEventOnReadUpdated, cookie, node->UnregisterOnRead(Number(cookie)));
}

Tarn::EventCookie RegisterEventWrittenUpdated(Self self, Callable handler) {
  const auto node = Extract<Native::ValueNode>(self.object);
  return Register(self.object, *node, kEventWrittenUpdated, handler.object, [&](const Carrier& carrier) {
    return node->RegisterWritten([carrier](Native::Node&) { Notify(carrier); });
  });
}

void UnregisterEventWrittenUpdated(Self self, Tarn::EventCookie cookie) {
  const auto node = Extract<Native::ValueNode>(self.object);
  Forget(self.object, *node, kEventWrittenUpdated, cookie, node->UnregisterWritten(Number(cookie)));
}

}  // namespace _tarn::gevserver
