#pragma once

/// Writes one XML document as text: indentation, escaping, nothing else.
///
/// Our own, since a document of flat elements needs sixty lines, and a library would have to travel in the
/// package.

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace Tarn {

class XmlWriter {
 public:
  using Attribute = std::pair<std::string_view, std::string_view>;

  XmlWriter();

  void Open(std::string_view name, std::initializer_list<Attribute> attributes = {});
  void Close(std::string_view name);
  /// <name attributes>text</name>
  void Element(std::string_view name, std::string_view text,
               std::initializer_list<Attribute> attributes = {});

  /// Whether anything is left of a text when what XML forbids is dropped.
  static bool HasContent(std::string_view text);

  /// The document so far; complete when every element was closed.
  const std::string& Text() const { return text_; }

 private:
  void Start(std::string_view name, std::initializer_list<Attribute> attributes);
  /// Escapes what XML gives a meaning to, and drops what XML forbids: control characters, and bytes that are
  /// no UTF-8.
  void Escape(std::string_view text) { AppendEscaped(text_, text); }
  static void AppendEscaped(std::string& to, std::string_view text);

  std::string text_;
  std::size_t depth_ = 0;
};

}  // namespace Tarn
