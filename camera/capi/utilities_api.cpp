#include <syslog.h>

#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include "camera/capi/entry.h"
#include "camera/capi/text_exchange.h"
#include "camera/wire/pfnc.h"
#include "gevserver/library/tr_utilities.h"

namespace {

using Tarn::EngineError;
using Tarn::Failure;

/// A thread's last failure. Of fixed size, so that an error about memory needs none, and so that a failure
/// while the thread's other objects are destroyed finds it still there.
struct LastError {
  TR_STATUS code = TR_OK;
  std::array<char, 1024> text{};
};
thread_local constinit LastError last_error;

/// The number of bytes of `text`, at most `limit`, that end on a whole UTF-8 character.
std::size_t WholeCharacters(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text.size();
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80) --limit;
  return limit;
}

/// The code point at the front of `text`, which it removes; U+FFFD for a byte that begins no UTF-8 character.
char32_t TakeCharacter(std::string_view& text) {
  struct Form {
    unsigned char mask, lead;
    std::size_t size;
    char32_t least;  // smaller ones must use a shorter form
  };
  static constexpr std::array<Form, 4> kForms = {
      {{0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}}};
  const auto lead = static_cast<unsigned char>(text.front());
  for (const Form& form : kForms) {
    if ((lead & form.mask) != form.lead || form.size > text.size()) continue;
    char32_t point = lead & ~form.mask & 0xFFu;
    bool whole = true;
    for (std::size_t i = 1; i < form.size; ++i) {
      const auto next = static_cast<unsigned char>(text[i]);
      whole = whole && (next & 0xC0) == 0x80;
      point = point << 6 | (next & 0x3Fu);
    }
    const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
    if (!whole || point < form.least || point > 0x10FFFF || surrogate) break;
    text.remove_prefix(form.size);
    return point;
  }
  text.remove_prefix(1);
  return 0xFFFD;
}

std::wstring Widened(std::string_view text) {
  static_assert(sizeof(wchar_t) == 4, "a wide character holds any code point");
  std::wstring wide;
  while (!text.empty()) wide.push_back(static_cast<wchar_t>(TakeCharacter(text)));
  return wide;
}

}  // namespace

TR_STATUS TRCGetLastErrorW(TR_STATUS* code, wchar_t* text, size_t* size) {
  return Tarn::EntryKeepingLastError([&] {
    Tarn::CopyText(Widened(last_error.text.data()), text, size);
    if (code != nullptr) *code = last_error.code;
  });
}

void TRCSetLastError(TR_STATUS code, const char* text) {
  const std::string_view given = text == nullptr ? "" : text;
  const std::size_t size = WholeCharacters(given, last_error.text.size() - 1);
  last_error.code = code;
  // The text may be the very one that is stored.
  std::char_traits<char>::move(last_error.text.data(), given.data(), size);
  last_error.text[size] = '\0';
}

const char* TRCLastErrorText() { return last_error.text.data(); }

TR_STATUS TRCGetPFNCValueName(uint32_t value, char* name, size_t* size) {
  return Tarn::Entry([&] {
    const auto format = Tarn::FindPixelFormat(value);
    if (!format) {
      std::array<char, 64> message{};
      std::snprintf(message.data(), message.size(), "no pixel format has the value 0x%08X",
                    static_cast<unsigned>(value));
      throw EngineError(Failure::kNotFound, message.data());
    }
    Tarn::CopyText(format->name, name, size);
  });
}

void ReportTARNErrorEx(TR_STATUS code, const char* message, const char* function_name) {
  ::syslog(LOG_USER | LOG_ERR, "tarn: %s failed with 0x%08X: %s",
           function_name == nullptr ? "a library call" : function_name, static_cast<unsigned>(code),
           message == nullptr ? "" : message);
}
