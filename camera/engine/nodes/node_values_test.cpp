#include "camera/engine/nodes/node_values.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "camera/engine/nodes/feature_tree.h"
#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_items.h"
#include "camera/engine/nodes/node_limits.h"
#include "camera/engine/nodes/number_text.h"
#include "camera/engine/nodes/register_value.h"

namespace Tarn {
namespace {

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

std::vector<std::uint8_t> StoredBytes(const Node& reg) { return reg.reg->bytes; }

TEST(IntegerRegisters, HoldWhatTheirLengthSignAndFieldAllow) {
  const struct {
    std::int64_t length;
    bool is_signed;
    std::optional<BitRange> bits;
    std::int64_t lowest;
    std::int64_t highest;
  } rows[] = {
      {4, false, {}, 0, 0xFFFF'FFFF},
      {4, true, {}, -0x8000'0000LL, 0x7FFF'FFFF},
      {8, true, {}, kMin, kMax},
      {8, false, {}, 0, kMax},  // clients know no larger numbers
      {3, true, {}, -0x80'0000, 0x7F'FFFF},
      {1, false, {}, 0, 255},
      {4, false, BitRange{16, 31}, 0, 0xFFFF},
      {4, false, BitRange{0, 0}, 0, 1},
      {4, true, BitRange{4, 7}, -8, 7},
      {4, true, BitRange{31, 31}, -1, 0},
      {8, true, BitRange{1, 62}, -(1LL << 61), (1LL << 61) - 1},
  };
  for (const auto& row : rows) {
    const NodePtr reg = NewIntReg("Reg", -1, row.length);
    reg->reg->is_signed = row.is_signed;
    reg->reg->bits = row.bits;
    SCOPED_TRACE(std::to_string(row.length) + " bytes to " + std::to_string(row.highest));
    for (const std::int64_t value : {row.lowest, row.highest, std::int64_t{0}}) {
      WriteInteger(*reg, value);
      EXPECT_EQ(ReadInteger(*reg), value);
    }
    WriteInteger(*reg, row.highest);
    const auto before = StoredBytes(*reg);
    if (row.highest < kMax) {
      EXPECT_EQ(Refusal([&] { WriteInteger(*reg, row.highest + 1); }), Failure::kOutOfRange);
    }
    if (row.lowest > kMin) {
      EXPECT_EQ(Refusal([&] { WriteInteger(*reg, row.lowest - 1); }), Failure::kOutOfRange);
    }
    EXPECT_EQ(StoredBytes(*reg), before);
  }
}

TEST(IntegerRegisters, AreBigEndianAndFieldsLeaveTheRestAlone) {
  const NodePtr reg = NewIntReg("Reg");
  WriteInteger(*reg, 0x01020304);
  EXPECT_EQ(StoredBytes(*reg), (std::vector<std::uint8_t>{1, 2, 3, 4}));
  reg->reg->bits = BitRange{8, 15};  // the second byte: bit 0 is the most significant
  EXPECT_EQ(ReadInteger(*reg), 2);
  WriteInteger(*reg, -1);
  EXPECT_EQ(StoredBytes(*reg), (std::vector<std::uint8_t>{1, 0xFF, 3, 4}));
  EXPECT_EQ(ReadInteger(*reg), -1);
}

TEST(FloatRegisters, AreIeeeBigEndian) {
  const NodePtr single = NewRegister(NodeKind::FloatReg, "Single", -1, 4);
  WriteFloat(*single, -2.5);
  EXPECT_EQ(StoredBytes(*single), (std::vector<std::uint8_t>{0xC0, 0x20, 0, 0}));
  EXPECT_EQ(ReadFloat(*single), -2.5);
  EXPECT_EQ(Refusal([&] { WriteFloat(*single, 1e39); }), Failure::kOutOfRange);
  EXPECT_EQ(ReadFloat(*single), -2.5);
  const NodePtr twice = NewRegister(NodeKind::FloatReg, "Double", -1, 8);
  WriteFloat(*twice, 1e300);
  EXPECT_EQ(ReadFloat(*twice), 1e300);
  EXPECT_EQ(Refusal([&] { ReadInteger(*twice); }), Failure::kNoValue);
  WriteFloat(*twice, -2.5);
  EXPECT_EQ(ReadInteger(*twice), -3);  // halves away from zero
}

TEST(StringRegisters, EndAtTheFirstZeroOrWithTheRegister) {
  const NodePtr reg = NewRegister(NodeKind::StringReg, "Text", -1, 8);
  WriteText(*reg, "12345678");
  EXPECT_EQ(ReadText(*reg), "12345678");
  WriteText(*reg, "abc");
  EXPECT_EQ(StoredBytes(*reg), (std::vector<std::uint8_t>{'a', 'b', 'c', 0, 0, 0, 0, 0}));
  EXPECT_EQ(ReadText(*reg), "abc");
  EXPECT_EQ(Refusal([&] { WriteText(*reg, "123456789"); }), Failure::kOutOfRange);
  EXPECT_EQ(ReadText(*reg), "abc");
}

TEST(ValueChains, EndWhereTheNumberIsKept) {
  const NodePtr reg = NewIntReg("Reg");
  const NodePtr inner = NewInteger("Inner", reg);
  const NodePtr outer = NewInteger("Outer", inner);
  const NodePtr as_float = NewNode(NodeKind::Float, "AsFloat", outer);
  WriteInteger(*outer, 12);
  EXPECT_EQ(ReadInteger(*reg), 12);
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
  const NodePtr node = NewInteger("Node", reg);
  node->min = std::int64_t{3};
  node->max = limit;
  node->increment = std::int64_t{4};
  WriteInteger(*node, 11);
  const struct {
    std::int64_t value;
    std::optional<Failure> failure;
  } rows[] = {{3, {}},  // steps count from the minimum
              {19, {}},
              {4, Failure::kIncrement},
              {20, Failure::kIncrement},
              {2, Failure::kOutOfRange},
              {23, Failure::kOutOfRange},
              {kMin, Failure::kOutOfRange}};
  for (const auto& row : rows) {
    WriteInteger(*reg, 11);
    EXPECT_EQ(Refusal([&] { WriteInteger(*node, row.value); }), row.failure) << row.value;
    EXPECT_EQ(ReadInteger(*reg), row.failure ? 11 : row.value);
  }
  limit->value = std::int64_t{11};
  EXPECT_EQ(Refusal([&] { WriteInteger(*node, 15); }), Failure::kOutOfRange);
  // Own limits may be wider than the register's; then the register refuses.
  node->max = kMax;
  EXPECT_EQ(Refusal([&] { WriteInteger(*node, 0x8000'0003LL); }), Failure::kOutOfRange);
  EXPECT_EQ(ReadInteger(*reg), 11);
}

TEST(Limits, CountStepsOverTheWholeRange) {
  const NodePtr node = NewInteger("Node");
  node->min = kMin;
  node->increment = std::int64_t{10};
  EXPECT_EQ(Refusal([&] { WriteInteger(*node, kMin + 10); }), std::nullopt);
  EXPECT_EQ(Refusal([&] { WriteInteger(*node, kMax); }), Failure::kIncrement);  // 2^64 - 1 above the minimum
}

TEST(Limits, OfFloatsTakeStepsWithoutAnExactBinaryForm) {
  const NodePtr node = NewNode(NodeKind::Float, "Node", 0.5);
  node->min = 0.1;
  node->max = std::int64_t{2};
  node->increment = 0.1;
  for (const double value : {0.3, 0.7, 1.1, 2.0}) {
    EXPECT_EQ(Refusal([&] { WriteFloat(*node, value); }), std::nullopt) << value;
  }
  EXPECT_EQ(Refusal([&] { WriteFloat(*node, 0.35); }), Failure::kIncrement);
  for (const double value : {0.0, 2.1, std::nan(""), HUGE_VAL, -HUGE_VAL}) {
    EXPECT_EQ(Refusal([&] { WriteFloat(*node, value); }), Failure::kOutOfRange) << value;
  }
  EXPECT_EQ(ReadFloat(*node), 2.0);
}

TEST(Enumerations, TakeNothingButTheirEntries) {
  const NodePtr reg = NewIntReg("Reg");
  const NodePtr node = NewEnumeration("Mode", reg, {{"Off", 0}, {"On", 7}});
  WriteText(*node, "On");
  EXPECT_EQ(ReadInteger(*reg), 7);
  EXPECT_EQ(ReadText(*node), "On");
  EXPECT_EQ(Refusal([&] { WriteInteger(*node, 1); }), Failure::kOutOfRange);
  EXPECT_EQ(Refusal([&] { WriteText(*node, "on"); }), Failure::kNotFound);
  EXPECT_EQ(ReadInteger(*reg), 7);
  node->children[0]->symbolic = "Dark";
  WriteText(*node, "Dark");
  EXPECT_EQ(ReadText(*node), "Dark");
  EXPECT_EQ(Refusal([&] { WriteText(*node, "Off"); }), Failure::kNotFound);
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
  for (const char* text : {"TRUE", "yes", "", " true"}) {
    EXPECT_EQ(Refusal([&] { WriteText(*node, text); }), Failure::kText) << text;
  }
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

TEST(SwissKnives, ComputeFromTheirVariablesAtEachRead) {
  const NodePtr a = NewInteger("A", std::int64_t{6});
  const NodePtr b = NewNode(NodeKind::Float, "B", 2.4);
  const NodePtr knife = NewNode(NodeKind::IntSwissKnife, "Knife");
  EXPECT_EQ(Refusal([&] { ReadInteger(*knife); }), Failure::kNoValue);
  AddRelated(knife, NodeList::Child, a, nullptr);
  EXPECT_EQ(Refusal([&] { SetTextItem(*knife, NodeItem::Formula, "A/B"); }), Failure::kFormula);
  AddRelated(knife, NodeList::Child, b, nullptr);
  SetTextItem(*knife, NodeItem::Formula, "A/B");
  EXPECT_EQ(ReadInteger(*knife), 3);
  b->value = 0.0;
  EXPECT_EQ(Refusal([&] { ReadInteger(*knife); }), Failure::kNoValue);
  EXPECT_EQ(Refusal([&] { SetTextItem(*knife, NodeItem::Formula, "A/"); }), Failure::kFormula);
  EXPECT_EQ(TextItem(*knife, NodeItem::Formula), "A/B");
  EXPECT_EQ(Refusal([&] { WriteInteger(*knife, 1); }), Failure::kNotSupported);
}

TEST(SwissKnives, KeepTheirMeaningWhenVariablesComeAndGo) {
  const NodePtr knife = NewNode(NodeKind::IntSwissKnife, "Knife");
  const NodePtr a = NewInteger("A", std::int64_t{6});
  const NodePtr b = NewInteger("B", std::int64_t{2});
  const NodePtr c = NewInteger("C", std::int64_t{100});
  for (const NodePtr& node : {c, a, b}) AddRelated(knife, NodeList::Child, node, nullptr);
  SetTextItem(*knife, NodeItem::Formula, "A-B");
  RemoveRelated(knife, NodeList::Child, c);
  EXPECT_EQ(ReadInteger(*knife), 4);
  AddRelated(knife, NodeList::Child, c, a);
  EXPECT_EQ(ReadInteger(*knife), 4);
  EXPECT_EQ(Refusal([&] { RemoveRelated(knife, NodeList::Child, b); }), Failure::kFormula);
  EXPECT_EQ(ReadInteger(*knife), 4);
}

TEST(NumberTexts, AreReadWholeOrNotAtAll) {
  EXPECT_EQ(ParseInteger(" -0 ", "x"), 0);
  EXPECT_EQ(ParseInteger("+7\n", "x"), 7);
  EXPECT_EQ(ParseInteger("0xFFFFFFFFFFFFFFFF", "x"), -1);
  EXPECT_EQ(ParseInteger("-9223372036854775808", "x"), kMin);
  for (const char* text : {"", " ", "1 2", "1.5", "0x", "0x-1", "0x+1", "+-1", "--1", "1e3", "ten"}) {
    EXPECT_EQ(Refusal([&] { ParseInteger(text, "x"); }), Failure::kText) << text;
  }
  for (const char* text : {"9223372036854775808", "0x10000000000000000"}) {
    EXPECT_EQ(Refusal([&] { ParseInteger(text, "x"); }), Failure::kOverflow) << text;
  }
  EXPECT_EQ(ParseFloat(" +1.5e3", "x"), 1500.0);
  for (const char* text : {"1,5", "", "+-1", "1.5x"}) {
    EXPECT_EQ(Refusal([&] { ParseFloat(text, "x"); }), Failure::kText) << text;
  }
  for (const double value : {0.1, -1e300, 5e-324, 1.0, HUGE_VAL}) {
    EXPECT_EQ(ParseFloat(FloatText(value), "x"), value);
  }
}

}  // namespace
}  // namespace Tarn
