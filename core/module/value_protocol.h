#pragma once

/// Comparison, hash, iteration and texts of the value types.
///
/// A value type tells its fields with Fields(value), a tuple of references in the order of its constructor.

#include <Python.h>

#include <memory>
#include <string>
#include <tuple>

#include "binding/convert.h"
#include "binding/core_values.h"
#include "binding/errors.h"

namespace tarn {

using namespace Tarn::Binding;

inline auto Fields(const Tarn::Size2D& v) { return std::tie(v.width, v.height); }
inline auto Fields(const Tarn::Point2D& v) { return std::tie(v.x, v.y); }
inline auto Fields(const Tarn::DataType& v) { return std::make_tuple(v.Descriptor()); }
inline auto Fields(const Tarn::NetworkConnection& v) { return std::tie(v.address, v.port); }
inline auto Fields(const Tarn::EventCookie& v) { return std::tie(v.id); }
inline auto Fields(const Tarn::GenApiVersion& v) {
  return std::tie(v.major_version, v.minor_version, v.sub_minor_version);
}

template <class Value>
PyRef FieldsAsTuple(PyObject* self) {
  const auto value = FromPython<Value>(self);
  return std::apply(
      [](const auto&... field) {
        const PyRef objects[] = {ToPython(field)...};
        PyRef tuple = Checked(PyTuple_New(static_cast<Py_ssize_t>(sizeof...(field))));
        Py_ssize_t index = 0;
        for (const PyRef& object : objects)
          Checked(PyTuple_SetItem(tuple.Get(), index++, PyRef(object).Release()));
        return tuple;
      },
      Fields(value));
}

/// Equality, and order where `Ordered`; with anything else the interpreter decides.
template <class Value, PyTypeObject* (*Type)(), bool Ordered = false>
PyObject* Compare(PyObject* self, PyObject* other, int operation) {
  return Guarded<PyObject*>(nullptr, [&] {
    const bool alike = PyObject_TypeCheck(other, Type()) != 0;
    if (!alike || (!Ordered && operation != Py_EQ && operation != Py_NE)) {
      return PyRef::Share(Py_NotImplemented).Release();
    }
    return Checked(PyObject_RichCompare(FieldsAsTuple<Value>(self).Get(), FieldsAsTuple<Value>(other).Get(),
                                        operation))
        .Release();
  });
}

template <class Value>
Py_hash_t Hash(PyObject* self) {
  return Guarded<Py_hash_t>(-1, [self] {
    const Py_hash_t hash = PyObject_Hash(FieldsAsTuple<Value>(self).Get());
    if (hash == -1) throw PresetError();
    return hash;
  });
}

template <class Value>
PyObject* Iterate(PyObject* self) {
  return Guarded<PyObject*>(
      nullptr, [self] { return Checked(PyObject_GetIter(FieldsAsTuple<Value>(self).Get())).Release(); });
}

/// `format` is for the % operator and takes all fields. Format: a function, as texts are no template
/// arguments.
template <class Value, const char* (*Format)()>
PyObject* Represent(PyObject* self) {
  return Guarded<PyObject*>(nullptr, [self] {
    const PyRef format = Checked(PyUnicode_FromString(Format()));
    return Checked(PyUnicode_Format(format.Get(), FieldsAsTuple<Value>(self).Get())).Release();
  });
}

template <class Value>
PyObject* Text(PyObject* self) {
  return Guarded<PyObject*>(nullptr,
                            [self] { return ToPython(FromPython<Value>(self).ToString()).Release(); });
}

}  // namespace tarn
