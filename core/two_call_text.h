#pragma once

/// Reading a text from the libraries: once for its size, once for its bytes.

#include <cstddef>
#include <cstring>
#include <string>

#include "gevserver/library/tr_status.h"

namespace Tarn {

/// Text of a library call that stores the size for a null buffer and fills a buffer of that size.
///
/// A text that grew in between is asked for again, a few times; a client may be writing it just now.
/// \param call        (char* buffer, std::size_t* size) -> TR_STATUS
/// \param check_size  (TR_STATUS), throws when the first call failed
/// \param check_text  (TR_STATUS), throws when the second one failed
template <class Call, class CheckSize, class CheckText>
std::string ReadTwoCallText(Call&& call, CheckSize&& check_size, CheckText&& check_text) {
  constexpr int kAttempts = 3;
  std::string text;
  for (int attempt = 1;; ++attempt) {
    std::size_t size = 0;
    check_size(call(nullptr, &size));
    text.assign(size + 1, '\0');
    const TR_STATUS status = call(text.data(), &size);
    if (status == TR_E_BUFFER_TOO_SMALL && attempt < kAttempts) continue;
    check_text(status);
    text.resize(std::strlen(text.c_str()));
    return text;
  }
}

/// The same with one check for both calls.
template <class Call, class Check>
std::string ReadTwoCallText(Call&& call, Check&& check) {
  return ReadTwoCallText(call, check, check);
}

}  // namespace Tarn
