#include "camera/engine/nodes/node_values.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_limits.h"
#include "camera/engine/nodes/number_text.h"

namespace Tarn {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

std::optional<Failure> Refused(const NodePtr& node, std::int64_t value) {
  return Refusal([&] { WriteInteger(*node, value); });
}
std::optional<Failure> RefusedFloat(const NodePtr& node, double value) {
  return Refusal([&] { WriteFloat(*node, value); });
}
std::optional<Failure> RefusedText(const NodePtr& node, const std::string& value) {
  return Refusal([&] { WriteText(*node, value); });
}

TEST(IntegerRegisters, HoldWhatTheirLengthSignAndFieldAllow) {
  const struct {
    std::int64_t length;
    bool is_signed;
    std::optional<BitRange> bits;
    std::int64_t lowest, highest;
  } rows[] = {
      {4, false, {}, 0, 0xFFFF'FFFF},
      {4, true, {}, -0x8000'0000LL, 0x7FFF'FFFF},
      {8, true, {}, kMin, kMax},
      {8, false, {}, 0, kMax},  // clients know no larger numbers
      {3, true, {}, -0x80'0000, 0x7F'FFFF},
      {1, false, {}, 0, 255},
      {4, false, BitRange{16, 31}, 0, 0xFFFF},
      {4, true, BitRange{4, 7}, -8, 7},
      {4, true, BitRange{31, 31}, -1, 0},
      {8, true, BitRange{1, 62}, -(1LL << 61), (1LL << 61) - 1},
  };
  for (const auto& row : rows) {
    const NodePtr reg = NewIntReg("Reg", -1, row.length);
    reg->reg->is_signed = row.is_signed;
    reg->reg->bits = row.bits;
    SCOPED_TRACE(std::to_string(row.length) + " bytes to " + std::to_string(row.highest));
    for (const std::int64_t value : {row.lowest, row.highest}) {
      WriteInteger(*reg, value);
      EXPECT_EQ(ReadInteger(*reg), value);
    }
    EXPECT_TRUE(row.highest == kMax || Refused(reg, row.highest + 1) == Failure::kOutOfRange);
    EXPECT_TRUE(row.lowest == kMin || Refused(reg, row.lowest - 1) == Failure::kOutOfRange);
    EXPECT_EQ(ReadInteger(*reg), row.highest);
  }
}

TEST(Registers, AreBigEndianAndFieldsLeaveTheRestAlone) {
  const NodePtr reg = NewIntReg("Reg");
  WriteInteger(*reg, 0x01020304);
  EXPECT_EQ(reg->reg->bytes, (Bytes{1, 2, 3, 4}));
  reg->reg->bits = BitRange{8, 15};  // the second byte: bit 0 is the most significant
  EXPECT_EQ(ReadInteger(*reg), 2);
  WriteInteger(*reg, -1);
  EXPECT_EQ(reg->reg->bytes, (Bytes{1, 0xFF, 3, 4}));

  const NodePtr single = NewRegister(NodeKind::FloatReg, "Single", -1, 4);
  WriteFloat(*single, -2.5);
  EXPECT_EQ(single->reg->bytes, (Bytes{0xC0, 0x20, 0, 0}));
  EXPECT_EQ(RefusedFloat(single, 1e39), Failure::kOutOfRange);
  EXPECT_EQ(ReadFloat(*single), -2.5);
  const NodePtr twice = NewRegister(NodeKind::FloatReg, "Double", -1, 8);
  WriteFloat(*twice, 1e300);
  EXPECT_EQ(ReadFloat(*twice), 1e300);
  EXPECT_EQ(Refusal([&] { ReadInteger(*twice); }), Failure::kNoValue);
  WriteFloat(*twice, -2.5);
  EXPECT_EQ(ReadInteger(*twice), -3);  // halves away from zero

  const NodePtr text = NewRegister(NodeKind::StringReg, "Text", -1, 8);
  WriteText(*text, "12345678");
  EXPECT_EQ(ReadText(*text), "12345678");
  WriteText(*text, "abc");
  EXPECT_EQ(text->reg->bytes, (Bytes{'a', 'b', 'c', 0, 0, 0, 0, 0}));
  EXPECT_EQ(RefusedText(text, "123456789"), Failure::kOutOfRange);
  EXPECT_EQ(ReadText(*text), "abc");
}

TEST(ValueChains, EndWhereTheNumberIsKept) {
  const NodePtr reg = NewIntReg("Reg");
  const NodePtr inner = NewInteger("Inner", reg);
  const NodePtr outer = NewInteger("Outer", inner);
  const NodePtr as_float = NewNode(NodeKind::Float, "AsFloat", outer);
  WriteFloat(*as_float, 6.5);
  EXPECT_EQ(ReadInteger(*reg), 7);
  EXPECT_EQ(ReadFloat(*as_float), 7.0);
  WriteText(*outer, " 0x10 ");
  EXPECT_EQ(ReadText(*inner), "16");
  reg->reg->is_signed = false;
  Evaluation now;
  EXPECT_EQ(IntegerLimitsOf(*outer, now).max, 0xFFFF'FFFF);  // limits come down the chain
  EXPECT_EQ(FloatLimitsOf(*as_float, now).min, 0.0);
}

TEST(Limits, RefuseBeforeAnythingChanges) {
  const NodePtr reg = NewIntReg("Reg");
  const NodePtr limit = NewInteger("Limit", std::int64_t{20});
  const NodePtr node = NewBounded("Node", 3, kMax, 4);
  node->value = reg;
  const struct {
    std::int64_t value;
    Setting max;
    std::optional<Failure> failure;
  } rows[] = {
      {3, limit, {}},  // steps count from the minimum
      {19, limit, {}},
      {4, limit, Failure::kIncrement},
      {20, limit, Failure::kIncrement},
      {2, limit, Failure::kOutOfRange},
      {23, limit, Failure::kOutOfRange},
      {kMin, limit, Failure::kOutOfRange},
      {15, std::int64_t{11}, Failure::kOutOfRange},
      {0x8000'0003, kMax, Failure::kOutOfRange},  // the register has limits of its own
  };
  for (const auto& row : rows) {
    WriteInteger(*reg, 11);
    node->max = row.max;
    EXPECT_EQ(Refused(node, row.value), row.failure) << row.value;
    EXPECT_EQ(ReadInteger(*reg), row.failure ? 11 : row.value);
  }
  const NodePtr wide = NewBounded("Wide", kMin, kMax, 10);
  EXPECT_EQ(Refused(wide, kMin + 10), std::nullopt);
  EXPECT_EQ(Refused(wide, kMax), Failure::kIncrement);  // 2^64 - 1 above the minimum
}

TEST(Limits, OfFloatsTakeStepsWithoutAnExactBinaryForm) {
  const NodePtr node = NewNode(NodeKind::Float, "Node", 0.5);
  node->min = 0.1;
  node->max = std::int64_t{2};
  node->increment = 0.1;
  for (const double value : {0.3, 0.7, 1.1, 2.0}) EXPECT_EQ(RefusedFloat(node, value), std::nullopt) << value;
  EXPECT_EQ(RefusedFloat(node, 0.35), Failure::kIncrement);
  for (const double value : {0.0, 2.1, std::nan(""), HUGE_VAL, -HUGE_VAL}) {
    EXPECT_EQ(RefusedFloat(node, value), Failure::kOutOfRange) << value;
  }
  EXPECT_EQ(ReadFloat(*node), 2.0);
}

TEST(Enumerations, TakeNothingButTheirEntries) {
  const NodePtr reg = NewIntReg("Reg");
  const NodePtr node = NewEnumeration("Mode", reg, {{"Off", 0}, {"On", 7}});
  WriteText(*node, "On");
  EXPECT_EQ(ReadText(*node), "On");
  EXPECT_EQ(Refused(node, 1), Failure::kOutOfRange);
  EXPECT_EQ(RefusedText(node, "on"), Failure::kNotFound);
  EXPECT_EQ(ReadInteger(*reg), 7);
  node->children[0]->symbolic = "Dark";
  WriteText(*node, "Dark");
  EXPECT_EQ(ReadText(*node), "Dark");
  EXPECT_EQ(RefusedText(node, "Off"), Failure::kNotFound);
  WriteInteger(*reg, 5);  // from elsewhere
  EXPECT_EQ(Refusal([&] { ReadText(*node); }), Failure::kNoValue);
  EXPECT_EQ(ReadInteger(*node), 5);
}

TEST(Booleans, StoreOneOfTwoNumbers) {
  const NodePtr reg = NewIntReg("Reg");
  const NodePtr node = NewNode(NodeKind::Boolean, "Flag", reg);
  node->on_value = std::int64_t{5};
  node->off_value = std::int64_t{9};
  WriteText(*node, "true");
  EXPECT_EQ(ReadInteger(*reg), 5);
  EXPECT_EQ(ReadInteger(*node), 1);
  WriteInteger(*node, 0);
  EXPECT_EQ(ReadInteger(*reg), 9);
  EXPECT_EQ(ReadText(*node), "false");
  for (const char* text : {"TRUE", "", " true"}) EXPECT_EQ(RefusedText(node, text), Failure::kText) << text;
}

TEST(Commands, AreDoneWhenTheNumberIsGone) {
  const NodePtr reg = NewIntReg("Reg");
  const NodePtr node = NewNode(NodeKind::Command, "Fire", reg);
  node->on_value = NewInteger("Number", std::int64_t{3});
  EXPECT_TRUE(ReadBoolean(*node));
  WriteBoolean(*node, true);
  EXPECT_EQ(ReadInteger(*reg), 3);
  EXPECT_FALSE(ReadBoolean(*node));
  FinishCommand(*node);
  EXPECT_TRUE(ReadBoolean(*node));
  node->on_value = std::int64_t{0};
  WriteInteger(*reg, 7);
  WriteBoolean(*node, true);
  EXPECT_FALSE(ReadBoolean(*node));
  WriteBoolean(*node, false);
  EXPECT_TRUE(ReadBoolean(*node));
  EXPECT_EQ(ReadInteger(*reg), 7);
}

TEST(SwissKnives, ComputeFromTheirVariablesAsTheseComeAndGo) {
  const NodePtr a = NewInteger("A", std::int64_t{6});
  const NodePtr b = NewNode(NodeKind::Float, "B", 2.4);
  const NodePtr c = NewInteger("C", std::int64_t{100});
  const NodePtr knife = NewKnife("Knife", {c, a}, "");
  const auto set = [&](const char* formula) {
    return Refusal([&] { SetTextItem(*knife, NodeItem::Formula, formula); });
  };
  EXPECT_EQ(Refusal([&] { ReadInteger(*knife); }), Failure::kNoValue);
  EXPECT_EQ(set("A/B"), Failure::kFormula);
  Link(knife, NodeList::Child, b);
  EXPECT_EQ(set("A/B"), std::nullopt);
  EXPECT_EQ(ReadInteger(*knife), 3);
  RemoveRelated(knife, NodeList::Child, c);
  EXPECT_EQ(ReadInteger(*knife), 3);
  AddRelated(knife, NodeList::Child, c, a);
  EXPECT_EQ(ReadInteger(*knife), 3);
  EXPECT_EQ(Refusal([&] { RemoveRelated(knife, NodeList::Child, b); }), Failure::kFormula);
  EXPECT_EQ(set("A/"), Failure::kFormula);
  EXPECT_EQ(TextItem(*knife, NodeItem::Formula), "A/B");
  EXPECT_EQ(Refused(knife, 1), Failure::kNotSupported);
  b->value = 0.0;
  EXPECT_EQ(Refusal([&] { ReadInteger(*knife); }), Failure::kNoValue);
}

TEST(NumberTexts, AreReadWholeOrNotAtAll) {
  EXPECT_EQ(ParseInteger("+7\n", "x"), 7);
  EXPECT_EQ(ParseInteger("0xFFFFFFFFFFFFFFFF", "x"), -1);
  EXPECT_EQ(ParseInteger("-9223372036854775808", "x"), kMin);
  for (const char* text : {"", " ", "1 2", "1.5", "0x", "0x-1", "0x+1", "+-1", "--1", "1e3"}) {
    EXPECT_EQ(Refusal([&] { ParseInteger(text, "x"); }), Failure::kText) << text;
  }
  for (const char* text : {"9223372036854775808", "0x10000000000000000"}) {
    EXPECT_EQ(Refusal([&] { ParseInteger(text, "x"); }), Failure::kOverflow) << text;
  }
  EXPECT_EQ(ParseFloat(" +1.5e3", "x"), 1500.0);
  for (const char* text : {"1,5", "", "+-1"}) {
    EXPECT_EQ(Refusal([&] { ParseFloat(text, "x"); }), Failure::kText) << text;
  }
  for (const double value : {0.1, -1e300, 5e-324, HUGE_VAL}) {
    EXPECT_EQ(ParseFloat(FloatText(value), "x"), value);
  }
}

}  // namespace
}  // namespace Tarn
