#pragma once

/// One owned reference to a Python object.

#include <Python.h>

#include <utility>

namespace Tarn::Binding {

/// Owns a reference; a bare `PyObject*` elsewhere is borrowed, except as the value returned to the
/// interpreter.
///
/// Threads: with the interpreter lock held, destruction of a non-empty one included. A thread that the
/// interpreter gives up at its end leaves its references to the process (binding/interpreter_end.h).
class PyRef {
 public:
  PyRef() noexcept = default;
  PyRef(const PyRef& other) noexcept : object_(other.object_) { Py_XINCREF(object_); }
  PyRef(PyRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  PyRef& operator=(PyRef other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~PyRef() {
    if (object_) Drop(object_);
  }

  /// Takes over a new reference; null gives an empty PyRef.
  static PyRef Steal(PyObject* object) noexcept {
    PyRef ref;
    ref.object_ = object;
    return ref;
  }

  /// Adds a reference to a borrowed object.
  static PyRef Share(PyObject* object) noexcept {
    Py_XINCREF(object);
    return Steal(object);
  }

  static PyRef None() noexcept { return Share(Py_None); }

  PyObject* Get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

  /// Hands the reference to the caller.
  [[nodiscard]] PyObject* Release() noexcept { return std::exchange(object_, nullptr); }

 private:
  // May run Python code. References lie in containers, whose destructors let no unwinding pass.
  static void Drop(PyObject* object) noexcept;

  PyObject* object_ = nullptr;
};

}  // namespace Tarn::Binding
