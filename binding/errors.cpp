#include "binding/errors.h"

#include <new>

#include "core/tarn_exception.h"

namespace Tarn::Binding {

OverloadParseError::OverloadParseError()
    : std::invalid_argument("the arguments do not match any of the expected signatures of the function") {}

void ThrowMismatch(const char* type_name) {
  throw std::invalid_argument(std::string("type miss match - cannot convert object to ") + type_name);
}

namespace {

/// str(value) as UTF-8; false when there is no such text.
bool MessageOf(PyObject* value, std::string& message) {
  if (!value) return false;
  const PyRef text = PyRef::Steal(PyObject_Str(value));
  if (!text) return false;
  Py_ssize_t size = 0;
  const char* utf8 = PyUnicode_AsUTF8AndSize(text.Get(), &size);
  if (!utf8) return false;
  message.assign(utf8, static_cast<std::size_t>(size));
  return true;
}

}  // namespace

void ThrowPythonError(const char* fallback) {
  PyObject* fetched[3] = {};
  PyErr_Fetch(&fetched[0], &fetched[1], &fetched[2]);
  const PyRef type = PyRef::Steal(fetched[0]);
  const PyRef value = PyRef::Steal(fetched[1]);
  const PyRef trace = PyRef::Steal(fetched[2]);
  if (!type) throw std::runtime_error(fallback);
  std::string message;
  if (!MessageOf(value.Get(), message)) {
    PyErr_Clear();
    throw std::runtime_error(fallback);
  }
  const auto is = [&](PyObject* kind) { return PyErr_GivenExceptionMatches(type.Get(), kind) != 0; };
  if (is(PyExc_ValueError)) throw std::invalid_argument(message);
  if (is(PyExc_RuntimeError)) throw std::runtime_error(message);
  if (is(PyExc_IndexError)) throw std::out_of_range(message);
  if (is(PyExc_OverflowError)) throw std::overflow_error(message);
  if (is(PyExc_MemoryError)) throw std::bad_alloc();
  throw std::runtime_error(message);
}

namespace {

/// Gives the pending error a note, which tracebacks show below the text.
void AddNote(const std::string& note) {
  PyObject* error[3] = {};
  PyErr_Fetch(&error[0], &error[1], &error[2]);
  PyErr_NormalizeException(&error[0], &error[1], &error[2]);
  const PyRef noted = PyRef::Steal(PyObject_CallMethod(error[1], "add_note", "s", note.c_str()));
  if (!noted) PyErr_Clear();  // the failure itself matters more
  PyErr_Restore(error[0], error[1], error[2]);
}

}  // namespace

void SetPythonError(const std::exception_ptr& caught) {
  try {
    std::rethrow_exception(caught);
  } catch (const PresetError&) {
  } catch (const std::invalid_argument& e) {
    PyErr_SetString(PyExc_ValueError, e.what());
  } catch (const std::out_of_range& e) {
    PyErr_SetString(PyExc_IndexError, e.what());
  } catch (const std::overflow_error& e) {
    PyErr_SetString(PyExc_OverflowError, e.what());
  } catch (const std::bad_alloc& e) {
    PyErr_SetString(PyExc_MemoryError, e.what());
  } catch (const ReasonedError& e) {
    PyErr_SetString(PyExc_RuntimeError, e.what());
    if (!e.Reason().empty()) AddNote(e.Reason());
  } catch (const std::exception& e) {
    PyErr_SetString(PyExc_RuntimeError, e.what());
  }
}

}  // namespace Tarn::Binding
