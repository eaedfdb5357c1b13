#pragma once

/// Texts on their way into the libraries, which end them at the first null character.

#include <stdexcept>
#include <string>

namespace Tarn {

/// The text as the libraries take it; valid as long as `text`.
/// Throws: std::invalid_argument when it contains a null character, behind which all would be lost.
inline const char* CText(const std::string& text) {
  if (text.find('\0') != std::string::npos) {
    throw std::invalid_argument("text must not contain a null character");
  }
  return text.c_str();
}

}  // namespace Tarn
