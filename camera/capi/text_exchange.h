#pragma once

/// The two-call protocol by which texts cross the C line.

#include <cstddef>
#include <string>
#include <string_view>

#include "camera/base/engine_error.h"

namespace Tarn {

/// Copies `text` and a terminating zero to `buffer`; with a null buffer only tells the size.
///
/// \param size  characters: the room in the buffer on entry, what was or would be written on return
/// Throws: EngineError(kInvalidArgument) without a size, EngineError(kBufferTooSmall) when the text does not
/// fit; nothing is written then.
template <class Char>
void CopyCharacters(std::basic_string_view<Char> text, Char* buffer, std::size_t* size) {
  if (size == nullptr) throw EngineError(Failure::kInvalidArgument, "size must not be null");
  const std::size_t needed = text.size() + 1;
  if (buffer != nullptr) {
    if (*size < needed) {
      throw EngineError(Failure::kBufferTooSmall, "the text needs a buffer of " + std::to_string(needed) +
                                                      " characters, the size given is " +
                                                      std::to_string(*size));
    }
    text.copy(buffer, text.size());
    buffer[text.size()] = Char{};
  }
  *size = needed;
}

/// A text that a caller gave.
/// Throws: EngineError(kInvalidArgument) when it is null.
inline const char* TextArgument(const char* text) {
  if (text == nullptr) throw EngineError(Failure::kInvalidArgument, "the text must not be null");
  return text;
}

inline void CopyText(std::string_view text, char* buffer, std::size_t* size) {
  CopyCharacters(text, buffer, size);
}

inline void CopyText(std::wstring_view text, wchar_t* buffer, std::size_t* size) {
  CopyCharacters(text, buffer, size);
}

}  // namespace Tarn
