#include "camera/engine/registers/register_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

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
  WriteInteger(*zero, 2);  // a half is nothing
  EXPECT_EQ(file_.CheckRead(0xB000, 4, false), WireStatus::Success);
  EXPECT_EQ(Write(0xB000, 3), WireStatus::Success);
  EXPECT_EQ(ReadInteger(*moving), 3);
}

TEST_F(RegisterFileTest, WritesPartsOfNumbersAndTexts) {
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
  EXPECT_EQ(Write(0xA014, Bytes{'x', 0, 0, 0}), WireStatus::Success);
  EXPECT_EQ(ReadText(*text), "abcdx");
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

TEST_F(RegisterFileTest, KeepsTextsUtf8HoweverTheyArrive) {
  const NodePtr text = Add(NewRegister(NodeKind::StringReg, "Text", 0xA010, 12));
  Publish();
  const std::string old_text = "oldoldoldold";
  const struct {
    std::uint32_t at;
    std::string piece;
    bool taken;
    std::string text;
  } rows[] = {
      {0, "abc\xC3", true, "abc"},  // cut: the rest is to come
      {4,
       "\xA4"
       "def",
       true,
       "abc\xC3\xA4"
       "defdold"},
      {4, "xyzu", false, ""},  // the character does not go on
      {8, "\xE2\x82\xAC!", true, ""},
      {0, std::string("ab\0\xFF", 4), true, "ab"},  // what follows a zero is no text
      {0,
       "ab\xFF"
       "d",
       false, ""},
      {0,
       "\xA4"
       "abc",
       false, ""},
      {0,
       "\xC0\x80"
       "ab",
       false, ""},  // a zero that is longer than it need be
      {0,
       "\xED\xA0\x80"
       "a",
       false, ""},                // a surrogate
      {8, "abc\xC3", false, ""},  // nothing comes behind the end
  };
  std::string before = old_text;
  WriteText(*text, old_text);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.piece);
    const WireStatus status = Write(0xA010 + row.at, Bytes(row.piece.begin(), row.piece.end()));
    EXPECT_EQ(status, row.taken ? WireStatus::Success : WireStatus::InvalidParameter);
    if (!row.text.empty()) {
      EXPECT_EQ(ReadText(*text), row.text);
    }
    if (!row.taken) {
      EXPECT_EQ(ReadText(*text), before);
    }
    before = ReadText(*text);
  }
  EXPECT_EQ(Refusal([&] { WriteText(*text, "\xFF"); }), Failure::kText);
}

TEST_F(RegisterFileTest, GivesTheRegisterOfACommandBackWhatItHeld) {
  const NodePtr position = Feature(NodeKind::Integer, "Position", number_);
  position->max = std::int64_t{1000};
  const NodePtr home = Feature(NodeKind::Command, "Home", number_);
  home->on_value = std::int64_t{0xFFFF};
  const NodePtr sel = Add(NewInteger("Sel"));
  sel->min = std::int64_t{0};
  sel->max = std::int64_t{4};
  const NodePtr pulse_value = Add(NewIntReg("PulseValue", 0xB000));
  AddRelated(pulse_value, NodeList::Addresses, sel, nullptr);
  Feature(NodeKind::Command, "Pulse", pulse_value);
  Publish();
  for (const std::uint32_t value : {42u, 0xFFFFu}) EXPECT_EQ(Write(kNumber, value), WireStatus::Success);
  EXPECT_EQ(ReadInteger(*number_), 0xFFFF);  // while its listeners run
  file_.FinishCommands(kNumber, 4);
  EXPECT_EQ(ReadInteger(*position), 42);
  // Where the client's selector has it, not the device's.
  EXPECT_EQ(Write(0xB004, 1), WireStatus::Success);
  file_.FinishCommands(0xB004, 4);
  EXPECT_EQ(tree_.Memory().Load32(0xB004), 0u);
}

/// A register for each number of Sel, 0 to 3, which lives in the client; the device has 0.
class SelectedRegisterTest : public RegisterFileTest {
 protected:
  NodePtr Knife(const std::string& name, const std::vector<NodePtr>& variables, const std::string& formula) {
    const NodePtr knife = Add(NewNode(NodeKind::IntSwissKnife, name));
    for (const NodePtr& variable : variables) AddRelated(knife, NodeList::Child, variable, nullptr);
    SetTextItem(*knife, NodeItem::Formula, formula);
    return knife;
  }
  NodePtr Selector(const std::string& name) {
    const NodePtr selector = Add(NewInteger(name));
    selector->min = std::int64_t{0};
    selector->max = std::int64_t{3};
    AddRelated(selector, NodeList::Selected, level_, nullptr);
    return selector;
  }
  NodePtr Moved(const NodePtr& reg) {
    AddRelated(reg, NodeList::Addresses, offset_, nullptr);
    return reg;
  }
  static std::uint32_t Bank(std::uint32_t number) { return 0xB000 + 4 * number; }

