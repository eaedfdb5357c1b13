#include "binding/interpreter_end.h"

#include <unistd.h>

#include <atomic>

namespace Tarn::Binding {
namespace {

std::atomic<bool> ending = false;  // written by the exit hook, read wherever a reference is dropped
thread_local bool ends_interpreter = false;

}  // namespace

void BeginInterpreterEnd() noexcept {
  ends_interpreter = true;
  ending = true;
}

bool InterpreterEndedForThisThread() noexcept {
  return ending.load(std::memory_order_relaxed) && !ends_interpreter;
}

void ParkThread() noexcept {
  for (;;) pause();
}

}  // namespace Tarn::Binding
