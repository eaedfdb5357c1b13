#include "binding/interpreter_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <stdexcept>
#include <thread>

#include "binding/errors.h"
#include "binding/interpreter_test.h"

namespace Tarn::Binding {
namespace {

TEST(InterpreterLock, ServesForeignThreadsNestsAndPassesExceptionsOn) {
  Testing::NeedInterpreter();
  std::atomic<int> served = 0;
  std::atomic<int> thrown = 0;
  WithoutInterpreterLock([&] {
    std::thread thread([&] {
      for (int i = 0; i < 3; ++i) {
        const auto inner = [&] {
          if (PyRef::Steal(PyList_New(1))) ++served;
          throw std::out_of_range("inner");
        };
        try {
          WithInterpreterLock([&] { WithInterpreterLock(inner); });
        } catch (const std::out_of_range&) {
          ++thrown;
        }
      }
      EXPECT_NE(PyGILState_GetThisThreadState(), nullptr) << "kept between callbacks";
    });
    thread.join();  // ends the thread's record too, for which it takes the lock once more
  });
  EXPECT_EQ(served, 3);
  EXPECT_EQ(thrown, 3);
}

// In a process of its own, as the gate never opens again.
TEST(InterpreterLockDeathTest, TheExitHookWaitsForThoseInsideAndThenRefuses) {
  Testing::NeedInterpreter();
  EXPECT_EXIT(
      {
        bool stopped = false;
        GuardInterpreterEnd([&stopped] { stopped = true; });
        std::latch inside(1);
        std::atomic<bool> done = false;
        std::thread thread;
        WithoutInterpreterLock([&] {
          thread = std::thread([&] {
            WithInterpreterLock([&] {
              inside.count_down();
              WithoutInterpreterLock([] { std::this_thread::sleep_for(std::chrono::milliseconds(50)); });
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
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace Tarn::Binding
