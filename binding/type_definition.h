#pragma once

/// The record that describes one Python type, and the routine that turns it into a type object.
/// Types fill it through TypeBuilder or EnumerationBuilder.

#include <Python.h>

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace Tarn::Binding {

struct MethodEntry {
  std::string name;
  std::string docstring;
  bool is_static = false;
  PyCFunctionWithKeywords function = nullptr;
};

struct PropertyEntry {
  std::string name;
  std::string docstring;
  getter get = nullptr;
  setter set = nullptr;  ///< null: read only
};

/// A named code of an enumeration type.
struct MemberEntry {
  std::string name;
  std::string docstring;
  std::int64_t value = 0;
};

/// Frees the shape and strides record that a get-buffer function keeps in the view.
void ReleaseBufferView(PyObject* self, Py_buffer* view) noexcept;

/// Lives as long as the process, and its addresses are stable: the interpreter keeps pointers into the
/// tables.
struct TypeDefinition {
  std::deque<MethodEntry> methods;
  std::vector<PyMethodDef> method_table;
  std::deque<PropertyEntry> properties;
  std::vector<PyGetSetDef> property_table;
  std::string docstring;

  // Special operations, in slot order; null unless the type has them.
  newfunc construct = nullptr;
  initproc initialise = nullptr;
  richcmpfunc compare = nullptr;
  reprfunc to_text = nullptr;
  getiterfunc iterate = nullptr;
  iternextfunc next = nullptr;
  binaryfunc add = nullptr;
  binaryfunc add_in_place = nullptr;
  binaryfunc subtract = nullptr;
  binaryfunc subtract_in_place = nullptr;
  binaryfunc multiply = nullptr;
  binaryfunc multiply_in_place = nullptr;
  binaryfunc divide = nullptr;
  binaryfunc divide_in_place = nullptr;
  lenfunc mapping_length = nullptr;
  binaryfunc mapping_get = nullptr;
  objobjargproc mapping_set = nullptr;
  lenfunc sequence_length = nullptr;
  ssizeargfunc sequence_get = nullptr;
  ssizeobjargproc sequence_set = nullptr;
  iternextfunc next_again = nullptr;  ///< feeds the same slot as `next`, and wins when both are set
  unaryfunc await = nullptr;

  PyTypeObject* base = nullptr;
  int (*get_buffer)(PyObject*, Py_buffer*, int) = nullptr;  ///< null: the type exports no buffer
  void (*release_buffer)(PyObject*, Py_buffer*) = &ReleaseBufferView;
  getattrofunc get_attribute = nullptr;
  setattrofunc set_attribute = nullptr;
  reprfunc represent = nullptr;
  hashfunc hash = nullptr;

  /// Codes of an enumeration: plain ints on the class and on instances, neither assignable nor deletable.
  std::deque<MemberEntry> members;
};

/// Creates the heap type.
/// \param full_name  "tarn.gevserver.Node"; must stay alive
/// Throws: PresetError when the interpreter refuses.
PyTypeObject* CreateType(TypeDefinition& definition, const char* full_name);

/// One record and one type object per X, for the life of the process. The modules' TypeDef derives from it.
template <class X>
class TypeSlot {
 public:
  static TypeDefinition& Get() {
    static TypeDefinition definition;
    return definition;
  }

  /// The type object, created at the first call.
  /// Requires: the interpreter lock held.
  static PyTypeObject* Object(const char* full_name) {
    static PyTypeObject* type = nullptr;
    if (!type) type = CreateType(Get(), full_name);
    return type;
  }
};

}  // namespace Tarn::Binding
