#include "binding/errors.h"

#include <gtest/gtest.h>

#include <new>
#include <optional>
#include <stdexcept>
#include <typeinfo>

#include "binding/convert.h"
#include "binding/interpreter_test.h"

namespace Tarn::Binding {
namespace {

using Testing::NeedInterpreter;

/// Name of the pending Python error's type and its text, which is cleared; empty when there is none.
std::string Pending() {
  PyObject *type = nullptr, *value = nullptr, *trace = nullptr;
  PyErr_Fetch(&type, &value, &trace);
  PyErr_NormalizeException(&type, &value, &trace);
  const PyRef owned[] = {PyRef::Steal(type), PyRef::Steal(value), PyRef::Steal(trace)};
  if (!type) return "";
  const PyRef name = PyRef::Steal(PyType_GetName(reinterpret_cast<PyTypeObject*>(type)));
  return FromPython<std::string>(name.Get()) + ": " + FromPython<AnyText>(value).text;
}

template <class Exception>
std::string AfterThrowing(const Exception& exception) {
  EXPECT_EQ(Guarded(-1, [&]() -> int { throw exception; }), -1);
  return Pending();
}

TEST(Guarded, GivesEveryNativeFailureItsPythonKind) {
  NeedInterpreter();
  EXPECT_EQ(AfterThrowing(std::invalid_argument("a")), "ValueError: a");
  EXPECT_EQ(AfterThrowing(OverloadParseError()),
            "ValueError: the arguments do not match any of the expected signatures of the function");
  EXPECT_EQ(AfterThrowing(std::out_of_range("b")), "IndexError: b");
  EXPECT_EQ(AfterThrowing(std::overflow_error("c")), "OverflowError: c");
  EXPECT_EQ(AfterThrowing(std::bad_alloc()), "MemoryError: std::bad_alloc");
  EXPECT_EQ(AfterThrowing(std::runtime_error("d")), "RuntimeError: d");
  EXPECT_EQ(AfterThrowing(std::domain_error("ä")), "RuntimeError: ä");
  EXPECT_EQ(Guarded(-1, [] { return 7; }), 7);
  EXPECT_EQ(Pending(), "");
}

TEST(Guarded, KeepsAnErrorThatThePythonSideHasSet) {
  NeedInterpreter();
  PyErr_SetString(PyExc_KeyError, "k");
  EXPECT_EQ(AfterThrowing(PresetError()), "KeyError: 'k'");
}

TEST(Guarded, ReleasesWhatTheBodyOwnsBeforeItSetsTheError) {
  NeedInterpreter();
  struct Owner {
    ~Owner() { *seen = PyErr_Occurred() != nullptr; }
    bool* seen;
  };
  bool error_seen = true;
  Guarded(-1, [&]() -> int {
    const Owner owner{&error_seen};
    throw std::runtime_error("e");
  });
  EXPECT_FALSE(error_seen);
  EXPECT_EQ(Pending(), "RuntimeError: e");
}

/// Type and text of what ThrowPythonError makes of the pending error.
std::pair<const std::type_info*, std::string> Native() {
  try {
    ThrowPythonError("error in test handler");
  } catch (const std::exception& e) {
    EXPECT_EQ(Pending(), "");
    return {&typeid(e), e.what()};
  }
}

TEST(ThrowPythonError, GivesEveryPythonErrorItsNativeKind) {
  NeedInterpreter();
  struct Row {
    PyObject* raised;
    const char* text;
    const std::type_info& kind;
    const char* expected;
  };
  const Row rows[] = {
      {PyExc_ValueError, "a", typeid(std::invalid_argument), "a"},
      {PyExc_UnicodeError, "subclass of ValueError", typeid(std::invalid_argument), "subclass of ValueError"},
      {PyExc_RuntimeError, "b", typeid(std::runtime_error), "b"},
      {PyExc_IndexError, "c", typeid(std::out_of_range), "c"},
      {PyExc_OverflowError, "d", typeid(std::overflow_error), "d"},
      {PyExc_MemoryError, "e", typeid(std::bad_alloc), "std::bad_alloc"},
      {PyExc_KeyError, "f", typeid(std::runtime_error), "f"},
      {PyExc_KeyboardInterrupt, "g", typeid(std::runtime_error), "g"},
  };
  for (const Row& row : rows) {
    PyErr_SetString(row.raised, row.text);
    const auto [kind, text] = Native();
    EXPECT_EQ(*kind, row.kind) << row.text;
    EXPECT_EQ(text, row.expected);
  }
}

TEST(ThrowPythonError, FallsBackWhenThereIsNoText) {
  NeedInterpreter();
  EXPECT_EQ(Native().second, "error in test handler");
  // A value whose str() raises.
  const PyRef globals = PyRef::Steal(PyDict_New());
  PyDict_SetItemString(globals.Get(), "__builtins__", PyEval_GetBuiltins());
  const PyRef code = PyRef::Steal(Py_CompileString(
      "class E(ValueError):\n  def __str__(self): raise KeyError\nraise E\n", "test", Py_file_input));
  ASSERT_TRUE(code);
  EXPECT_FALSE(PyRef::Steal(PyEval_EvalCode(code.Get(), globals.Get(), globals.Get())));
  const auto [kind, text] = Native();
  EXPECT_EQ(*kind, typeid(std::runtime_error));
  EXPECT_EQ(text, "error in test handler");
}

}  // namespace
}  // namespace Tarn::Binding
