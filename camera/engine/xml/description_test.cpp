#include "camera/engine/xml/description.h"

#include <gtest/gtest.h>

#include "camera/engine/features/standard_features.h"
#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_items.h"
#include "camera/engine/xml/node_element.h"
#include "camera/engine/xml/ports.h"

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

class NodeElementTest : public testing::Test {
 protected:
  NodePtr Add(NodePtr node) {
    tree_.Add(node);
    return node;
  }

  /// Gives a node everything that all kinds share.
  void Dress(const NodePtr& node) {
    node->tool_tip = "Tip";
    node->description = "Long";
    node->display_name = "Shown";
    node->visibility = Visibility::Guru;
    node->deprecated = true;
    node->event_id = 0x901;
    node->is_implemented = yes_;
    node->is_available = yes_;
    node->is_locked = yes_;
    node->imposed_access = AccessMode::ReadOnly;
    node->alias = yes_;
    node->streamable = true;
    node->unit = "mm";
    node->representation = Representation::HexNumber;
    node->polling_time = 50;
    node->display_precision = 3;
    node->selected = {yes_};
    node->invalidators = {yes_};
  }

  const std::string common_ =
      "<ToolTip>Tip</ToolTip>\n<Description>Long</Description>\n<DisplayName>Shown</DisplayName>\n"
      "<Visibility>Guru</Visibility>\n<IsDeprecated>Yes</IsDeprecated>\n<EventID>0901</EventID>\n"
      "<pIsImplemented>Yes</pIsImplemented>\n<pIsAvailable>Yes</pIsAvailable>\n<pIsLocked>Yes</pIsLocked>\n"
      "<ImposedAccessMode>RO</ImposedAccessMode>\n<pAlias>Yes</pAlias>\n";
  const std::string register_ =
      "<Streamable>Yes</Streamable>\n<Address>0xA000</Address>\n<pAddress>Yes</pAddress>\n<Length>4</"
      "Length>\n"
      "<AccessMode>WO</AccessMode>\n<pPort>Device</pPort>\n<Cachable>WriteAround</Cachable>\n"
      "<PollingTime>50</PollingTime>\n<pInvalidator>Yes</pInvalidator>\n";

  FeatureTree tree_;
  const NodePtr yes_ = Add(NewInteger("Yes", std::int64_t{1}));
};

