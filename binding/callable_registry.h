#pragma once

/// Python callables that wait for native events.

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "binding/py_ref.h"

namespace Tarn::Binding {

/// An event kind that Python can listen to: its key in the registry and the text of last resort for its
/// failures.
struct CallableType {
  std::string_view name;
  const char* failure;
};

inline constexpr CallableType kImageRelease{"image_release", "error in image_release handler"};
inline constexpr CallableType kEventUpdated{"event_updated", "error in event_updated handler"};
inline constexpr CallableType kEventOnReadUpdated{"event_on_read_updated",
                                                  "error in event_on_read_updated handler"};
inline constexpr CallableType kEventWrittenUpdated{"event_written_updated",
                                                   "error in event_written_updated handler"};

/// Callables by event kind and id. Each is held strongly until as many Drop as Store calls were made for it,
/// or until the registry is cleared or goes.
/// Threads: with the interpreter lock held.
class CallableRegistry {
 public:
  /// Keeps the callable once more under (type, id); a different callable replaces the stored one.
  void Store(const CallableType& type, std::int64_t id, PyObject* callable);

  /// Takes one Store back. Nothing happens when the id is unknown.
  void Drop(const CallableType& type, std::int64_t id);

  /// Throws: std::runtime_error "no such callable type" or "no such callable for this id".
  PyRef Find(const CallableType& type, std::int64_t id) const;

  /// Lets go of every callable. What they run when they go finds the registry empty.
  void Clear();

  bool Empty() const noexcept { return callables_.empty(); }

 private:
  struct Entry {
    PyRef callable;
    std::size_t uses = 0;
  };
  std::map<std::string, std::map<std::int64_t, Entry>, std::less<>> callables_;
};

}  // namespace Tarn::Binding
