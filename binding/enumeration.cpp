#include "binding/enumeration.h"

#include <structmember.h>

#include <cstddef>

#include "binding/convert.h"
#include "binding/errors.h"

// A member is a descriptor that yields its code on the class as well as on instances. As a data descriptor it
// guards itself on instances; on the class the interpreter would replace it without asking, hence the
// metaclass.

namespace Tarn::Binding {
namespace {

struct Member {
  PyObject ob_base;
  PyObject* value;
  PyObject* docstring;
};

Member* AsMember(PyObject* object) { return reinterpret_cast<Member*>(object); }

int RefuseChange() {
  PyErr_SetString(PyExc_AttributeError, "enumeration members are read only");
  return -1;
}

int SetMember(PyObject*, PyObject*, PyObject*) { return RefuseChange(); }

void DeallocMember(PyObject* self) {
  PyTypeObject* type = Py_TYPE(self);
  Py_XDECREF(AsMember(self)->value);
  Py_XDECREF(AsMember(self)->docstring);
  PyObject_Free(self);
  Py_DECREF(type);
}

PyObject* GetMember(PyObject* self, PyObject*, PyObject*);

PyTypeObject* MemberType() {
  static PyMemberDef fields[] = {{"__doc__", T_OBJECT, offsetof(Member, docstring), READONLY, nullptr},
                                 {nullptr, 0, 0, 0, nullptr}};
  static PyType_Slot slots[] = {{Py_tp_dealloc, reinterpret_cast<void*>(&DeallocMember)},
                                {Py_tp_descr_get, reinterpret_cast<void*>(&GetMember)},
                                {Py_tp_descr_set, reinterpret_cast<void*>(&SetMember)},
                                {Py_tp_members, fields},
                                {0, nullptr}};
  static PyType_Spec spec{"tarn.EnumerationMember", sizeof(Member), 0, Py_TPFLAGS_DEFAULT, slots};
  static PyObject* type = Checked(PyType_FromSpec(&spec)).Release();
  return reinterpret_cast<PyTypeObject*>(type);
}

PyObject* GetMember(PyObject* self, PyObject*, PyObject*) {
  return Guarded<PyObject*>(nullptr, [self] {
    RequireInstance(self, MemberType(), "tarn.EnumerationMember");
    return PyRef::Share(AsMember(self)->value).Release();
  });
}

/// True when a class of the enumeration's line has a member of this name.
bool HasMember(PyObject* type, PyObject* name) {
  const PyRef line = Checked(PyObject_GetAttrString(type, "__mro__"));
  for (Py_ssize_t i = 0; i < PyTuple_Size(line.Get()); ++i) {
    const PyRef attributes = Checked(PyObject_GetAttrString(PyTuple_GetItem(line.Get(), i), "__dict__"));
    const PyRef found = PyRef::Steal(PyObject_GetItem(attributes.Get(), name));
    if (found) return Py_IS_TYPE(found.Get(), MemberType());
    PyErr_Clear();
  }
  return false;
}

int SetOnClass(PyObject* type, PyObject* name, PyObject* value) {
  return Guarded(-1, [&] {
    if (HasMember(type, name)) return RefuseChange();
    static const auto set = reinterpret_cast<setattrofunc>(PyType_GetSlot(&PyType_Type, Py_tp_setattro));
    return set(type, name, value);
  });
}

PyTypeObject* EnumerationClass() {
  static PyType_Slot slots[] = {
      {Py_tp_base, &PyType_Type}, {Py_tp_setattro, reinterpret_cast<void*>(&SetOnClass)}, {0, nullptr}};
  static PyType_Spec spec{"tarn.EnumerationClass", 0, 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE, slots};
  static PyObject* type = Checked(PyType_FromSpec(&spec)).Release();
  return reinterpret_cast<PyTypeObject*>(type);
}

PyRef MakeMember(const MemberEntry& entry) {
  PyRef member = Checked(PyType_GenericAlloc(MemberType(), 0));
  AsMember(member.Get())->value = Checked(PyLong_FromLongLong(entry.value)).Release();
  AsMember(member.Get())->docstring = Checked(PyUnicode_FromString(entry.docstring.c_str())).Release();
  return member;
}

}  // namespace

void AddMembers(PyObject* type, const std::deque<MemberEntry>& members) {
  for (const MemberEntry& entry : members) {
    Checked(PyObject_SetAttrString(type, entry.name.c_str(), MakeMember(entry).Get()));
  }
  // The type was made by the plain metaclass; ours adds the guard and nothing to the layout.
  PyTypeObject* guard = EnumerationClass();
  Py_INCREF(reinterpret_cast<PyObject*>(guard));
  Py_SET_TYPE(type, guard);
}

}  // namespace Tarn::Binding
