#include "binding/callable_registry.h"

#include <stdexcept>
#include <utility>

namespace Tarn::Binding {

void CallableRegistry::Store(const CallableType& type, std::int64_t id, PyObject* callable) {
  auto found = callables_.find(type.name);
  if (found == callables_.end()) found = callables_.try_emplace(std::string(type.name)).first;
  Entry& entry = found->second[id];
  ++entry.uses;
  if (entry.callable.Get() == callable) return;
  // The callable that goes may run Python code: nothing of the maps is touched afterwards.
  const PyRef replaced = std::exchange(entry.callable, PyRef::Share(callable));
}

void CallableRegistry::Drop(const CallableType& type, std::int64_t id) {
  const auto by_id = callables_.find(type.name);
  if (by_id == callables_.end()) return;
  const auto entry = by_id->second.find(id);
  if (entry == by_id->second.end() || --entry->second.uses > 0) return;
  // The callable may run Python code when it goes: after the maps are in order again.
  const PyRef last = std::move(entry->second.callable);
  by_id->second.erase(entry);
  if (by_id->second.empty()) callables_.erase(by_id);
}

void CallableRegistry::Clear() { const auto callables = std::exchange(callables_, {}); }

PyRef CallableRegistry::Find(const CallableType& type, std::int64_t id) const {
  const auto by_id = callables_.find(type.name);
  if (by_id == callables_.end()) throw std::runtime_error("no such callable type");
  const auto entry = by_id->second.find(id);
  if (entry == by_id->second.end()) throw std::runtime_error("no such callable for this id");
  return entry->second.callable;
}

}  // namespace Tarn::Binding
