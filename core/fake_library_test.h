#pragma once

/// A stand-in for the libraries below the C line: records calls, fails on demand.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "gevserver/library/tr_status.h"

namespace Tarn::Testing {

/// What all fake libraries share: handles, failures, the last error, the record of calls.
///
/// Tests are single threaded but for callbacks that they make themselves.
class FakeLibrary {
 public:
  /// The one of the running test.
  static FakeLibrary& Instance();

  /// Starts a test afresh.
  void Reset() { *this = FakeLibrary(); }

  /// A new handle with one reference.
  /// \param destroyed  called when its last reference goes
  TR_HANDLE NewHandle(std::function<void()> destroyed = {});
  TR_STATUS Share(TR_HANDLE handle);
  TR_STATUS Release(TR_HANDLE* handle);
  bool IsLive(TR_HANDLE handle) const { return live_.contains(handle); }
  std::size_t LiveHandles() const { return live_.size(); }

  /// The status that calls of `function` answer from now on; TR_OK ends that.
  void Fail(const std::string& function, TR_STATUS status) { failures[function] = status; }

  /// Records a call and tells what it is to answer.
  TR_STATUS Enter(const std::string& function, const std::string& arguments = {});
  /// Number of recorded calls of a function.
  std::size_t Count(const std::string& function) const;

  std::vector<std::string> calls;    ///< "Function(arguments)"
  std::vector<std::string> reports;  ///< "code|message|name" of each reported failure
  std::map<std::string, TR_STATUS> failures;
  TR_STATUS last_error_code = TR_OK;
  std::wstring last_error_text;

 private:
  struct Object {
    int references = 1;
    std::function<void()> destroyed;
  };

  std::map<TR_HANDLE, Object> live_;
  std::uintptr_t last_handle_ = 0;
};

/// Two-call protocol for a text. `size` counts characters with the terminating zero.
template <class Character, class Text>
TR_STATUS AnswerText(const Text& text, Character* buffer, std::size_t* size) {
  const std::size_t needed = text.size() + 1;
  if (buffer != nullptr) {
    if (*size < needed) return TR_E_BUFFER_TOO_SMALL;
    std::copy_n(text.c_str(), needed, buffer);
  }
  *size = needed;
  return TR_OK;
}

}  // namespace Tarn::Testing