  NodePtr level_ = Add(NewInteger("Level"));
  NodePtr sel_ = Selector("Sel");
  NodePtr offset_ = Knife("Offset", {sel_}, "Sel*4");
  NodePtr bank_ = Moved(Add(NewIntReg("Bank", 0xB000)));
};

TEST_F(SelectedRegisterTest, IsCheckedForThePlaceThatWasAddressed) {
  level_->value = bank_;
  level_->max = Knife("Limit", {sel_}, "Sel=2 ? 1000 : 10");
  level_->is_locked = Knife("Locked", {sel_}, "Sel=3");
  Publish();
  for (const std::int64_t device : {0, 2}) {
    WriteInteger(*sel_, device);
    EXPECT_EQ(Write(Bank(2), 500), WireStatus::Success);
    EXPECT_EQ(Write(Bank(1), 500), WireStatus::InvalidParameter);
    EXPECT_EQ(Write(Bank(1), 5), WireStatus::Success);
    EXPECT_EQ(Write(Bank(3), 5), WireStatus::Busy);
  }
  EXPECT_EQ(tree_.Memory().Load32(Bank(1)), 5u);
}

TEST_F(SelectedRegisterTest, HasLimitsThatMoveAlong) {
  const NodePtr most = Moved(Add(NewIntReg("Most", 0xC000)));
  level_->value = bank_;
  level_->max = most;
  tree_.Memory().Store32(0xC004, 100);
  Publish();
  EXPECT_EQ(Write(Bank(1), 100), WireStatus::Success);
  EXPECT_EQ(Write(Bank(1), 101), WireStatus::InvalidParameter);
  EXPECT_EQ(Write(Bank(0), 1), WireStatus::InvalidParameter);
}

TEST_F(SelectedRegisterTest, ReadsAndEntriesFollowItToo) {
  const NodePtr mode = NewEnumeration("Mode", bank_, {{"Off", 0}, {"On", 1}});
  Add(mode);
  AddRelated(sel_, NodeList::Selected, mode, nullptr);
  mode->children[1]->is_available = Knife("HasOn", {sel_}, "Sel<>1");
  bank_->is_available = Knife("There", {sel_}, "Sel<3");
  for (std::uint32_t i = 0; i < 4; ++i) tree_.Memory().Store32(Bank(i), 0);
  tree_.Memory().Store32(Bank(3), 7);
  Publish();
  EXPECT_EQ(Write(Bank(0), 1), WireStatus::Success);
  EXPECT_EQ(Write(Bank(1), 1), WireStatus::InvalidParameter);
  WriteInteger(*sel_, 1);
  EXPECT_EQ(Read(Bank(0), 16), (Bytes{0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Write(Bank(3), 0), WireStatus::Busy);
}

TEST_F(SelectedRegisterTest, TakesWhatOneNumberOfASelectorThatDoesNotMoveItAllows) {
  level_->value = number_;
  level_->max = Knife("Limit", {sel_}, "Sel*10");
  Publish();
  EXPECT_EQ(Write(kNumber, 30), WireStatus::Success);  // when it is 3 in the client
  EXPECT_EQ(Write(kNumber, 31), WireStatus::InvalidParameter);
}

TEST_F(SelectedRegisterTest, ExistsAsFarAsItsLimitsReachAtTheMoment) {
  const NodePtr top = Add(NewIntReg("Top", 0xC000));
  WriteInteger(*top, 3);
  sel_->max = top;
  Publish();
  EXPECT_EQ(Write(Bank(5), 1), WireStatus::InvalidAddress);
  WriteInteger(*top, 10);
  EXPECT_EQ(Write(Bank(5), 1), WireStatus::Success);
  EXPECT_EQ(file_.CheckRead(Bank(0), 44, true), WireStatus::Success);
  EXPECT_EQ(file_.CheckRead(Bank(0), 48, true), WireStatus::InvalidAddress);
  EXPECT_EQ(Write(0xC000, 1), WireStatus::Success);
  EXPECT_EQ(file_.CheckRead(Bank(2), 4, false), WireStatus::InvalidAddress);
}

TEST(PlaceIndex, FindsWhatAScanFinds) {
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
    std::vector<std::pair<std::uint32_t, std::uint32_t>> expected;
    for (const Place& place : places) {
      if (place.address <= last && place.last >= first) expected.emplace_back(place.reg, place.combination);
    }
    std::vector<std::pair<std::uint32_t, std::uint32_t>> found;
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
  const auto listeners = [this](std::uint32_t address, std::uint32_t length) {
    std::vector<void*> contexts;
    for (const auto& listener : file_.Listeners(address, length, NodeEvent::Read)) {
      contexts.push_back(listener->context);
    }
    return contexts;
  };
  EXPECT_EQ(listeners(kNumber, 4),
            (std::vector<void*>{number_.get(), inner.get(), second.get(), outer.get()}));
  EXPECT_EQ(listeners(0xA004, 4), std::vector<void*>{other.get()});
  EXPECT_EQ(listeners(0xA003, 2).size(), 5u);
  EXPECT_TRUE(listeners(0xFFFFFFFC, 0xFFFF).empty());
}

}  // namespace
}  // namespace Tarn
