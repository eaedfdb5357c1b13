#include "binding/parent_metas.h"

#include <unordered_map>

namespace Tarn::Binding {
namespace {

std::unordered_map<const void*, PyObject*>& LiveWrappers() {
  static auto* wrappers =
      new std::unordered_map<const void*, PyObject*>;  // wrappers may outlive static objects
  return *wrappers;
}

}  // namespace

PyRef LiveWrapper(const void* native) {
  const auto found = LiveWrappers().find(native);
  // A wrapper in deallocation is still registered while its callables go; it must not be revived.
  if (found == LiveWrappers().end() || Py_REFCNT(found->second) == 0) return {};
  return PyRef::Share(found->second);
}

RegisteredMeta::RegisteredMeta(const void* native, PyObject* wrapper) : native_(native) {
  LiveWrappers()[native] = wrapper;
}

RegisteredMeta::~RegisteredMeta() { LiveWrappers().erase(native_); }

ServerMeta::~ServerMeta() {
  if (node_map) CutOff(node_map.Get());
  if (stream) CutOff(stream.Get());
}

NodeMapMeta::~NodeMapMeta() {
  // Moved out first: cutting off may run Python code that looks for nodes.
  const auto nodes = std::move(nodes_);
  const auto kept = std::move(kept_);
  for (const auto& [name, weak] : nodes) {
    if (const PyRef wrapper = Resolve(weak)) CutOff(wrapper.Get());
  }
}

PyRef NodeMapMeta::Resolve(const PyRef& weak) {
  if (!weak) return {};
  PyObject* object = PyWeakref_GetObject(weak.Get());
  return object && !Py_IsNone(object) ? PyRef::Share(object) : PyRef();
}

PyRef NodeMapMeta::Find(const std::string& full_name) const {
  const auto found = nodes_.find(full_name);
  return found == nodes_.end() ? PyRef() : Resolve(found->second);
}

void NodeMapMeta::Record(const std::string& full_name, PyObject* wrapper) {
  std::string key = full_name;
  for (int place = 2;; ++place) {
    const PyRef live = Find(key);
    if (live.Get() == wrapper) return;
    if (!live) break;
    key = full_name + "#" + std::to_string(place);  // no GenApi name has this character
  }
  nodes_[key] = Checked(PyWeakref_NewRef(wrapper, nullptr));
}

void NodeMapMeta::Forget(const std::string& full_name, PyObject* wrapper) {
  std::string key = full_name;
  for (int place = 2; nodes_.contains(key); ++place) {
    if (Find(key).Get() == wrapper) {
      nodes_[key] = PyRef();
      break;
    }
    key = full_name + "#" + std::to_string(place);
  }
  Release(wrapper);
}

void NodeMapMeta::Keep(PyObject* wrapper) { kept_.try_emplace(wrapper, PyRef::Share(wrapper)); }

void NodeMapMeta::Release(PyObject* wrapper) {
  const auto found = kept_.find(wrapper);
  if (found == kept_.end()) return;
  const PyRef last = std::move(found->second);
  kept_.erase(found);
}

}  // namespace Tarn::Binding
