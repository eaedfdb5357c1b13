#include "camera/engine/xml/description.h"

#include <gtest/gtest.h>

#include <functional>

#include "camera/engine/features/standard_features.h"
#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/xml/node_element.h"
#include "camera/engine/xml/ports.h"

// The elements of each kind are checked by the schema and the reference library.

namespace Tarn {
namespace {

/// The element of one node without the declaration; every line without its indentation.
std::string Element(const Node& node) {
  XmlWriter out;
  WriteNodeElement(out, node);
  std::string text;
  std::string_view rest = std::string_view(out.Text()).substr(out.Text().find('\n') + 1);
  for (; !rest.empty(); rest.remove_prefix(rest.find('\n') + 1)) {
    const std::string_view line = rest.substr(0, rest.find('\n') + 1);
    text.append(line.substr(line.find('<')));
  }
  return text;
}

TEST(NodeElements, TellAllThatIsKnownOfANode) {
  FeatureTree tree;
  const NodePtr yes = Put(tree, NewInteger("Yes", std::int64_t{1}));
  const NodePtr node = Link(Put(tree, NewIntReg("Field", 0xA000)), NodeList::Addresses, yes);
  node->tool_tip = "Tip";
  node->description = "Long";
  node->display_name = "Shown";
  node->visibility = Visibility::Guru;
  node->deprecated = node->streamable = true;
  node->event_id = 0x901;
  node->is_implemented = node->is_available = node->is_locked = yes;
  node->alias = yes;
  node->selected = node->invalidators = {yes};
  node->imposed_access = AccessMode::ReadOnly;
  node->unit = "mm";
  node->representation = Representation::HexNumber;
  node->polling_time = 50;
  node->reg->bits = BitRange{16, 31};
  node->reg->cache = CacheMode::WriteAround;
  EXPECT_EQ(Element(*node), R"(<MaskedIntReg Name="Field" NameSpace="Custom">
<ToolTip>Tip</ToolTip>
<Description>Long</Description>
<DisplayName>Shown</DisplayName>
<Visibility>Guru</Visibility>
<IsDeprecated>Yes</IsDeprecated>
<EventID>0901</EventID>
<pIsImplemented>Yes</pIsImplemented>
<pIsAvailable>Yes</pIsAvailable>
<pIsLocked>Yes</pIsLocked>
<ImposedAccessMode>RO</ImposedAccessMode>
<pAlias>Yes</pAlias>
<Streamable>Yes</Streamable>
<Address>0xA000</Address>
<pAddress>Yes</pAddress>
<Length>4</Length>
<AccessMode>RW</AccessMode>
<pPort>Device</pPort>
<Cachable>WriteAround</Cachable>
<PollingTime>50</PollingTime>
<pInvalidator>Yes</pInvalidator>
<LSB>31</LSB>
<MSB>16</MSB>
<Sign>Signed</Sign>
<Endianess>BigEndian</Endianess>
<Unit>mm</Unit>
<Representation>HexNumber</Representation>
<pSelected>Yes</pSelected>
</MaskedIntReg>
)");
}

TEST(NodeElements, LeaveOutWhatClientsWouldRefuse) {
  const NodePtr stranger = NewInteger("Stranger");
  FeatureTree tree;
  const NodePtr plain = Put(tree, NewNode(NodeKind::Float, "Plain", std::int64_t{3}));
  plain->tool_tip = "\x01\x02";  // nothing that may stand in a description
  plain->alias = stranger;
  plain->invalidators = {stranger};
  plain->representation = Representation::HexNumber;  // a word for integers alone
  EXPECT_EQ(Element(*plain),
            "<Float Name=\"Plain\" NameSpace=\"Custom\">\n<Visibility>Beginner</Visibility>\n"
            "<Value>3</Value>\n</Float>\n");
  const NodePtr hidden = MakeNode(NodeKind::Boolean, "Hidden", NameSpace::Private);
  hidden->value = std::int64_t{1};
  EXPECT_EQ(Element(*hidden),
            "<Boolean Name=\"Hidden\" NameSpace=\"Custom\">\n<Visibility>Invisible</Visibility>\n"
            "<Value>1</Value>\n</Boolean>\n");
  EXPECT_EQ(Element(*NewEntry("Entry", 1)), "");
}

TEST(Ports, AreOnePerIdAndNamedBeside) {
  FeatureTree tree;
  tree.Add(NewInteger("ChunkPort00000010"));  // the name that the port would have
  const struct {
    const char* name;
    PortKind kind;
    std::uint32_t id;
    const char* port;
  } rows[] = {
      {"A", PortKind::Chunk, 0x10, "ChunkPort00000010_"},
      {"B", PortKind::Chunk, 0x10, "ChunkPort00000010_"},
      {"C", PortKind::Event, 0x9001, "EventPort9001"},
  };
  for (const auto& row : rows) {
    const NodePtr reg = Put(tree, NewIntReg(row.name));
    tree.MoveToPort(*reg, row.kind, row.id);
    EXPECT_EQ(PortName(*reg), row.port);
  }
  XmlWriter out;
  WritePorts(out, tree);
  EXPECT_EQ(out.Text().substr(out.Text().find("</Port>\n") + 8),
            "<Port Name=\"ChunkPort00000010_\" NameSpace=\"Custom\">\n"
            "  <ToolTip>Data behind an image</ToolTip>\n  <Visibility>Invisible</Visibility>\n"
            "  <ChunkID>00000010</ChunkID>\n</Port>\n"
            "<Port Name=\"EventPort9001\" NameSpace=\"Custom\">\n"
            "  <ToolTip>Data of an event</ToolTip>\n  <Visibility>Invisible</Visibility>\n"
            "  <EventID>9001</EventID>\n</Port>\n");
}

TEST(XmlTexts, AreEscapedAndCleaned) {
  XmlWriter out;
  out.Element("T", "a<b> & \"c\"\t\n\x01\x7F \xC3\xA4\xF0\x9F\x98\x80 \xFF\xC0\x80\xED\xA0\x80\xEF\xBF\xBE.",
              {{"A", "<\"&\">"}});
  EXPECT_EQ(out.Text(),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<T A=\"&lt;&quot;&amp;&quot;&gt;\">a&lt;b&gt; &amp; "
            "&quot;c&quot;\t\n\x7F \xC3\xA4\xF0\x9F\x98\x80 .</T>\n");
}

TEST(Publishing, IsRefusedForWhatClientsCouldNotLoad) {
  const auto refused = [](const NodePtr& node) {
    FeatureTree tree;
    tree.Add(node);
    const auto failure = Refusal([&] { CheckPublishable(tree); });
    tree.Remove(node);
    return failure;
  };
  const NodePtr named = NewEnumeration("Named", {}, {{"A", 1}, {"B", 2}});
  EXPECT_EQ(refused(named), std::nullopt);
  named->children[1]->symbolic = "A";
  const NodePtr narrow = NewNode(NodeKind::Float, "NarrowFloat", 0.5);
  narrow->min = 0.75;
  narrow->max = 0.5;
  for (const NodePtr& node :
       {named, narrow, NewBounded("Narrow", 2, 1), NewInteger("Dangling", NewIntReg("Elsewhere")),
        NewEnumeration("Empty", {}, {}), NewEnumeration("Double", {}, {{"A", 1}, {"B", 1}}),
        NewKnife("Blank", {}, "")}) {
    EXPECT_EQ(refused(node), Failure::kInvalidArgument) << node->name;
  }
  FeatureTree tree;
  const NodePtr chosen = Put(tree, NewBounded("Chosen", 1, 1));
  const NodePtr selector = Link(Put(tree, NewInteger("Selector")), NodeList::Selected, chosen);
  EXPECT_EQ(Refusal([&] { CheckPublishable(tree); }), std::nullopt);
  selector->value = chosen;
  EXPECT_EQ(Refusal([&] { CheckPublishable(tree); }), Failure::kInvalidArgument);
}

TEST(Descriptions, FollowFromTheirContent) {
  FeatureTree tree;
  AddStandardFeatures(tree, SensorFormat{0x01080001, "Mono8", 640, 480, true});
  CheckPublishable(tree);
  const DescriptionIdentity identity{"3 & Sons", "Cam-era", 1, 2, 3};
  const Description first = WriteDescription(tree, identity);
  EXPECT_EQ(first.xml.size() % 4, 0u);
  EXPECT_TRUE(first.file_name.starts_with("N3___Sons_Cam_era_1_2_3_")) << first.file_name;
  EXPECT_NE(first.xml.find("ToolTip=\"3 &amp; Sons Cam-era\""), std::string::npos);
  EXPECT_EQ(WriteDescription(tree, identity).xml, first.xml);
  tree.Find("Width")->tool_tip = "Another";
  EXPECT_NE(WriteDescription(tree, identity).file_name, first.file_name);  // clients cache by it
}

}  // namespace
}  // namespace Tarn
