#include "binding/type_definition.h"

#include <structmember.h>

#include <cstddef>
#include <utility>

#include "binding/buffer_view.h"
#include "binding/enumeration.h"
#include "binding/errors.h"
#include "binding/wrapper.h"

namespace Tarn::Binding {
namespace {

PyMemberDef* WeakListMember() {
  static PyMemberDef members[] = {
      {"__weaklistoffset__", T_PYSSIZET, offsetof(Wrapper, weak_list), READONLY, nullptr},
      {nullptr, 0, 0, 0, nullptr}};
  return members;
}

const char* TextOrNull(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

void BuildMethodTable(TypeDefinition& definition) {
  if (!definition.method_table.empty() || definition.methods.empty()) return;
  for (const MethodEntry& entry : definition.methods) {
    const int flags = METH_VARARGS | METH_KEYWORDS | (entry.is_static ? METH_STATIC : 0);
    // The interpreter's table has one function type for all call forms; the flags tell which it is.
    auto* function = reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(entry.function));
    definition.method_table.push_back({entry.name.c_str(), function, flags, TextOrNull(entry.docstring)});
  }
  definition.method_table.push_back({nullptr, nullptr, 0, nullptr});
}

void BuildPropertyTable(TypeDefinition& definition) {
  if (!definition.property_table.empty() || definition.properties.empty()) return;
  for (const PropertyEntry& entry : definition.properties) {
    definition.property_table.push_back(
        {entry.name.c_str(), entry.get, entry.set, TextOrNull(entry.docstring), nullptr});
  }
  definition.property_table.push_back({nullptr, nullptr, nullptr, nullptr, nullptr});
}

/// Slots in the order of the record; the interpreter applies them in array order.
class Slots {
 public:
  void AddData(int slot, void* data) {
    if (data) slots_.push_back({slot, data});
  }

  template <class Function>
  void Add(int slot, Function* function) {
    AddData(slot, reinterpret_cast<void*>(function));
  }

  PyType_Slot* Terminated() {
    slots_.push_back({0, nullptr});
    return slots_.data();
  }

 private:
  std::vector<PyType_Slot> slots_;
};

void AddOperations(Slots& slots, const TypeDefinition& d) {
  slots.Add(Py_tp_new, d.construct);
  slots.Add(Py_tp_init, d.initialise);
  slots.Add(Py_tp_richcompare, d.compare);
  slots.Add(Py_tp_str, d.to_text);
  slots.Add(Py_tp_iter, d.iterate);
  slots.Add(Py_tp_iternext, d.next);
  slots.Add(Py_nb_add, d.add);
  slots.Add(Py_nb_inplace_add, d.add_in_place);
  slots.Add(Py_nb_subtract, d.subtract);
  slots.Add(Py_nb_inplace_subtract, d.subtract_in_place);
  slots.Add(Py_nb_multiply, d.multiply);
  slots.Add(Py_nb_inplace_multiply, d.multiply_in_place);
  slots.Add(Py_nb_true_divide, d.divide);
  slots.Add(Py_nb_inplace_true_divide, d.divide_in_place);
  slots.Add(Py_mp_length, d.mapping_length);
  slots.Add(Py_mp_subscript, d.mapping_get);
  slots.Add(Py_mp_ass_subscript, d.mapping_set);
  slots.Add(Py_sq_length, d.sequence_length);
  slots.Add(Py_sq_item, d.sequence_get);
  slots.Add(Py_sq_ass_item, d.sequence_set);
  slots.Add(Py_tp_iternext, d.next_again);
  slots.Add(Py_am_await, d.await);
}

void AddTables(Slots& slots, TypeDefinition& d) {
  BuildMethodTable(d);
  BuildPropertyTable(d);
  slots.AddData(Py_tp_methods, d.method_table.empty() ? nullptr : d.method_table.data());
  slots.AddData(Py_tp_getset, d.property_table.empty() ? nullptr : d.property_table.data());
  slots.AddData(Py_tp_base, d.base);
  slots.Add(Py_tp_getattro, d.get_attribute);
  slots.Add(Py_tp_setattro, d.set_attribute);
  slots.Add(Py_tp_repr, d.represent);
  slots.Add(Py_tp_hash, d.hash);
  if (d.get_buffer) {
    slots.Add(Py_bf_getbuffer, d.get_buffer);
    slots.Add(Py_bf_releasebuffer, d.release_buffer);
  }
  slots.AddData(Py_tp_members, WeakListMember());
}

}  // namespace

void ReleaseBufferView(PyObject*, Py_buffer* view) noexcept {
  delete static_cast<BufferView*>(std::exchange(view->internal, nullptr));
}

PyTypeObject* CreateType(TypeDefinition& definition, const char* full_name) {
  Slots slots;
  if (!definition.docstring.empty()) slots.AddData(Py_tp_doc, definition.docstring.data());
  slots.Add(Py_tp_dealloc, &Dealloc);
  AddOperations(slots, definition);
  AddTables(slots, definition);
  PyType_Spec spec{full_name, sizeof(Wrapper), 0, Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HEAPTYPE,
                   slots.Terminated()};
  PyRef type = Checked(PyType_FromSpec(&spec));
  if (!definition.members.empty()) AddMembers(type.Get(), definition.members);
  return reinterpret_cast<PyTypeObject*>(type.Release());
}

}  // namespace Tarn::Binding
