#include "camera/engine/xml/xml_writer.h"

#include <cstdint>

namespace Tarn {
namespace {

/// Length of the well-formed UTF-8 sequence at the front; 0 when there is none.
/// Source: Unicode, well-formed UTF-8 byte sequences.
std::size_t SequenceLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::uint8_t lead = byte(0);
  const std::size_t length = lead < 0x80         ? 1
                             : lead >> 5 == 0x6  ? 2
                             : lead >> 4 == 0xE  ? 3
                             : lead >> 3 == 0x1E ? 4
                                                 : 0;
  if (length == 0 || length > text.size()) return 0;
  std::uint32_t code = length == 1 ? lead : lead & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if (byte(i) >> 6 != 0x2) return 0;
    code = code << 6 | (byte(i) & 0x3Fu);
  }
  constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xD800 && code < 0xE000;
  return code < kSmallest[length] || surrogate || code > 0x10FFFF || code == 0xFFFE || code == 0xFFFF
             ? 0
             : length;
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
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = SequenceLength(text.substr(i));
    const char c = text[i];
    if (length > 1) {
      to.append(text.substr(i, length));
    } else if (length == 1) {
      switch (c) {
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
          if (static_cast<unsigned char>(c) >= 0x20 || c == '\t' || c == '\n' || c == '\r') to.push_back(c);
      }
    }
    i += length == 0 ? 1 : length;
  }
}

}  // namespace Tarn
