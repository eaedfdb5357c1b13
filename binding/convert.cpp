#include "binding/convert.h"

#include <cmath>

namespace Tarn::Binding {
namespace {

std::int64_t ReadLong(PyObject* object) {
  const long long value = PyLong_AsLongLong(object);
  if (value == -1 && PyErr_Occurred()) throw PresetError();
  return value;
}

std::string Utf8Of(PyObject* text) {
  const PyRef bytes = Checked(PyUnicode_AsUTF8String(text));
  char* data = nullptr;
  Py_ssize_t size = 0;
  Checked(PyBytes_AsStringAndSize(bytes.Get(), &data, &size));
  return {data, static_cast<std::size_t>(size)};
}

std::int64_t Rounded(double value) {
  const double rounded = std::round(value);
  // 2^63 as a double is exact, so this keeps just the numbers that a 64-bit integer has; not-a-number fails
  // too.
  if (!(rounded >= -0x1p63 && rounded < 0x1p63))
    throw std::overflow_error("float too large to convert to int");
  return static_cast<std::int64_t>(rounded);
}

}  // namespace

std::int64_t Converter<std::int64_t>::FromPython(PyObject* object) {
  if (PyLong_CheckExact(object)) return ReadLong(object);
  if (PyFloat_CheckExact(object)) return Rounded(PyFloat_AsDouble(object));
  const PyRef number = PyRef::Steal(PyNumber_Long(object));
  if (!number || !PyLong_CheckExact(number.Get())) {
    PyErr_Clear();
    ThrowMismatch("int");
  }
  return ReadLong(number.Get());
}

double Converter<double>::FromPython(PyObject* object) {
  double value = 0;
  if (PyLong_CheckExact(object)) {
    value = PyLong_AsDouble(object);
  } else if (PyFloat_CheckExact(object)) {
    value = PyFloat_AsDouble(object);
  } else {
    value = PyFloat_AsDouble(Checked(PyNumber_Float(object)).Get());
  }
  if (value == -1 && PyErr_Occurred()) throw PresetError();
  return value;
}

bool Converter<bool>::FromPython(PyObject* object) {
  const int truth = PyObject_IsTrue(object);
  Checked(truth);
  return truth != 0;
}

std::string Converter<std::string>::FromPython(PyObject* object) {
  if (!PyUnicode_CheckExact(object)) ThrowMismatch("str");
  return Utf8Of(object);
}

PyRef Converter<std::string>::ToPython(const std::string& value) {
  return Checked(PyUnicode_FromStringAndSize(value.data(), static_cast<Py_ssize_t>(value.size())));
}

ExactInt Converter<ExactInt>::FromPython(PyObject* object) {
  if (!PyLong_CheckExact(object)) ThrowMismatch("int");
  return {ReadLong(object)};
}

AnyText Converter<AnyText>::FromPython(PyObject* object) {
  return {Utf8Of(Checked(PyObject_Str(object)).Get())};
}

Callable Converter<Callable>::FromPython(PyObject* object) {
  if (!PyCallable_Check(object)) throw std::runtime_error("callable object required");
  return {object};
}

void InsertItem(const PyRef& dictionary, const std::string& key, const PyRef& value) {
  const PyRef name = Converter<std::string>::ToPython(key);
  if (PyDict_SetItem(dictionary.Get(), name.Get(), value.Get()) < 0) {
    PyErr_Clear();
    throw std::runtime_error("failed to insert item in python dict");
  }
}

}  // namespace Tarn::Binding
