#pragma once

/// Scope guards for the interpreter lock, and the gate that keeps foreign threads out of a dying interpreter.
///
/// CPython 3.11 unwinds a foreign thread by force when it asks for the lock during finalisation, which aborts
/// the process in a noexcept frame. So threads that are not Python's pass a gate first; an exit hook closes
/// it before finalisation begins, and waits for those inside.

#include <Python.h>

#include <functional>

namespace Tarn::Binding {

/// Takes the interpreter lock on any thread, also one that holds it already.
/// Test it before touching Python: it is empty once the interpreter is on its way out.
class InterpreterLock {
 public:
  InterpreterLock() noexcept;
  ~InterpreterLock();
  InterpreterLock(const InterpreterLock&) = delete;
  InterpreterLock& operator=(const InterpreterLock&) = delete;

  explicit operator bool() const noexcept { return held_; }

 private:
  bool held_;
  PyGILState_STATE state_{};
};

/// Gives the interpreter lock away for a scope. Requires: the lock held by this thread.
class InterpreterUnlock {
 public:
  InterpreterUnlock() noexcept : thread_(PyEval_SaveThread()) {}
  ~InterpreterUnlock() { PyEval_RestoreThread(thread_); }
  InterpreterUnlock(const InterpreterUnlock&) = delete;
  InterpreterUnlock& operator=(const InterpreterUnlock&) = delete;

 private:
  PyThreadState* thread_;
};

/// Registers an exit hook with the interpreter: runs `before_closing` without the interpreter lock, then
/// closes the gate and waits, at most 5 s, for threads inside. Once per extension module, at its
/// import. Throws: PresetError when the hook cannot be registered.
void CloseGateAtExit(std::function<void()> before_closing);

}  // namespace Tarn::Binding
