#pragma once

/// What becomes of threads that the interpreter gives up when it ends.
///
/// Once finalisation has begun, CPython ends every other thread that asks for the interpreter lock: it
/// unwinds the thread by force (or, from 3.14 on, never lets it go on). Frames under which Python runs let
/// that pass: they are not noexcept and catch std::exception only. Where it cannot pass, in destructors and
/// at the border to a library, the thread is parked. An unwinding thread does not hold the lock, so it leaves
/// its references to the process.

namespace Tarn::Binding {

/// From here on the calling thread is the only one that may touch Python objects. Called once, by the exit
/// hook.
void BeginInterpreterEnd() noexcept;

/// True on every thread but the ending one once the interpreter ends: hands off Python objects.
bool InterpreterEndedForThisThread() noexcept;

/// Sleeps until the process is gone. For threads that the interpreter unwinds where nothing can unwind.
[[noreturn]] void ParkThread() noexcept;

}  // namespace Tarn::Binding
