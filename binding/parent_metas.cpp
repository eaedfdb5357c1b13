#include "binding/parent_metas.h"

#include <unordered_map>
#include <utility>

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
  // The weak references of a dying wrapper may call back before its deallocation begins; it must not be
  // revived.
  if (found == LiveWrappers().end() || Py_REFCNT(found->second) == 0) return {};
  return PyRef::Share(found->second);
}

RegisteredMeta::RegisteredMeta(const void* native, PyObject* wrapper) : native_(native) {
  LiveWrappers()[native] = wrapper;
}

void RegisteredMeta::Retire() {
  LiveWrappers().erase(native_);
  ObjMeta::Retire();
}

void ServerMeta::Retire() {
  const PyRef map = std::move(node_map);
  const PyRef the_stream = std::move(stream);
  if (map) CutOff(map.Get());
  if (the_stream) CutOff(the_stream.Get());
  ObjMeta::Retire();
}

void NodeMapMeta::Retire() {
  retired_ = true;
  const auto nodes = std::move(nodes_);
  const auto kept = std::move(kept_);
  RegisteredMeta::Retire();
  for (const auto& [name, weak] : nodes) {
    if (const PyRef wrapper = Resolve(weak)) CutOff(wrapper.Get());
  }
}

PyRef NodeMapMeta::Resolve(const PyRef& weak) {
  if (!weak) return {};
  PyObject* object = PyWeakref_GetObject(weak.Get());
  return object && !Py_IsNone(object) ? PyRef::Share(object) : PyRef();
}

PyRef NodeMapMeta::Find(const NamedNode& node) const {
  const auto [first, last] = nodes_.equal_range(node.full_name);
  for (auto at = first; at != last; ++at) {
    PyRef live = Resolve(at->second);
    if (live && Holds(live.Get(), node.native)) return live;
  }
  return {};
}

void NodeMapMeta::Erase(const std::string& full_name, PyObject* wrapper) {
  const auto [first, last] = nodes_.equal_range(full_name);
  for (auto at = first; at != last;) {
    const PyRef live = Resolve(at->second);
    at = !live || live.Get() == wrapper ? nodes_.erase(at) : std::next(at);
  }
}

void NodeMapMeta::Record(const std::string& full_name, PyObject* wrapper) {
  // A garbage collection in here may end the node map.
  PyRef weak = Checked(PyWeakref_NewRef(wrapper, nullptr));
  if (retired_) {
    CutOff(wrapper);
    return;
  }
  Erase(full_name, wrapper);
  nodes_.emplace(full_name, std::move(weak));
}

void NodeMapMeta::Forget(const std::string& full_name, PyObject* wrapper) {
  Erase(full_name, wrapper);
  Release(wrapper);
}

void NodeMapMeta::Keep(PyObject* wrapper) {
  if (!retired_) kept_.try_emplace(wrapper, PyRef::Share(wrapper));
}

void NodeMapMeta::Release(PyObject* wrapper) {
  const auto found = kept_.find(wrapper);
  if (found == kept_.end()) return;
  const PyRef last = std::move(found->second);
  kept_.erase(found);
}

}  // namespace Tarn::Binding
