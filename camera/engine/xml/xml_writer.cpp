#include "camera/engine/xml/xml_writer.h"

#include <algorithm>

#include "camera/base/utf8.h"

namespace Tarn {
namespace {

/// Bytes of the character at the front that XML can hold; 0 when there is none.
/// Source: XML 1.0, Char. Noncharacters and control characters are none of them.
std::size_t XmlCharacterLength(std::string_view text) {
  const Utf8Character next = FirstUtf8Character(text);
  const bool control = next.code < 0x20 && next.code != '\t' && next.code != '\n' && next.code != '\r';
  return control || next.code == 0xFFFE || next.code == 0xFFFF ? 0 : next.length;
}

}  // namespace

XmlWriter::XmlWriter() : text_("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n") {}

void XmlWriter::Start(std::string_view name, std::initializer_list<Attribute> attributes) {
  text_.append(depth_ * 2, ' ').append("<").append(name);
  for (const auto& [key, value] : attributes) {
    text_.append(" ").append(key).append("=\"");
    Escape(value);
    text_.append("\"");
  }
  text_.append(">");
}

void XmlWriter::Open(std::string_view name, std::initializer_list<Attribute> attributes) {
  Start(name, attributes);
  text_.append("\n");
  ++depth_;
}

void XmlWriter::Close(std::string_view name) {
  --depth_;
  text_.append(depth_ * 2, ' ').append("</").append(name).append(">\n");
}

void XmlWriter::Element(std::string_view name, std::string_view text,
                        std::initializer_list<Attribute> attributes) {
  Start(name, attributes);
  Escape(text);
  text_.append("</").append(name).append(">\n");
}

bool XmlWriter::HasContent(std::string_view text) {
  std::string content;
  AppendEscaped(content, text);
  return !content.empty();
}

void XmlWriter::AppendEscaped(std::string& to, std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = XmlCharacterLength(text);
    switch (text.front()) {
      case '&':
        to.append("&amp;");
        break;
      case '<':
        to.append("&lt;");
        break;
      case '>':
        to.append("&gt;");
        break;
      case '"':
        to.append("&quot;");
        break;
      default:
        to.append(text.substr(0, length));
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
}

}  // namespace Tarn
