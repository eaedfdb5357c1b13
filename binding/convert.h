#pragma once

/// Values between Python and native code, both ways.
///
/// Converter<T>::FromPython(object) gives a T or throws; Converter<T>::ToPython(value) gives a new object.
/// Specialise it for further types; a type that crosses in one direction has that function only.

#include <Python.h>

#include <concepts>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "binding/errors.h"
#include "binding/wrapper.h"

namespace Tarn::Binding {

template <class T>
struct Converter;

template <class T>
T FromPython(PyObject* object) {
  return Converter<T>::FromPython(object);
}

template <class T>
PyRef ToPython(const T& value) {
  return Converter<T>::ToPython(value);
}

/// An `int` and nothing that merely converts to one.
struct ExactInt {
  std::int64_t value;
};

/// The text that str() makes of any object.
struct AnyText {
  std::string text;
};

/// Something that can be called, borrowed for the call.
struct Callable {
  PyObject* object;
};

template <>
struct Converter<std::int64_t> {
  /// An exact float is rounded, halves away from zero; other types go through the interpreter's int().
  static std::int64_t FromPython(PyObject* object);
  static PyRef ToPython(std::int64_t value) { return Checked(PyLong_FromLongLong(value)); }
};

/// Narrower integers.
/// Throws: std::overflow_error when the number does not fit.
template <std::integral T>
requires(!std::same_as<T, bool> && !std::same_as<T, std::int64_t>) struct Converter<T> {
  static T FromPython(PyObject* object) {
    const std::int64_t wide = Converter<std::int64_t>::FromPython(object);
    if (!std::in_range<T>(wide)) throw std::overflow_error("integer does not fit the parameter's range");
    return static_cast<T>(wide);
  }
  static PyRef ToPython(T value) {
    if constexpr (std::is_signed_v<T>) {
      return Checked(PyLong_FromLongLong(value));
    } else {
      return Checked(PyLong_FromUnsignedLongLong(value));
    }
  }
};

/// Codes cross as plain integers.
template <class T>
requires std::is_enum_v<T>
struct Converter<T> {
  using Number = std::underlying_type_t<T>;
  static T FromPython(PyObject* object) { return static_cast<T>(Converter<Number>::FromPython(object)); }
  static PyRef ToPython(T value) { return Converter<Number>::ToPython(static_cast<Number>(value)); }
};

template <>
struct Converter<double> {
  static double FromPython(PyObject* object);
  static PyRef ToPython(double value) { return Checked(PyFloat_FromDouble(value)); }
};

template <>
struct Converter<bool> {
  static bool FromPython(PyObject* object);
  static PyRef ToPython(bool value) { return PyRef::Share(value ? Py_True : Py_False); }
};

template <>
struct Converter<std::string> {
  /// Exact `str` only, as UTF-8.
  static std::string FromPython(PyObject* object);
  static PyRef ToPython(const std::string& value);
};

template <>
struct Converter<ExactInt> {
  static ExactInt FromPython(PyObject* object);
};

template <>
struct Converter<AnyText> {
  static AnyText FromPython(PyObject* object);
};

template <>
struct Converter<Callable> {
  /// Throws: std::runtime_error "callable object required".
  static Callable FromPython(PyObject* object);
};

/// Any object, borrowed; for functions that look at it themselves.
template <>
struct Converter<PyObject*> {
  static PyObject* FromPython(PyObject* object) { return object; }
};

/// A Python object that native code made itself.
template <>
struct Converter<PyRef> {
  static PyRef ToPython(const PyRef& value) { return value ? value : PyRef::None(); }
};

/// None stands for an absent value.
template <class T>
struct Converter<std::optional<T>> {
  static std::optional<T> FromPython(PyObject* object) {
    if (Py_IsNone(object)) return std::nullopt;
    return Converter<T>::FromPython(object);
  }
  static PyRef ToPython(const std::optional<T>& value) {
    return value ? Converter<T>::ToPython(*value) : PyRef::None();
  }
};

/// A new list of `size` entries made by `entry(index)`.
template <class MakeEntry>
PyRef MakeList(std::size_t size, MakeEntry&& entry) {
  // All entries first: making them may run Python code, which would find the gaps of a list that is half
  // full.
  std::vector<PyRef> entries;
  entries.reserve(size);
  for (std::size_t i = 0; i < size; ++i) entries.push_back(entry(i));
  PyRef list = PyRef::Steal(PyList_New(static_cast<Py_ssize_t>(size)));
  if (!list) throw std::runtime_error("failed to create python list");
  for (std::size_t i = 0; i < size; ++i) {
    Checked(PyList_SetItem(list.Get(), static_cast<Py_ssize_t>(i), entries[i].Release()));
  }
  return list;
}

template <class T>
struct Converter<std::vector<T>> {
  static PyRef ToPython(const std::vector<T>& values) {
    return MakeList(values.size(), [&](std::size_t i) { return Converter<T>::ToPython(values[i]); });
  }
};

/// Puts one item into a dictionary.
/// Throws: std::runtime_error "failed to insert item in python dict".
void InsertItem(const PyRef& dictionary, const std::string& key, const PyRef& value);

template <class T>
struct Converter<std::map<std::string, T>> {
  static PyRef ToPython(const std::map<std::string, T>& values) {
    PyRef dictionary = PyRef::Steal(PyDict_New());
    if (!dictionary) throw std::runtime_error("failed to create python dictionary");
    for (const auto& [key, value] : values) InsertItem(dictionary, key, Converter<T>::ToPython(value));
    return dictionary;
  }
};

/// Throws the mismatch error unless the object is an instance of the type. Asks the object's real type and
/// not its `__class__`, which proxies and mocks borrow from others: what follows reads the memory of a
/// wrapper.
inline void RequireInstance(PyObject* object, PyTypeObject* type, const char* type_name) {
  if (!PyObject_TypeCheck(object, type)) ThrowMismatch(type_name);
}

}  // namespace Tarn::Binding
