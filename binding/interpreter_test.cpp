// What the runtime below the modules does to an interpreter, without a module.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>
#include <typeindex>

#include "binding/callable_registry.h"
#include "binding/convert.h"
#include "binding/errors.h"
#include "binding/interpreter_lock.h"

namespace Tarn::Binding {
namespace {

/// With an interpreter that is started once. The thread that runs the tests holds its lock.
class InterpreterTest : public testing::Test {
 protected:
  InterpreterTest() {
    if (!Py_IsInitialized()) Py_InitializeEx(0);
  }
};
using InterpreterDeathTest = InterpreterTest;

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

TEST_F(InterpreterTest, EveryNativeFailureHasItsPythonKind) {
  const auto after = [](const auto& exception) {
    EXPECT_EQ(Guarded(-1, [&]() -> int { throw exception; }), -1);
    return Pending();
  };
  EXPECT_EQ(after(std::invalid_argument("a")), "ValueError: a");
  EXPECT_EQ(after(std::out_of_range("b")), "IndexError: b");
  EXPECT_EQ(after(std::overflow_error("c")), "OverflowError: c");
  EXPECT_EQ(after(std::bad_alloc()), "MemoryError: std::bad_alloc");
  EXPECT_EQ(after(std::domain_error("ä")), "RuntimeError: ä");
  PyErr_SetString(PyExc_KeyError, "k");
  EXPECT_EQ(after(PresetError()), "KeyError: 'k'");
  EXPECT_EQ(Guarded(-1, [] { return 7; }), 7);
  bool error_seen = true;
  Guarded(-1, [&]() -> int {
    const std::shared_ptr<void> owner(nullptr, [&](void*) { error_seen = PyErr_Occurred() != nullptr; });
    throw std::runtime_error("e");
  });
  EXPECT_FALSE(error_seen) << "what the body owns goes before the error is set";
  EXPECT_EQ(Pending(), "RuntimeError: e");
}

/// Type and text of what ThrowPythonError makes of the pending error.
std::pair<std::type_index, std::string> Native() {
  try {
    ThrowPythonError("error in test handler");
  } catch (const std::exception& e) {
    EXPECT_EQ(Pending(), "");
    return {typeid(e), e.what()};
  }
}

TEST_F(InterpreterTest, EveryPythonErrorHasItsNativeKind) {
  const std::pair<PyObject*, std::type_index> rows[] = {
      {PyExc_ValueError, typeid(std::invalid_argument)}, {PyExc_RuntimeError, typeid(std::runtime_error)},
      {PyExc_IndexError, typeid(std::out_of_range)},     {PyExc_OverflowError, typeid(std::overflow_error)},
      {PyExc_KeyError, typeid(std::runtime_error)},      {PyExc_UnicodeError, typeid(std::invalid_argument)}};
  for (const auto& [raised, kind] : rows) {
    PyErr_SetString(raised, "text");
    EXPECT_EQ(Native(), std::pair(kind, std::string("text")));
  }
  PyErr_SetString(PyExc_MemoryError, "text");
  EXPECT_EQ(Native().first, typeid(std::bad_alloc));

  const std::pair<std::type_index, std::string> fallback(typeid(std::runtime_error), "error in test handler");
  EXPECT_EQ(Native(), fallback) << "without an error";
  PyErr_SetObject(PyExc_ValueError, PyRef::Steal(PyUnicode_FromOrdinal(0xD800)).Get());
  EXPECT_EQ(Native(), fallback) << "with half a character for a text";
}

TEST_F(InterpreterTest, ACallableIsKeptAsLongAsItIsInUse) {
  const PyRef first = PyRef::Steal(PyList_New(0));
  const PyRef second = PyRef::Steal(PyList_New(0));
  const Py_ssize_t before = Py_REFCNT(first.Get());
  CallableRegistry registry;
  EXPECT_ANY_THROW(registry.Find(kImageRelease, 1));
  for (int i = 0; i < 2; ++i) registry.Store(kImageRelease, 1, first.Get());
  EXPECT_EQ(Py_REFCNT(first.Get()), before + 1) << "one entry for one callable";
  EXPECT_ANY_THROW(registry.Find(kImageRelease, 2));
  registry.Drop(kImageRelease, 1);
  EXPECT_EQ(registry.Find(kImageRelease, 1).Get(), first.Get()) << "one use is left";
  registry.Store(kImageRelease, 1, second.Get());
  EXPECT_EQ(Py_REFCNT(first.Get()), before);
  EXPECT_EQ(registry.Find(kImageRelease, 1).Get(), second.Get());
  for (int i = 0; i < 3; ++i) registry.Drop(kImageRelease, 1);  // once more than there are
  EXPECT_TRUE(registry.Empty());
}

TEST_F(InterpreterTest, TheLockServesForeignThreadsNestsAndPassesExceptionsOn) {
  const auto foreign = [] {
    const auto inner = [] {
      if (PyRef::Steal(PyList_New(1))) throw std::out_of_range("inner");
    };
    for (int i = 0; i < 2; ++i)
      EXPECT_THROW(WithInterpreterLock([&] { WithInterpreterLock(inner); }), std::out_of_range);
    EXPECT_NE(PyGILState_GetThisThreadState(), nullptr) << "kept between callbacks";
  };
  // The end of the thread ends its record too, for which it takes the lock once more.
  WithoutInterpreterLock([&] { std::thread(foreign).join(); });
}

// In a process of its own, as the gate never opens again.
TEST_F(InterpreterDeathTest, TheExitHookWaitsForThoseInsideAndThenRefuses) {
  const auto end = [] {
    std::atomic<bool> stopped = false;
    GuardInterpreterEnd([&stopped] {
      stopped = true;
      stopped.notify_all();
    });
    std::latch inside(1);
    std::atomic<bool> done = false;
    std::thread thread;
    WithoutInterpreterLock([&] {
      thread = std::thread([&] {
        WithInterpreterLock([&] {
          inside.count_down();
          WithoutInterpreterLock([&] {
            stopped.wait(false);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
          });
          done = true;
        });
      });
      inside.wait();
    });
    const PyRef atexit = PyRef::Steal(PyImport_ImportModule("atexit"));
    const PyRef result = PyRef::Steal(PyObject_CallMethod(atexit.Get(), "_run_exitfuncs", nullptr));
    const bool late = WithInterpreterLock([] {});
    const bool good = result && stopped && done && !late;
    thread.detach();
    std::_Exit(good ? 0 : 1);
  };
  EXPECT_EXIT(end(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace Tarn::Binding
