// Whatever stands in a text or an attribute, the document stays well-formed, and a second element beside it
// stays what it was.

#include <string>

#include "camera/engine/xml/xml_writer.h"
#include "fuzz/fuzz.h"

namespace {

using namespace Tarn;

/// The length of the character at the front of `text`: a reference to a named character or a sequence of UTF-8,
/// no markup, nothing that XML forbids.
std::size_t LengthOfCharacter(std::string_view text) {
  for (const std::string_view name : {"&amp;", "&lt;", "&gt;", "&quot;"}) {
    if (text.starts_with(name)) return name.size();
  }
  const auto lead = static_cast<unsigned char>(text.front());
  Require(lead >= 0x20 || lead == '\t' || lead == '\n' || lead == '\r');
  Require(lead != '&' && lead != '<' && lead != '>' && lead != '"');
  if (lead < 0x80) return 1;
  Require(lead >= 0xC2 && lead <= 0xF4);
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  Require(length <= text.size());
  for (const char c : text.substr(1, length - 1)) Require((static_cast<unsigned char>(c) & 0xC0) == 0x80);
  Require(!text.starts_with("\xEF\xBF\xBE") && !text.starts_with("\xEF\xBF\xBF"));
  return length;
}

/// Takes `before` and the characters behind it, up to `end`, from the front of `rest`.
void Take(std::string_view& rest, std::string_view before, char end) {
  Require(rest.starts_with(before));
  rest.remove_prefix(before.size());
  while (!rest.empty() && rest.front() != end) rest.remove_prefix(LengthOfCharacter(rest));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  XmlWriter out;
  out.Open("Outer", {{"Name", text}});
  out.Element("Inner", text);
  out.Element("Next", "1");
  out.Close("Outer");
  std::string_view rest = out.Text();
  Take(rest, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Outer Name=\"", '"');
  Take(rest, "\">\n  <Inner>", '<');
  Require(rest == "</Inner>\n  <Next>1</Next>\n</Outer>\n");
  return 0;
}