TEST_F(NodeElementTest, StandsInTheSchemasOrderForEveryKind) {
  const NodePtr value = Add(NewIntReg("Reg"));
  const struct {
    NodeKind kind;
    const char* element;
    std::string rest;
  } rows[] = {
      {NodeKind::Category, "Category", "<pInvalidator>Yes</pInvalidator>\n<pFeature>Yes</pFeature>\n"},
      {NodeKind::Integer, "Integer",
       "<pInvalidator>Yes</pInvalidator>\n<Streamable>Yes</Streamable>\n<pValue>Reg</pValue>\n<Min>-1</Min>\n"
       "<pMax>Yes</pMax>\n<Inc>2</Inc>\n<Unit>mm</Unit>\n<Representation>HexNumber</Representation>\n"
       "<pSelected>Yes</pSelected>\n"},
      {NodeKind::Float, "Float",
       "<pInvalidator>Yes</pInvalidator>\n<Streamable>Yes</Streamable>\n<pValue>Reg</pValue>\n<Min>-1</Min>\n"
       "<pMax>Yes</pMax>\n<Inc>2</Inc>\n<Unit>mm</Unit>\n<DisplayPrecision>3</DisplayPrecision>\n"},
      {NodeKind::Boolean, "Boolean",
       "<pInvalidator>Yes</pInvalidator>\n<Streamable>Yes</Streamable>\n<pValue>Reg</pValue>\n"
       "<OnValue>1</OnValue>\n<OffValue>0</OffValue>\n<pSelected>Yes</pSelected>\n"},
      {NodeKind::Command, "Command",
       "<pInvalidator>Yes</pInvalidator>\n<pValue>Reg</pValue>\n<CommandValue>1</CommandValue>\n"
       "<PollingTime>50</PollingTime>\n"},
      {NodeKind::String, "String",
       "<pInvalidator>Yes</pInvalidator>\n<Streamable>Yes</Streamable>\n<Value>a&lt;b</Value>\n"},
      {NodeKind::Enumeration, "Enumeration",
       "<pInvalidator>Yes</pInvalidator>\n<Streamable>Yes</Streamable>\n"
       "<EnumEntry Name=\"On\" NameSpace=\"Custom\">\n<Visibility>Beginner</Visibility>\n<Value>7</Value>\n"
       "</EnumEntry>\n<pValue>Reg</pValue>\n<pSelected>Yes</pSelected>\n<PollingTime>50</PollingTime>\n"},
      {NodeKind::IntSwissKnife, "IntSwissKnife",
       "<pInvalidator>Yes</pInvalidator>\n<Streamable>Yes</Streamable>\n<pVariable "
       "Name=\"Yes\">Yes</pVariable>\n"
       "<Formula>((Yes)&lt;(1))</Formula>\n<Unit>mm</Unit>\n<Representation>HexNumber</Representation>\n"},
  };
  for (const auto& row : rows) {
    const NodePtr node = Add(NewNode(row.kind, std::string("My") + row.element));
    Dress(node);
    if (row.kind == NodeKind::Category || row.kind == NodeKind::IntSwissKnife) {
      AddRelated(node, NodeList::Child, yes_, nullptr);
    } else {
      node->value = value;
    }
    if (row.kind == NodeKind::Integer || row.kind == NodeKind::Float) {
      node->min = std::int64_t{-1};
      node->max = yes_;
      node->increment = std::int64_t{2};
    }
    if (row.kind == NodeKind::Enumeration) AddRelated(node, NodeList::Child, NewEntry("On", 7), nullptr);
    if (row.kind == NodeKind::IntSwissKnife) SetTextItem(*node, NodeItem::Formula, "Yes<1");
    if (row.kind == NodeKind::String) node->value = std::string("a<b");
    const std::string name = row.element;
    EXPECT_EQ(Element(*node), "<" + name + " Name=\"My" + name + "\" NameSpace=\"Custom\">\n" + common_ +
                                  row.rest + "</" + name + ">\n");
  }
}

TEST_F(NodeElementTest, StandsInTheSchemasOrderForEveryRegister) {
  const struct {
    NodeKind kind;
    const char* element;
    std::optional<BitRange> bits;
    std::string rest;
  } rows[] = {
      {NodeKind::IntReg,
       "IntReg",
       {},
       "<Sign>Signed</Sign>\n<Endianess>BigEndian</Endianess>\n<Unit>mm</Unit>\n"
       "<Representation>HexNumber</Representation>\n<pSelected>Yes</pSelected>\n"},
      {NodeKind::IntReg, "MaskedIntReg", BitRange{16, 31},
       "<LSB>31</LSB>\n<MSB>16</MSB>\n<Sign>Signed</Sign>\n<Endianess>BigEndian</Endianess>\n<Unit>mm</"
       "Unit>\n"
       "<Representation>HexNumber</Representation>\n<pSelected>Yes</pSelected>\n"},
      {NodeKind::FloatReg,
       "FloatReg",
       {},
       "<Endianess>BigEndian</Endianess>\n<Unit>mm</Unit>\n<DisplayPrecision>3</DisplayPrecision>\n"},
      {NodeKind::StringReg, "StringReg", {}, ""},
  };
  for (const auto& row : rows) {
    const NodePtr node = Add(NewRegister(row.kind, "Mine", 0xA000, 4));
    Dress(node);
    node->reg->bits = row.bits;
    node->reg->access = AccessMode::WriteOnly;
    node->reg->cache = CacheMode::WriteAround;
    AddRelated(node, NodeList::Addresses, yes_, nullptr);
    const std::string name = row.element;
    EXPECT_EQ(Element(*node), "<" + name + " Name=\"Mine\" NameSpace=\"Custom\">\n" + common_ + register_ +
                                  row.rest + "</" + name + ">\n");
    tree_.Remove(node);
  }
}

