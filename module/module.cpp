#include <Python.h>

#include "binding/convert.h"
#include "binding/errors.h"
#include "binding/interpreter_lock.h"
#include "module/build_id.h"
#include "module/live_servers.h"
#include "module/type_def.h"

// The server module: creates its types in a fixed order.

namespace _tarn::gevserver {

using Tarn::Binding::Checked;
using Tarn::Binding::Guarded;
using Tarn::Binding::PyRef;

#define TARN_ACCESSOR(X) \
  PyTypeObject* TypeObject__##X##__() { return TypeDef<X>::Object("tarn.gevserver." #X); }
TARN_SERVER_TYPES(TARN_ACCESSOR)
#undef TARN_ACCESSOR

namespace {

PyObject* MbiId(PyObject*, PyObject*, PyObject*) {
  return Guarded<PyObject*>(nullptr, [] { return Tarn::Binding::ToPython(BuildId()).Release(); });
}

void AddType(const PyRef& module, const char* name, PyTypeObject* type) {
  Checked(PyModule_AddObjectRef(module.Get(), name, reinterpret_cast<PyObject*>(type)));
}

PyModuleDef& Definition() {
  static PyMethodDef functions[] = {
      {"_mbi_id", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(&MbiId)),
       METH_VARARGS | METH_KEYWORDS, nullptr},
      {nullptr, nullptr, 0, nullptr}};
  static PyModuleDef definition{
      PyModuleDef_HEAD_INIT, "_gevserver", nullptr, -1, functions, nullptr, nullptr, nullptr, nullptr};
  return definition;
}

PyObject* CreateModule() {
  return Guarded<PyObject*>(nullptr, [] {
    Tarn::Binding::RequireMainInterpreterForImport();
    PyRef module = Checked(PyModule_Create(&Definition()));
#define TARN_ADD(X)   \
  TypeDef<X>::Init(); \
  AddType(module, #X, TypeObject__##X##__());
    TARN_SERVER_TYPES(TARN_ADD)
#undef TARN_ADD
    Tarn::Binding::GuardInterpreterEnd(&StopAllServers);
    ForgetServersInForkedChildren();
    return module.Release();
  });
}

}  // namespace
}  // namespace _tarn::gevserver

// One function under two names: the interpreter asks for that of the file.
PyMODINIT_FUNC PyInit__gevserver() { return _tarn::gevserver::CreateModule(); }
PyMODINIT_FUNC PyInit__gevserver_311() __attribute__((alias("PyInit__gevserver")));
