#include "camera/engine/registers/register_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

#include "camera/engine/nodes/make_nodes_test.h"
#include "camera/engine/nodes/node_values.h"

namespace Tarn {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kNumber = 0xA000;
constexpr auto kTaken = WireStatus::Success;
constexpr auto kBusy = WireStatus::Busy;
constexpr auto kInvalid = WireStatus::InvalidParameter;
constexpr auto kProtected = WireStatus::WriteProtect;
constexpr auto kNoAddress = WireStatus::InvalidAddress;

class RegisterFileTest : public testing::Test {
 protected:
  NodePtr Add(const NodePtr& node) { return Put(tree_, node); }
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
  constexpr auto kFile = static_cast<std::uint32_t>(kDescriptionFile);
  Add(NewIntReg("Odd", 0xA008, 6));
  Publish();
  const struct {
    std::uint32_t address, length;
    bool block;
    WireStatus status;
  } rows[] = {
      {kNumber, 4, false, kTaken},       {kNumber, 8, true, kNoAddress},
      {0xA00C, 4, false, kTaken},  // the word in which it ends
      {0xA010, 4, false, kNoAddress},    {0x0018, 4, false, kNoAddress},
      {0x0000, 0xF8, true, kTaken},      {0x00F4, 8, true, kNoAddress},
      {0xFFFFFFFC, 8, true, kNoAddress}, {kFile + 8, 4, true, kTaken},  // ten bytes, and a word's rest
      {kFile + 8, 8, true, kNoAddress},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(file_.CheckRead(row.address, row.length, row.block), row.status) << std::hex << row.address;
  }
  EXPECT_EQ(Write(kFile, 1), kNoAddress);
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
  EXPECT_EQ(Read(kNumber, 12), (Bytes{1, 2, 3, 4, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Write(0xA008, 1), kBusy);
  EXPECT_EQ(Write(0xA004, 9), kTaken);
  EXPECT_EQ(ReadInteger(*secret), 9);
}

TEST_F(RegisterFileTest, TakesAWriteThatOneFeatureTakes) {
  const NodePtr low = Feature(NodeKind::Integer, "Low", number_);
  low->max = std::int64_t{10};
  const NodePtr high = Feature(NodeKind::Integer, "High", number_);
  high->min = std::int64_t{100};
  high->increment = std::int64_t{5};
  const NodePtr locked = Add(NewInteger("Locked", std::int64_t{1}));
  Publish();
  for (const std::uint32_t value : {11u, 99u, 106u}) EXPECT_EQ(Write(kNumber, value), kInvalid) << value;
  for (const std::uint32_t value : {10u, 105u}) EXPECT_EQ(Write(kNumber, value), kTaken) << value;
  high->is_locked = locked;
  EXPECT_EQ(Write(kNumber, 110), kInvalid);
  low->is_locked = locked;
  EXPECT_EQ(Write(kNumber, 5), kBusy);
  low->imposed_access = high->imposed_access = AccessMode::ReadOnly;
  locked->value = std::int64_t{0};
  EXPECT_EQ(Write(kNumber, 5), kProtected);
  number_->reg->access = AccessMode::ReadOnly;
  low->imposed_access.reset();
  EXPECT_EQ(Write(kNumber, 5), kProtected);
  number_->is_implemented = Add(NewInteger("No"));
  EXPECT_EQ(Write(kNumber, 5), kNoAddress);
  EXPECT_EQ(ReadInteger(*number_), 105);
}

TEST_F(RegisterFileTest, TakesOnlyWhatEnumerationsAndBooleansKnow) {
  const NodePtr mode = Add(NewEnumeration("Mode", number_, {{"One", 1}, {"Two", 2}}));
  Feature(NodeKind::Boolean, "Flag", Add(NewIntReg("FlagValue", 0xA010)))->on_value = std::int64_t{7};
  Publish();
  EXPECT_EQ(Write(kNumber, 2), kTaken);
  EXPECT_EQ(Write(kNumber, 3), kInvalid);
  mode->children[0]->is_available = Add(NewInteger("No"));
  EXPECT_EQ(Write(kNumber, 1), kInvalid);
  EXPECT_EQ(Write(0xA010, 7), kTaken);
  EXPECT_EQ(Write(0xA010, 1), kInvalid);
  EXPECT_EQ(Write(0xA010, 0), kTaken);
}

TEST_F(RegisterFileTest, AnswersWithAnErrorWhereAConditionHasNoValue) {
  const NodePtr zero = Add(NewInteger("Zero"));
  number_->is_locked = Add(NewKnife("Knife", {zero}, "1/Zero"));
  Link(Add(NewIntReg("Moving", 0xB000)), NodeList::Addresses, number_->is_locked);
  Publish();
  EXPECT_EQ(Write(kNumber, 1), WireStatus::Error);
  EXPECT_EQ(Read(kNumber, 4), (Bytes{0, 0, 0, 0}));
  EXPECT_EQ(file_.CheckRead(0xB000, 4, false), kNoAddress);
  WriteInteger(*zero, 2);  // a half is nothing
  EXPECT_EQ(file_.CheckRead(0xB000, 4, false), kTaken);
  EXPECT_EQ(Write(0xB000, 3), kTaken);
}

TEST_F(RegisterFileTest, WritesPartsOfNumbersAndTexts) {
  const NodePtr wide = Add(NewIntReg("Wide", 0xA008, 8));
  const NodePtr text = Add(NewRegister(NodeKind::StringReg, "Text", 0xA010, 8));
  Add(NewIntReg("Odd", 0xA018, 3));
  const NodePtr field = Add(NewIntReg("Field", 0xA020));
  field->reg->bits = BitRange{24, 31};
  field->reg->is_signed = false;
  Feature(NodeKind::Integer, "Byte", field)->max = std::int64_t{9};
  Publish();
  WriteInteger(*wide, 0x1111111122222222);
  EXPECT_EQ(Write(0xA00C, 0x33333333), kTaken);
  EXPECT_EQ(ReadInteger(*wide), 0x1111111133333333);
  EXPECT_EQ(Write(0xA010, Bytes{'a', 'b', 'c', 'd'}), kTaken);
  EXPECT_EQ(Write(0xA014, Bytes{'x', 0, 0, 0}), kTaken);
  EXPECT_EQ(ReadText(*text), "abcdx");
  EXPECT_EQ(Write(0xA018, Bytes{1, 2, 3, 4}), kTaken);
  EXPECT_EQ(Read(0xA018, 4), (Bytes{1, 2, 3, 0}));
  EXPECT_EQ(Write(0xA020, 0xABCDEF0A), kInvalid);
  EXPECT_EQ(Write(0xA020, 0xABCDEF09), kTaken);
  const struct {
    std::uint32_t address, length, unit;
  } units[] = {{0xA008, 100, 8}, {0xA00C, 100, 4}, {0xA010, 4, 4}, {0xB000, 100, 4}, {0x0200, 100, 4}};
  for (const auto& row : units) EXPECT_EQ(file_.UnitLength(row.address, row.length), row.unit) << row.address;
}

TEST_F(RegisterFileTest, KeepsTextsUtf8HoweverTheyArrive) {
  const NodePtr text = Add(NewRegister(NodeKind::StringReg, "Text", 0xA010, 12));
  Publish();
  WriteText(*text, "oldoldoldold");
  const struct {
    std::uint32_t at;
    Bytes piece;
    WireStatus status;
    std::string after;
  } rows[] = {
      {0, {'a', 'b', 'c', 0xC3}, kTaken, "abc"},  // cut: the rest is to come
      {4, {0xA4, 'x', 'y', 'z'}, kTaken, "abc\xC3\xA4xyzdold"},
      {4, {'u', 'v', 'w', 'x'}, kInvalid, "abc\xC3\xA4xyzdold"},  // the character does not go on
      {8, {0xE2, 0x82, 0xAC, '!'}, kTaken, "abc\xC3\xA4xyz\xE2\x82\xAC!"},
      {0, {'a', 'b', 0, 0xFF}, kTaken, "ab"},  // what follows a zero is no text
      {0, {'a', 'b', 0xFF, 'd'}, kInvalid, "ab"},
      {0, {0xA4, 'a', 'b', 'c'}, kInvalid, "ab"},
      {8, {'a', 'b', 'c', 0xC3}, kInvalid, "ab"},  // nothing comes behind the end
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Write(0xA010 + row.at, row.piece), row.status) << &row - rows;
    EXPECT_EQ(ReadText(*text), row.after) << &row - rows;
  }
  EXPECT_EQ(Refusal([&] { WriteText(*text, "\xFF"); }), Failure::kText);
}

TEST_F(RegisterFileTest, GivesTheRegisterOfACommandBackWhatItHeld) {
  const NodePtr position = Feature(NodeKind::Integer, "Position", number_);
  position->max = std::int64_t{1000};
  Feature(NodeKind::Command, "Home", number_)->on_value = std::int64_t{0xFFFF};
  const NodePtr moving = Add(NewIntReg("PulseValue", 0xB000));
  Feature(NodeKind::Command, "Pulse", Link(moving, NodeList::Addresses, Add(NewBounded("Sel", 0, 4))));
  Publish();
  for (const std::uint32_t value : {42u, 0xFFFFu}) EXPECT_EQ(Write(kNumber, value), kTaken);
  EXPECT_EQ(ReadInteger(*number_), 0xFFFF);  // while its listeners run
  file_.FinishCommands(kNumber, 4);
  EXPECT_EQ(ReadInteger(*position), 42);
  // Where the client's selector has it, not the device's.
  EXPECT_EQ(Write(0xB004, 1), kTaken);
  file_.FinishCommands(0xB004, 4);
  EXPECT_EQ(tree_.Memory().Load32(0xB004), 0u);
}

/// A register for each number of Sel, 0 to 3, which lives in the client; the device has 0.
class SelectedRegisterTest : public RegisterFileTest {
 protected:
  NodePtr BySelector(const std::string& name, const std::string& formula) {
    return Add(NewKnife(name, {sel_}, formula));
  }
  NodePtr Moved(const NodePtr& reg) { return Link(Add(reg), NodeList::Addresses, offset_); }
  static std::uint32_t Bank(std::uint32_t number) { return 0xB000 + 4 * number; }