TEST_F(NodeElementTest, LeavesOutWhatClientsWouldRefuse) {
  const NodePtr plain = Add(NewInteger("Plain", INT64_MIN));
  plain->tool_tip = "\x01\x02";  // nothing that may stand in a description
  const NodePtr stranger = NewInteger("Stranger");
  plain->alias = stranger;
  plain->selected = {stranger};
  plain->invalidators = {stranger};
  EXPECT_EQ(Element(*plain),
            "<Integer Name=\"Plain\" NameSpace=\"Custom\">\n<Visibility>Beginner</Visibility>\n"
            "<Value>-9223372036854775808</Value>\n</Integer>\n");
  const NodePtr hidden = MakeNode(NodeKind::Boolean, "Hidden", NameSpace::Private);
  hidden->value = std::int64_t{1};
  EXPECT_EQ(Element(*hidden),
            "<Boolean Name=\"Hidden\" NameSpace=\"Custom\">\n<Visibility>Invisible</Visibility>\n"
            "<Value>1</Value>\n</Boolean>\n");
  EXPECT_EQ(Element(*NewEntry("Entry", 1)), "");
}

TEST(Ports, AreOnePerIdAndNamedBeside) {
  FeatureTree tree;
  const auto add = [&](const char* name, PortKind port, std::uint32_t id) {
    const NodePtr node = NewIntReg(name);
    tree.Add(node);
    if (port != PortKind::Device) tree.MoveToPort(*node, port, id);
    return node;
  };
  tree.Add(NewInteger("ChunkPort00000010"));  // the name that the port would have
  const NodePtr device = add("A", PortKind::Device, 0);
  const NodePtr chunk = add("B", PortKind::Chunk, 0x10);
  const NodePtr same = add("C", PortKind::Chunk, 0x10);
  const NodePtr event = add("D", PortKind::Event, 0x9001);
  XmlWriter out;
  WritePorts(out, tree);
  const std::string& text = out.Text();
  EXPECT_EQ(text.substr(text.find("</Port>\n") + 8),
            "<Port Name=\"ChunkPort00000010_\" NameSpace=\"Custom\">\n"
            "  <ToolTip>Data behind an image</ToolTip>\n  <Visibility>Invisible</Visibility>\n"
            "  <ChunkID>00000010</ChunkID>\n</Port>\n"
            "<Port Name=\"EventPort9001\" NameSpace=\"Custom\">\n"
            "  <ToolTip>Data of an event</ToolTip>\n  <Visibility>Invisible</Visibility>\n"
            "  <EventID>9001</EventID>\n</Port>\n");
  for (const NodePtr& node : {device, chunk, same, event}) {
    EXPECT_NE(Element(*node).find("<pPort>" + PortName(*node) + "</pPort>"), std::string::npos);
  }
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
  FeatureTree tree;
  const auto refused = [&](const NodePtr& node) {
    tree.Add(node);
    const auto failure = Refusal([&] { CheckPublishable(tree); });
    tree.Remove(node);
    return failure;
  };
  EXPECT_EQ(refused(NewInteger("Fine")), std::nullopt);
  EXPECT_EQ(refused(NewInteger("Dangling", NewIntReg("Elsewhere"))), Failure::kInvalidArgument);
  EXPECT_EQ(refused(NewNode(NodeKind::Enumeration, "Empty")), Failure::kInvalidArgument);
  EXPECT_EQ(refused(NewEnumeration("Double", {}, {{"A", 1}, {"B", 1}})), Failure::kInvalidArgument);
  const NodePtr named = NewEnumeration("Named", {}, {{"A", 1}, {"B", 2}});
  named->children[1]->symbolic = "A";
  EXPECT_EQ(refused(named), Failure::kInvalidArgument);
  EXPECT_EQ(refused(NewNode(NodeKind::IntSwissKnife, "Blank")), Failure::kInvalidArgument);
  const NodePtr narrow = NewInteger("Narrow");
  narrow->min = std::int64_t{2};
  narrow->max = std::int64_t{1};
  EXPECT_EQ(refused(narrow), Failure::kInvalidArgument);
  const NodePtr selector = NewInteger("Selector");
  const NodePtr chosen = NewInteger("Chosen");
  tree.Add(chosen);
  AddRelated(selector, NodeList::Selected, chosen, nullptr);
  EXPECT_EQ(refused(selector), std::nullopt);
  AddRelated(selector, NodeList::Selected, chosen, nullptr);
  selector->value = chosen;
  EXPECT_EQ(refused(selector), Failure::kInvalidArgument);
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
