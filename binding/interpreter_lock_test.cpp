#include "binding/interpreter_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <thread>

#include "binding/errors.h"
#include "binding/interpreter_test.h"

namespace Tarn::Binding {
namespace {

TEST(InterpreterLock, ServesForeignThreadsAndNests) {
  Testing::NeedInterpreter();
  std::atomic<int> served = 0;
  const InterpreterUnlock unlocked;
  std::thread thread([&] {
    for (int i = 0; i < 3; ++i) {
      const InterpreterLock outer;
      const InterpreterLock inner;
      if (outer && inner && PyRef::Steal(PyList_New(1))) ++served;
    }
    EXPECT_NE(PyGILState_GetThisThreadState(), nullptr) << "kept between callbacks";
  });
  thread.join();  // ends the thread's record too, for which it takes the lock once more
  EXPECT_EQ(served, 3);
}

// In a process of its own, as the gate never opens again.
TEST(InterpreterLockDeathTest, TheExitHookWaitsForThoseInsideAndThenRefuses) {
  Testing::NeedInterpreter();
  EXPECT_EXIT(
      {
        bool stopped = false;
        CloseGateAtExit([&stopped] { stopped = true; });
        std::latch inside(1);
        std::atomic<bool> done = false;
        std::thread thread;
        {
          const InterpreterUnlock unlocked;
          thread = std::thread([&] {
            const InterpreterLock lock;
            inside.count_down();
            const InterpreterUnlock busy;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            done = true;
          });
          inside.wait();
        }
        const PyRef atexit = PyRef::Steal(PyImport_ImportModule("atexit"));
        const PyRef result = PyRef::Steal(PyObject_CallMethod(atexit.Get(), "_run_exitfuncs", nullptr));
        const InterpreterLock late;
        const bool good = result && stopped && done && !late;
        thread.detach();
        std::_Exit(good ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace Tarn::Binding
