// Whatever stands in a text or an attribute, the document stays well-formed, and a second element beside it
// stays what it was.

#include <cstdlib>
#include <string>

#include "camera/engine/xml/xml_writer.h"

namespace {

using namespace Tarn;

void Require(bool holds) {
  if (!holds) std::abort();
}

/// Takes the document that the target writes apart, front to back.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  void Expect(std::string_view token) {
    Require(rest_.starts_with(token));
    rest_.remove_prefix(token.size());
  }

  /// Character data up to `end`: references to the named characters, no markup, nothing that XML forbids.
  void Characters(char end) {
    while (!rest_.empty() && rest_.front() != end) {
      const auto c = static_cast<unsigned char>(rest_.front());
      Require(c != '<' && c != '>' && c != '"');
      Require(c >= 0x20 || c == '\t' || c == '\n' || c == '\r');
      if (c == '&') {
        Reference();
      } else {
        Sequence(c);
      }
    }
    Require(!rest_.empty());
  }

  bool Done() const { return rest_.empty(); }

 private:
  void Reference() {
    for (const std::string_view name : {"&amp;", "&lt;", "&gt;", "&quot;"}) {
      if (rest_.starts_with(name)) return rest_.remove_prefix(name.size());
    }
    std::abort();
  }

  void Sequence(unsigned char lead) {
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    Require(lead < 0x80 || (lead >= 0xC2 && lead <= 0xF4));
    Require(length <= rest_.size());
    for (std::size_t i = 1; i < length; ++i) {
      Require((static_cast<unsigned char>(rest_[i]) & 0xC0) == 0x80);
    }
    Require(!rest_.starts_with("\xEF\xBF\xBE") && !rest_.starts_with("\xEF\xBF\xBF"));
    rest_.remove_prefix(length);
  }

  std::string_view rest_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  XmlWriter out;
  out.Open("Outer", {{"Name", text}});
  out.Element("Inner", text);
  out.Element("Next", "1");
  out.Close("Outer");
  Scanner in(out.Text());
  in.Expect("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Outer Name=\"");
  in.Characters('"');
  in.Expect("\">\n  <Inner>");
  in.Characters('<');
  in.Expect("</Inner>\n  <Next>1</Next>\n</Outer>\n");
  Require(in.Done());
  return 0;
}
