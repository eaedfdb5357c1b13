#include <Python.h>

#include "binding/errors.h"
#include "binding/interpreter_lock.h"
#include "core/module/type_def.h"

// The core module: values, codes and images that the server module takes and returns.

namespace tarn {

#define TARN_ACCESSOR(X)                                      \
  PyTypeObject* TypeObject__##X##__() {                       \
    static const bool described = (TypeDef<X>::Init(), true); \
    static_cast<void>(described);                             \
    return TypeDef<X>::Object("tarn." #X);                    \
  }
TARN_CORE_TYPES(TARN_ACCESSOR)
#undef TARN_ACCESSOR

namespace {

using Tarn::Binding::Checked;
using Tarn::Binding::PyRef;

void AddType(const PyRef& module, const char* name, PyTypeObject* type) {
  Checked(PyModule_AddObjectRef(module.Get(), name, reinterpret_cast<PyObject*>(type)));
}

PyObject* CreateModule() {
  return Tarn::Binding::Guarded<PyObject*>(nullptr, [] {
    Tarn::Binding::RequireMainInterpreterForImport();
    static PyModuleDef definition{
        PyModuleDef_HEAD_INIT, "_tarn", nullptr, -1, nullptr, nullptr, nullptr, nullptr, nullptr};
    PyRef module = Checked(PyModule_Create(&definition));
#define TARN_ADD(X) AddType(module, #X, TypeObject__##X##__());
    TARN_CORE_TYPES(TARN_ADD)
#undef TARN_ADD
    AddDataTypes(TypeObject__DataType__());
    Tarn::Binding::GuardInterpreterEnd({});
    return module.Release();
  });
}

}  // namespace
}  // namespace tarn

// One function under two names: the interpreter asks for that of the file.
PyMODINIT_FUNC PyInit__tarn() { return tarn::CreateModule(); }
PyMODINIT_FUNC PyInit__tarn_311() __attribute__((alias("PyInit__tarn")));
