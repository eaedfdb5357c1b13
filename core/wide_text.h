#pragma once

/// Wide text of the libraries as UTF-8.

#include <string>
#include <string_view>

namespace Tarn {

/// Requires: wide characters hold whole code points, as on all systems but Windows.
/// Throws: std::range_error "wstring_convert::to_bytes" for what is no Unicode character.
std::string Utf8FromWide(std::wstring_view text);

}  // namespace Tarn
