#include "camera/engine/xml/description.h"

#include <cctype>
#include <cstdio>
#include <string_view>
#include <utility>

#include "camera/engine/xml/node_element.h"
#include "camera/engine/xml/ports.h"
#include "camera/engine/xml/xml_writer.h"

namespace Tarn {
namespace {

/// The schema wants a letter, then letters, digits and underscores, of vendor and model.
std::string CleanName(std::string_view name, const char* without) {
  std::string clean;
  for (const char c : name) {
    const bool fits = (c & 0x80) == 0 && (std::isalnum(static_cast<unsigned char>(c)) || c == '_');
    clean.push_back(fits ? c : '_');
  }
  if (clean.empty()) return without;
  if (!std::isalpha(static_cast<unsigned char>(clean.front()))) clean.insert(0, "N");
  return clean;
}

/// FNV-1a, 64 bit. Source: Fowler, Noll, Vo; the basis may be any number.
std::uint64_t Digest(std::string_view text, std::uint64_t basis) {
  std::uint64_t digest = basis;
  for (const char c : text) digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
  return digest;
}

/// Stands in for the version's GUID while the content that it follows from is written.
constexpr std::string_view kGuidToCome = "00000000-0000-0000-0000-000000000000";

/// A GUID that follows from a text, so that the same content always has the same one.
std::string GuidOf(std::string_view text) {
  const std::uint64_t high = Digest(text, 0xCBF29CE484222325u);
  const std::uint64_t low = Digest(text, 0x9AE16A3B2F90404Fu);
  char guid[40];
  std::snprintf(guid, sizeof guid, "%08X-%04X-%04X-%04X-%012llX", static_cast<unsigned>(high >> 32),
                static_cast<unsigned>(high >> 16 & 0xFFFF), static_cast<unsigned>(high & 0xFFFF),
                static_cast<unsigned>(low >> 48), static_cast<unsigned long long>(low & 0xFFFF'FFFF'FFFF));
  return guid;
}

void WriteNodes(XmlWriter& out, const FeatureTree& tree) {
  WritePorts(out, tree);
  for (const NodePtr& node : tree.Nodes()) WriteNodeElement(out, *node);
}

}  // namespace

Description WriteDescription(const FeatureTree& tree, const DescriptionIdentity& identity) {
  const std::string vendor = CleanName(identity.vendor_name, "Vendor");
  const std::string model = CleanName(identity.model_name, "Model");
  const std::string major = std::to_string(identity.major);
  const std::string minor = std::to_string(identity.minor);
  const std::string sub_minor = std::to_string(identity.sub_minor);

  XmlWriter out;
  out.Open("RegisterDescription", {{"ModelName", model},
                                   {"VendorName", vendor},
                                   {"ToolTip", identity.vendor_name + " " + identity.model_name},
                                   {"StandardNameSpace", "GEV"},
                                   {"SchemaMajorVersion", "1"},
                                   {"SchemaMinorVersion", "1"},
                                   {"SchemaSubMinorVersion", "0"},
                                   {"MajorVersion", major},
                                   {"MinorVersion", minor},
                                   {"SubMinorVersion", sub_minor},
                                   {"ProductGuid", GuidOf(vendor + '/' + model)},
                                   {"VersionGuid", kGuidToCome},
                                   {"xmlns", "http://www.genicam.org/GenApi/Version_1_1"},
                                   {"xmlns:xsi", "http://www.w3.org/2001/XMLSchema-instance"},
                                   {"xsi:schemaLocation",
                                    "http://www.genicam.org/GenApi/Version_1_1 "
                                    "http://www.genicam.org/GenApi/GenApiSchema_Version_1_1.xsd"}});
  WriteNodes(out, tree);
  out.Close("RegisterDescription");

  std::string xml = out.Text();
  const std::string version_guid = GuidOf(xml);
  xml.replace(xml.find(kGuidToCome), kGuidToCome.size(), version_guid);

  Description description{std::move(xml), vendor + '_' + model + '_' + major + '_' + minor + '_' + sub_minor +
                                              '_' + version_guid.substr(0, 8) + ".xml"};
  // Some clients keep what a last read of a whole word brought behind the end; line feeds do no harm there.
  description.xml.resize((description.xml.size() + 3) / 4 * 4, '\n');
  return description;
}

}  // namespace Tarn
