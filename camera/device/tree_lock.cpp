#include "camera/device/tree_lock.h"

#include "camera/base/process_mutex.h"

namespace Tarn {

Mutex& TreeLock() {
  // Never destroyed: threads of an abandoned device may still end after the process began to exit.
  static Mutex& lock = *new ProcessMutex;
  return lock;
}

}  // namespace Tarn
