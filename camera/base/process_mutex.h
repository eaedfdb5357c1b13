#pragma once

/// What keeps a fork from leaving locks behind that nobody will ever open, and tells what belongs to the
/// parent.
///
/// A forked child has one thread. A lock that another thread held at that moment stays locked there, over
/// data in the middle of a change. So the forking thread takes every lock of this kind first, which waits for
/// moments only, and both processes go on with all of them open.

#include <functional>

#include "camera/base/mutex.h"

namespace Tarn {

/// A lock that threads of the library take while a thread of the program may fork. Held for moments; of two
/// that are held together, the one that is made first is taken first, as a fork takes them.
class ProcessMutex : public Mutex {
 public:
  ProcessMutex();
  ~ProcessMutex();
};

/// The same for a lock that is there before anything can be constructed, and to the very end.
void GuardAtForks(Mutex& mutex);

/// Number of forks between the process that loaded the library and this one. What was made under another
/// number belongs to a parent: its threads do not exist here.
unsigned ForkGeneration() noexcept;

/// Has `handler` called in every forked child, on its only thread, while the locks are still held.
/// Throws: std::system_error when the process can register no handlers of forks.
void OnForkedChild(std::function<void()> handler);

}  // namespace Tarn
