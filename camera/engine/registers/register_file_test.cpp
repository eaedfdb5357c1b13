#include "camera/engine/registers/register_file.h"

#include <gtest/gtest.h>

#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_items.h"
#include "camera/engine/nodes/node_values.h"

namespace Tarn {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kNumber = 0xA000;

class RegisterFileTest : public testing::Test {
 protected:
  NodePtr Add(NodePtr node) {
    tree_.Add(node);
    return node;
  }

  /// A feature over `source`.
  NodePtr Feature(NodeKind kind, const std::string& name, const NodePtr& source) {
    return Add(NewNode(kind, name, source));
  }

  void Publish() { file_.Index({true, 1500}, 10); }

  WireStatus Write(std::uint32_t address, const Bytes& bytes) { return file_.Write(address, bytes, {}); }
  WireStatus Write(std::uint32_t address, std::uint32_t value) {
    Bytes bytes(4);
    StoreBe(bytes.data(), value);
    return Write(address, bytes);
  }
  Bytes Read(std::uint32_t address, std::size_t size) {
    Bytes bytes(size, 0xEE);
    file_.Read(address, bytes);
    return bytes;
  }

  FeatureTree tree_;
  RegisterFile file_{tree_};
  NodePtr number_ = Add(NewIntReg("Number", kNumber));
};

TEST_F(RegisterFileTest, KnowsWhatExists) {
  Add(NewIntReg("Odd", 0xA008, 6));
  Publish();
  EXPECT_EQ(file_.CheckRead(kNumber, 4, false), WireStatus::Success);
  EXPECT_EQ(file_.CheckRead(kNumber, 8, true), WireStatus::InvalidAddress);
  EXPECT_EQ(file_.CheckRead(0xA00C, 4, false), WireStatus::Success);  // the word in which it ends
  EXPECT_EQ(file_.CheckRead(0xA010, 4, false), WireStatus::InvalidAddress);
  EXPECT_EQ(file_.CheckRead(0x0018, 4, false), WireStatus::InvalidAddress);
  EXPECT_EQ(file_.CheckRead(0x0000, 0xF8, true), WireStatus::Success);
  EXPECT_EQ(file_.CheckRead(0x00F4, 8, true), WireStatus::InvalidAddress);
  EXPECT_EQ(file_.CheckRead(0xFFFFFFFC, 8, true), WireStatus::InvalidAddress);
  const auto file = static_cast<std::uint32_t>(kDescriptionFile);
  EXPECT_EQ(file_.CheckRead(file + 8, 4, true), WireStatus::Success);  // ten bytes, and a word's rest
  EXPECT_EQ(file_.CheckRead(file + 8, 8, true), WireStatus::InvalidAddress);
  EXPECT_EQ(Write(file, 1), WireStatus::InvalidAddress);
}

TEST_F(RegisterFileTest, ReadsZeroWhereReadingIsNotAllowed) {
  const NodePtr secret = Add(NewIntReg("Secret", 0xA004));
  const NodePtr gone = Add(NewIntReg("Gone", 0xA008));
  const NodePtr condition = Add(NewInteger("Condition", std::int64_t{1}));
  gone->is_available = condition;
  secret->reg->access = AccessMode::WriteOnly;
  for (const NodePtr& node : {number_, secret, gone}) WriteInteger(*node, 0x01020304);
  Publish();
  EXPECT_EQ(Read(kNumber, 12), (Bytes{1, 2, 3, 4, 0, 0, 0, 0, 1, 2, 3, 4}));
  condition->value = std::int64_t{0};
  EXPECT_EQ(Read(0xA008, 4), (Bytes{0, 0, 0, 0}));
  EXPECT_EQ(Write(0xA008, 1), WireStatus::Busy);
  EXPECT_EQ(Write(0xA004, 9), WireStatus::Success);
  EXPECT_EQ(ReadInteger(*secret), 9);
}

TEST_F(RegisterFileTest, TakesAWriteThatOneFeatureTakes) {
  const NodePtr low = Feature(NodeKind::Integer, "Low", number_);
  low->max = std::int64_t{10};
  const NodePtr high = Feature(NodeKind::Integer, "High", number_);
  high->min = std::int64_t{100};
  high->increment = std::int64_t{5};
  Publish();
  EXPECT_EQ(Write(kNumber, 10), WireStatus::Success);
  EXPECT_EQ(Write(kNumber, 105), WireStatus::Success);
  for (const std::uint32_t value : {11u, 99u, 106u}) {
    EXPECT_EQ(Write(kNumber, value), WireStatus::InvalidParameter) << value;
  }
  EXPECT_EQ(ReadInteger(*number_), 105);
  const NodePtr locked = Add(NewInteger("Locked", std::int64_t{1}));
  high->is_locked = locked;
  EXPECT_EQ(Write(kNumber, 110), WireStatus::InvalidParameter);
  low->is_locked = locked;
  EXPECT_EQ(Write(kNumber, 5), WireStatus::Busy);
  low->imposed_access = high->imposed_access = AccessMode::ReadOnly;
  locked->value = std::int64_t{0};
  EXPECT_EQ(Write(kNumber, 5), WireStatus::WriteProtect);
  number_->reg->access = AccessMode::ReadOnly;
  low->imposed_access.reset();
  EXPECT_EQ(Write(kNumber, 5), WireStatus::WriteProtect);
  number_->is_implemented = Add(NewInteger("No"));
  EXPECT_EQ(Write(kNumber, 5), WireStatus::InvalidAddress);
  EXPECT_EQ(ReadInteger(*number_), 105);
}

TEST_F(RegisterFileTest, TakesOnlyWhatEnumerationsAndBooleansKnow) {
  const NodePtr mode = NewEnumeration("Mode", number_, {{"One", 1}, {"Two", 2}});
  Add(mode);
  const NodePtr flag_value = Add(NewIntReg("FlagValue", 0xA010));
  Feature(NodeKind::Boolean, "Flag", flag_value)->on_value = std::int64_t{7};
  Publish();
  EXPECT_EQ(Write(kNumber, 2), WireStatus::Success);
  EXPECT_EQ(Write(kNumber, 3), WireStatus::InvalidParameter);
  mode->children[0]->is_available = Add(NewInteger("No"));
  EXPECT_EQ(Write(kNumber, 1), WireStatus::InvalidParameter);
  EXPECT_EQ(Write(0xA010, 7), WireStatus::Success);
  EXPECT_EQ(Write(0xA010, 0), WireStatus::Success);
  EXPECT_EQ(Write(0xA010, 1), WireStatus::InvalidParameter);
}

TEST_F(RegisterFileTest, AnswersWithAnErrorWhereAConditionHasNoValue) {
  const NodePtr zero = Add(NewInteger("Zero"));
  const NodePtr knife = Add(NewNode(NodeKind::IntSwissKnife, "Knife"));
  AddRelated(knife, NodeList::Child, zero, nullptr);
  SetTextItem(*knife, NodeItem::Formula, "1/Zero");
  number_->is_locked = knife;
  const NodePtr moving = Add(NewIntReg("Moving", 0xB000));
  AddRelated(moving, NodeList::Addresses, knife, nullptr);
  Publish();
  EXPECT_EQ(Write(kNumber, 1), WireStatus::Error);
  EXPECT_EQ(Read(kNumber, 4), (Bytes{0, 0, 0, 0}));
  EXPECT_EQ(file_.CheckRead(0xB000, 4, false), WireStatus::InvalidAddress);
  zero->value = std::int64_t{2};  // a half is nothing
  EXPECT_EQ(file_.CheckRead(0xB000, 4, false), WireStatus::Success);
  EXPECT_EQ(Write(0xB000, 3), WireStatus::Success);
  EXPECT_EQ(ReadInteger(*moving), 3);
}

TEST_F(RegisterFileTest, WritesPartsOfNumbersAndBeginningsOfTexts) {
  const NodePtr wide = Add(NewIntReg("Wide", 0xA008, 8));
  const NodePtr text = Add(NewRegister(NodeKind::StringReg, "Text", 0xA010, 8));
  const NodePtr odd = Add(NewIntReg("Odd", 0xA018, 3));
  const NodePtr fields = Add(NewIntReg("Field", 0xA020));
  fields->reg->bits = BitRange{24, 31};
  fields->reg->is_signed = false;
  Feature(NodeKind::Integer, "Byte", fields)->max = std::int64_t{9};
  Publish();
  WriteInteger(*wide, 0x1111111122222222);
  EXPECT_EQ(Write(0xA00C, 0x33333333), WireStatus::Success);
  EXPECT_EQ(ReadInteger(*wide), 0x1111111133333333);
  EXPECT_EQ(Write(0xA010, Bytes{'a', 'b', 'c', 'd'}), WireStatus::Success);
  EXPECT_EQ(Write(0xA014, Bytes{'x', 0, 0, 0}), WireStatus::InvalidAddress);
  EXPECT_EQ(ReadText(*text), "abcd");
  EXPECT_EQ(Write(0xA018, Bytes{1, 2, 3, 4}), WireStatus::Success);
  EXPECT_EQ(Read(0xA018, 4), (Bytes{1, 2, 3, 0}));
  EXPECT_EQ(Write(0xA020, 0xABCDEF0A), WireStatus::InvalidParameter);
  EXPECT_EQ(Write(0xA020, 0xABCDEF09), WireStatus::Success);
  EXPECT_EQ(file_.UnitLength(0xA008, 100), 8u);
  EXPECT_EQ(file_.UnitLength(0xA00C, 100), 4u);
  EXPECT_EQ(file_.UnitLength(0xA010, 4), 4u);
  EXPECT_EQ(file_.UnitLength(0xB000, 100), 4u);
  EXPECT_EQ(file_.UnitLength(0x0200, 100), 4u);
}

TEST_F(RegisterFileTest, NamesWhoIsConcernedNearestFirst) {
  const NodePtr other = Add(NewIntReg("Other", 0xA004));
  const NodePtr inner = Feature(NodeKind::Integer, "Inner", number_);
  const NodePtr outer = Feature(NodeKind::Float, "Outer", inner);
  const NodePtr second = Feature(NodeKind::Integer, "Second", number_);
  Publish();
  EXPECT_EQ(file_.Concerned(kNumber, 4), (std::vector<NodePtr>{number_, inner, second, outer}));
  EXPECT_EQ(file_.Concerned(0xA004, 4), std::vector<NodePtr>{other});
  EXPECT_EQ(file_.Concerned(0xA003, 2).size(), 5u);
  EXPECT_TRUE(file_.Concerned(0xFFFFFFFC, 0xFFFF).empty());
}

}  // namespace
}  // namespace Tarn
