#pragma once

/// The one lock of all feature trees and free nodes of the process.
///
/// One for all, since a free node belongs to no tree yet, and nodes move into trees while callers use them.
/// It is held for microseconds, except while a description is written, and never across a call out.

#include "camera/base/mutex.h"

namespace Tarn {

Mutex& TreeLock();

}  // namespace Tarn