  NodePtr level_ = Add(NewInteger("Level"));
  NodePtr sel_ = Link(Add(NewBounded("Sel", 0, 3)), NodeList::Selected, level_);
  NodePtr offset_ = BySelector("Offset", "Sel*4");
  NodePtr bank_ = Moved(NewIntReg("Bank", 0xB000));
};

TEST_F(SelectedRegisterTest, IsCheckedForThePlaceThatWasAddressed) {
  level_->value = bank_;
  level_->max = BySelector("Limit", "Sel=2 ? 1000 : 10");
  level_->is_locked = BySelector("Locked", "Sel=3");
  Publish();
  for (const std::int64_t device : {0, 2}) {
    WriteInteger(*sel_, device);
    EXPECT_EQ(Write(Bank(2), 500), kTaken);
    EXPECT_EQ(Write(Bank(1), 500), kInvalid);
    EXPECT_EQ(Write(Bank(1), 5), kTaken);
    EXPECT_EQ(Write(Bank(3), 5), kBusy);
  }
  EXPECT_EQ(tree_.Memory().Load32(Bank(1)), 5u);
}

TEST_F(SelectedRegisterTest, HasLimitsThatMoveAlong) {
  level_->value = bank_;
  level_->max = Moved(NewIntReg("Most", 0xC000));
  tree_.Memory().Store32(0xC004, 100);
  Publish();
  EXPECT_EQ(Write(Bank(1), 100), kTaken);
  EXPECT_EQ(Write(Bank(1), 101), kInvalid);
  EXPECT_EQ(Write(Bank(0), 1), kInvalid);
}

TEST_F(SelectedRegisterTest, ReadsAndEntriesFollowItToo) {
  const NodePtr mode = Add(NewEnumeration("Mode", bank_, {{"Off", 0}, {"On", 1}}));
  Link(sel_, NodeList::Selected, mode);
  mode->children[1]->is_available = BySelector("HasOn", "Sel<>1");
  bank_->is_available = BySelector("There", "Sel<3");
  for (std::uint32_t i = 0; i < 4; ++i) tree_.Memory().Store32(Bank(i), i == 3 ? 7 : 0);
  Publish();
  EXPECT_EQ(Write(Bank(0), 1), kTaken);
  EXPECT_EQ(Write(Bank(1), 1), kInvalid);
  WriteInteger(*sel_, 1);
  EXPECT_EQ(Read(Bank(0), 16), (Bytes{0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Write(Bank(3), 0), kBusy);
}

TEST_F(SelectedRegisterTest, TakesWhatOneNumberOfASelectorThatDoesNotMoveItAllows) {
  level_->value = number_;
  level_->max = BySelector("Limit", "Sel*10");
  Publish();
  EXPECT_EQ(Write(kNumber, 30), kTaken);  // when it is 3 in the client
  EXPECT_EQ(Write(kNumber, 31), kInvalid);
}

TEST_F(SelectedRegisterTest, ExistsAsFarAsItsLimitsReachAtTheMoment) {
  const NodePtr top = Add(NewIntReg("Top", 0xC000));
  WriteInteger(*top, 3);
  sel_->max = top;
  Publish();
  EXPECT_EQ(Write(Bank(5), 1), kNoAddress);
  WriteInteger(*top, 10);
  EXPECT_EQ(Write(Bank(5), 1), kTaken);
  EXPECT_EQ(file_.CheckRead(Bank(0), 44, true), kTaken);
  EXPECT_EQ(file_.CheckRead(Bank(0), 48, true), kNoAddress);
  EXPECT_EQ(Write(0xC000, 1), kTaken);
  EXPECT_EQ(file_.CheckRead(Bank(2), 4, false), kNoAddress);
}

TEST(PlaceIndex, FindsWhatAScanFinds) {
  using Found = std::vector<std::pair<std::uint32_t, std::uint32_t>>;
  std::vector<Place> places{{0x1000, 0x10FFF, 0, 0}};  // a long one over others
  for (std::uint32_t i = 1; i < 300; ++i) {
    const std::uint32_t address = i * 7919 % 0x4000 / 4 * 4;
    places.push_back({address, address + i % 5 * 16 + 3, i, 0});
    if (i % 7 == 0) places.push_back({address, address + i % 5 * 16 + 3, i, 1});
  }
  const PlaceIndex index(places);
  std::ranges::sort(places, {}, [](const Place& p) { return std::tuple(p.address, p.reg, p.combination); });
  for (std::uint32_t first = 0; first < 0x12000; first += 0x9C) {
    const std::uint32_t last = first + 0x40;
    Found expected, found;
    for (const Place& place : places) {
      if (place.address <= last && place.last >= first) expected.emplace_back(place.reg, place.combination);
    }
    index.ForEach(first, last, [&](std::span<const Place> same) {
      for (const Place& place : same) found.emplace_back(place.reg, place.combination);
    });
    EXPECT_EQ(found, expected) << first;
  }
}

TEST_F(RegisterFileTest, ListsListenersNearestFirst) {
  const NodePtr other = Add(NewIntReg("Other", 0xA004));
  const NodePtr inner = Feature(NodeKind::Integer, "Inner", number_);
  const NodePtr outer = Feature(NodeKind::Float, "Outer", inner);
  const NodePtr second = Feature(NodeKind::Integer, "Second", number_);
  for (const NodePtr& node : {other, outer, second, inner, number_}) {
    node->listeners.push_back(
        std::make_shared<const NodeListener>(NodeListener{NodeEvent::Read, nullptr, node.get(), 1}));
  }
  Publish();
  const struct {
    std::uint32_t address, length;
    std::vector<NodePtr> heard;
  } rows[] = {
      {kNumber, 4, {number_, inner, second, outer}},
      {0xA004, 4, {other}},
      {0xA003, 2, {number_, inner, second, outer, other}},
      {0xFFFFFFFC, 0xFFFF, {}},
  };
  for (const auto& row : rows) {
    const auto listeners = file_.Listeners(row.address, row.length, NodeEvent::Read);
    EXPECT_TRUE(std::ranges::equal(
        listeners, row.heard, {}, [](const auto& l) { return l->context; },
        [](const NodePtr& node) { return static_cast<void*>(node.get()); }))
        << row.address;
  }
}

}  // namespace
}  // namespace Tarn
