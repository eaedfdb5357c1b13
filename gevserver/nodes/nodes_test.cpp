#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <stdexcept>
#include <thread>
#include <typeinfo>

#include "core/tarn_exception.h"
#include "gevserver/fake_server_library_test.h"
#include "gevserver/nodes/make_node.h"
#include "gevserver/nodes/node_classes.h"
#include "gevserver/nodes/node_factory.h"

namespace Tarn::GevServer {
namespace {

using testing::Contains;
using testing::ElementsAre;

class NodesTest : public testing::Test {
 protected:
  NodesTest() {
    library_.Reset();
    fake_.Reset();
  }

  std::shared_ptr<Node> Wrap(TR_HANDLE handle) {
    return Private::NodeOfHandle(HandleGuard<Node>(handle), {}, Private::kNoLengthOfNode);
  }

  template <class Action>
  static std::string Refusal(Action&& action) {
    try {
      action();
    } catch (const std::runtime_error& e) {
      return e.what();
    }
    return "accepted";
  }

  Testing::FakeLibrary& library_ = Testing::FakeLibrary::Instance();
  Testing::FakeServerLibrary& fake_ = Testing::FakeServerLibrary::Instance();
};

TEST_F(NodesTest, FactoryChoosesTheClassByTypeAndLength) {
  struct Row {
    std::int32_t type;
    std::int64_t length;
    const std::type_info& expected;
  };
  const Row rows[] = {{0, 0, typeid(Private::DefaultNode)}, {13, 0, typeid(Private::DefaultNode)},
                      {1, 0, typeid(CategoryNode)},         {2, 4, typeid(Int32RegNode)},
                      {2, 8, typeid(Int64RegNode)},         {2, 2, typeid(IntRegNode)},
                      {3, 16, typeid(StringRegNode)},       {4, 0, typeid(IntegerNode)},
                      {5, 0, typeid(BooleanNode)},          {6, 0, typeid(CommandNode)},
                      {7, 0, typeid(EnumerationNode)},      {8, 0, typeid(EnumEntryNode)},
                      {9, 0, typeid(IntSwissKnifeNode)},    {10, 0, typeid(StringNode)},
                      {11, 0, typeid(FloatNode)},           {12, 4, typeid(Float32RegNode)},
                      {12, 8, typeid(Float64RegNode)},      {12, 3, typeid(FloatRegNode)}};
  for (const Row& row : rows) {
    const TR_HANDLE handle = fake_.NewNode("X", GS_NAMESPACE_CUSTOM, row.type);
    fake_.NodeOf(handle).integers[GSN_INFO_REGISTER_LENGTH] = row.length;
    const auto node = Wrap(handle);
    const Node& object = *node;
    EXPECT_EQ(typeid(object), row.expected) << "type " << row.type << ", length " << row.length;
  }
  EXPECT_EQ(library_.LiveHandles(), 0U);
}

TEST_F(NodesTest, FactoryTellsWhatTheLibraryRefused) {
  const auto failure_of = [&](std::int32_t type, const char* call) {
    library_.failures.clear();
    if (call != nullptr) library_.Fail(call, TR_E_INTERNAL);
    return Refusal([&] { Wrap(fake_.NewNode("X", 0, type)); });
  };
  EXPECT_EQ(failure_of(-1, nullptr), "invalid node type");
  EXPECT_EQ(failure_of(4, "GSNType"), "failed to get node type");
  EXPECT_EQ(failure_of(2, "GSNGetInfoAsInteger"), "failed to get node register length");
  EXPECT_EQ(failure_of(4, "Register(read)"), "failed to register updated handler");
  EXPECT_EQ(failure_of(4, "Register(write)"), "failed to register updated handler");
  EXPECT_EQ(library_.Count("GSNUnregisterEvent"), 1U) << "only the one that was made";
  EXPECT_EQ(library_.LiveHandles(), 0U);
}

TEST_F(NodesTest, OneLibraryNodeHasOneObject) {
  const TR_HANDLE handle = fake_.NewNode("X", 0, GSN_TYPE_INTEGER);
  auto first = Wrap(handle);
  library_.Share(handle);
  EXPECT_EQ(Wrap(handle), first);
  library_.Share(handle);
  EXPECT_EQ(Private::MakeNode<IntegerNode>(HandleGuard<Node>(handle), {}), first) << "two threads at once";
  library_.Share(handle);
  first.reset();
  EXPECT_TRUE(library_.IsLive(handle));
  EXPECT_NE(Wrap(handle), nullptr) << "made again after it went";
  EXPECT_EQ(library_.LiveHandles(), 0U);
}

TEST_F(NodesTest, CreationPassesNameNamespaceAndFailure) {
  const auto standard = IntegerNode::Create("Std::Width");
  const auto hidden = StringRegNode::Create("Text", 8, GS_NAMESPACE_PRIVATE);
  EXPECT_THAT(library_.calls, Contains("CreateGSIntegerNode(Width,0)"));
  EXPECT_EQ(standard->Name(), "Std::Width");
  EXPECT_EQ(hidden->Name(), "Priv::Text");
  EXPECT_EQ(hidden->NameOnly(), "Text");
  EXPECT_EQ(hidden->NodeMap(), nullptr);
  library_.Fail("CreateGSBooleanNode", TR_E_NAME);
  EXPECT_EQ(Refusal([] { BooleanNode::Create("X"); }), "no specific message");
  library_.last_error_code = TR_E_NAME;
  library_.last_error_text = L"no such name";
  EXPECT_THROW(BooleanNode::Create("X"), std::invalid_argument);
}

TEST_F(NodesTest, AccessCodesDecideReadingAndWriting) {
  const auto reg = Int32RegNode::Create("R");
  const std::pair<bool, bool> expected[] = {
      {false, false}, {false, false}, {true, false}, {false, true}, {true, true}};
  for (std::int32_t mode = 0; mode <= 4; ++mode) {
    reg->SetAccessMode(mode);
    EXPECT_EQ(reg->IsReadable(), expected[mode].first) << mode;
    EXPECT_EQ(reg->IsWritable(), expected[mode].second) << mode;
  }
}

TEST_F(NodesTest, ValueChainsEndAtTheNodeThatHoldsTheValue) {
  const auto reg = Int64RegNode::Create("Register");
  reg->SetAccessMode(GS_ACCESS_WRITE_ONLY);
  reg->SetCacheMode(GS_CACHE_WRITE_AROUND);
  const auto inner = IntegerNode::Create("Inner");
  const auto boolean = BooleanNode::Create("Boolean");
  const auto enumeration = EnumerationNode::Create("Enumeration");
  boolean->SetValueConfigAsNode(inner);
  enumeration->SetValueConfigAsNode(reg);

  EXPECT_EQ(boolean->AccessMode(), GS_ACCESS_READ_WRITE) << "ends in a constant";
  EXPECT_EQ(boolean->CacheMode(), GS_CACHE_NO_CACHE);
  inner->SetValueConfigAsNode(reg);
  const std::initializer_list<const Node*> chain = {boolean.get(), inner.get(), enumeration.get(), reg.get()};
  for (const Node* node : chain) {
    EXPECT_EQ(node->AccessMode(), GS_ACCESS_WRITE_ONLY) << node->NameOnly();
    EXPECT_EQ(node->CacheMode(), GS_CACHE_WRITE_AROUND) << node->NameOnly();
  }
  inner->SetValueConfigAsNode(IntSwissKnifeNode::Create("Knife"));
  EXPECT_EQ(boolean->AccessMode(), GS_ACCESS_READ_ONLY) << "ends in a formula";

  const auto text = StringNode::Create("Text");
  const auto text_register = StringRegNode::Create("TextRegister", 4);
  text_register->SetAccessMode(GS_ACCESS_READ_ONLY);
  text->SetValueConfigAsNode(text_register);
  EXPECT_EQ(text->AccessMode(), GS_ACCESS_READ_ONLY);
  EXPECT_EQ(text->ValueConfigAsNode(), text_register) << "the very object";

  inner->SetValueConfigAsNode(inner);  // a library that does not refuse circles
  EXPECT_THROW(boolean->AccessMode(), std::runtime_error);
}

TEST_F(NodesTest, SomeKindsAnswerTheSameWhateverTheLibrarySays) {
  const std::pair<std::shared_ptr<ValueNode>, const char*> rows[] = {
      {EnumEntryNode::Create("E"), "EnumEntry nodes cannot be streamed"},
      {CategoryNode::Create("C"), "Category nodes cannot be streamed"},
      {CommandNode::Create("X"), "Command nodes cannot be streamed"}};
  for (const auto& [node, refusal] : rows) {
    auto& items = fake_.NodeOf(node->Handle()).integers;
    items[GSN_INFO_STREAMABLE] = 1;
    items[GSN_INFO_ACCESS_MODE] = GS_ACCESS_WRITE_ONLY;
    items[GSN_INFO_POLLING_TIME] = 100;
    EXPECT_FALSE(node->IsStreamable());
    EXPECT_EQ(Refusal([&node = node] { node->SetIsStreamable(true); }), refusal);
    if (node->Type() == GSN_TYPE_COMMAND) continue;
    EXPECT_EQ(node->AccessMode(), GS_ACCESS_READ_ONLY) << refusal;
    EXPECT_EQ(node->PollingTime(), 0) << refusal;
  }
  EXPECT_EQ(Refusal([&] { rows[0].first->FromString("A"); }), "Symbolic values cannot be set as value");
  EXPECT_EQ(Refusal([&] { rows[1].first->FromString("A"); }), "not implemented");
  const auto unknown = Wrap(fake_.NewNode("U", 0, GSN_TYPE_UNKNOWN));
  EXPECT_EQ(Refusal([&] { unknown->AccessMode(); }), "not implemented");
  EXPECT_EQ(Refusal([&] { unknown->CacheMode(); }), "not implemented");
}

TEST_F(NodesTest, BooleansReadWordsLeniently) {
  const auto node = BooleanNode::Create("B");
  for (const char* text : {"true", "TRUE", "True"}) {
    node->SetValue(false);
    node->FromString(text);
    EXPECT_EQ(node->ToString(), "true") << text;
  }
  for (const char* text : {"false", "1", "yes", "truex", " true", " "}) {
    node->SetValue(true);
    node->FromString(text);
    EXPECT_EQ(node->ToString(), "false") << text;
  }
  EXPECT_EQ(Refusal([&] { node->FromString(""); }), "String must not be empty");
}

TEST_F(NodesTest, CommandsAreDoneWhenTheLibrarySaysSoOrCannotBeAsked) {
  const auto reg = Int32RegNode::Create("R");
  const auto command = CommandNode::Create("C");
  command->SetValueConfigAsNode(reg);
  reg->SetAccessMode(GS_ACCESS_READ_WRITE);
  EXPECT_FALSE(command->IsDone());
  command->Execute();
  EXPECT_TRUE(command->IsDone());
  fake_.NodeOf(command->Handle()).boolean = false;
  reg->SetAccessMode(GS_ACCESS_WRITE_ONLY);
  EXPECT_TRUE(command->IsDone());
}

TEST_F(NodesTest, EmptyTextsAndNodesAreRefusedBeforeTheLibraryIsAsked) {
  const auto node = IntegerNode::Create("X");
  library_.calls.clear();
  EXPECT_EQ(Refusal([&] { node->SetDisplayName(""); }), "Display name must not be empty");
  EXPECT_EQ(Refusal([&] { node->SetToolTip(""); }), "Tooltip short descriptive text must not be empty");
  EXPECT_EQ(Refusal([&] { node->SetDescription(""); }), "Description must not be empty");
  EXPECT_EQ(Refusal([&] { node->SetInfo(GSN_INFO_UNIT, ""); }), "value to set must not be empty");
  EXPECT_EQ(Refusal([&] { node->SetAliasNode(nullptr); }), "node to set must not be empty");
  EXPECT_EQ(Refusal([&] { node->SetValueConfigAsNode(nullptr); }), "node to set must not be empty");
  EXPECT_TRUE(library_.calls.empty());
}

TEST_F(NodesTest, NumericTextTellsWhichCallFailed) {
  const auto node = Float64RegNode::Create("X");
  EXPECT_EQ(node->ToString(), "") << "an empty text is no failure";
  node->FromString("1.5");
  EXPECT_EQ(node->ToString(), "1.5");
  library_.Fail("GSNGetAsString(text)", TR_E_INTERNAL);
  EXPECT_EQ(Refusal([&] { node->ToString(); }), "failed to get string representation of this node");
  library_.Fail("GSNGetAsString(size)", TR_E_INTERNAL);
  EXPECT_EQ(Refusal([&] { node->ToString(); }), "failed to get string representation name length");
}

TEST_F(NodesTest, NoImposedModeIsNone) {
  const auto node = IntegerNode::Create("X");
  node->SetImposedAccessMode(GS_ACCESS_READ_ONLY);
  EXPECT_EQ(node->ImposedAccessMode(), GS_ACCESS_READ_ONLY);
  node->SetImposedAccessMode({});
  EXPECT_EQ(fake_.NodeOf(node->Handle()).integers[GSN_INFO_IMPOSED_ACCESS_MODE], -1);
  EXPECT_EQ(node->ImposedAccessMode(), std::nullopt);
}

TEST_F(NodesTest, ClientAccessReachesTheListeners) {
  const auto node = IntegerNode::Create("X");
  std::vector<std::string> heard;
  node->RegisterOnRead([&](Node& which) { heard.push_back("read " + which.NameOnly()); });
  node->RegisterWritten([&](Node& which) { heard.push_back("written " + which.NameOnly()); });
  const auto updated = node->RegisterUpdated([&] { heard.push_back("updated"); });
  const auto& fake = fake_.NodeOf(node->Handle());
  node->SetValue(1);
  EXPECT_THAT(heard, ElementsAre()) << "our own writes are no events";
  fake.Fire(GSN_EVENT_READ);
  fake.Fire(GSN_EVENT_WRITE);
  EXPECT_THAT(heard, ElementsAre("read X", "written X", "updated"));
  EXPECT_FALSE(node->UnregisterWritten(updated)) << "another event's cookie";
  EXPECT_TRUE(node->UnregisterUpdated(updated));
  EXPECT_FALSE(node->UnregisterUpdated(updated));
  fake.Fire(GSN_EVENT_WRITE);
  EXPECT_EQ(heard.size(), 4U);
}

TEST_F(NodesTest, CategoriesAndEntriesHaveNoEvents) {
  const auto category = CategoryNode::Create("C");
  const auto entry = EnumEntryNode::Create("E");
  EXPECT_EQ(library_.Count("Register(read)") + library_.Count("Register(write)"), 0U);
}

TEST_F(NodesTest, EventOnItsWayToADeadNodeFindsNothing) {
  auto node = IntegerNode::Create("X");
  int heard = 0;
  node->RegisterOnRead([&](Node&) { ++heard; });
  const Testing::FakeNode fake = fake_.NodeOf(node->Handle());
  node.reset();
  EXPECT_EQ(library_.LiveHandles(), 0U);
  const auto& calls = library_.calls;
  EXPECT_THAT(std::vector<std::string>(calls.end() - 2, calls.end()),
              ElementsAre(testing::EndsWith(",0)"), testing::EndsWith(",1)")))
      << "read, then write";
  fake.Fire(GSN_EVENT_READ);
  fake.Fire(GSN_EVENT_WRITE);
  EXPECT_EQ(heard, 0);
}

TEST_F(NodesTest, NodeMayDieInsideItsOwnListener) {
  auto node = IntegerNode::Create("X");
  node->RegisterWritten([&](Node&) { node.reset(); });
  const Testing::FakeNode fake = fake_.NodeOf(node->Handle());
  fake.Fire(GSN_EVENT_WRITE);
  EXPECT_EQ(node, nullptr);
  EXPECT_EQ(library_.LiveHandles(), 0U);
}

// Events from a thread of the library while the node goes, its listener with it.
TEST_F(NodesTest, EventsAndDestructionMayMeet) {
  for (int round = 0; round < 200; ++round) {
    auto node = IntegerNode::Create("X");
    auto heard = std::make_shared<std::atomic<int>>(0);
    const auto cookie = node->RegisterOnRead([heard](Node&) { ++*heard; });
    const Testing::FakeNode fake = fake_.NodeOf(node->Handle());
    std::latch both(2);
    std::thread client([&] {
      both.arrive_and_wait();
      for (int i = 0; i < 20; ++i) fake.Fire(GSN_EVENT_READ);
    });
    both.arrive_and_wait();
    node->UnregisterOnRead(cookie);
    node.reset();
    client.join();
    ASSERT_EQ(library_.LiveHandles(), 0U) << "round " << round;
    ASSERT_EQ(heard.use_count(), 1) << "round " << round;
  }
}

TEST(CbCarrier, ListenersMayUnregisterInsideACall) {
  CbCarrier<> carrier;
  std::vector<int> heard;
  std::uint64_t own = 0;
  std::uint64_t later = 0;
  own = carrier.Register([&] {
    heard.push_back(1);
    EXPECT_TRUE(carrier.Unregister(own));
    EXPECT_TRUE(carrier.Unregister(later));
    carrier.Register([&] { heard.push_back(3); });
  });
  later = carrier.Register([&] { heard.push_back(2); });
  carrier.Call();
  EXPECT_THAT(heard, ElementsAre(1)) << "nobody is called once it is unregistered";
  carrier.Call();
  EXPECT_THAT(heard, ElementsAre(1, 3));
}

TEST(CbCarrier, OneFailureKeepsNoOtherFromBeingCalled) {
  CbCarrier<> carrier;
  int heard = 0;
  carrier.Register([] { throw std::runtime_error("bad"); });
  carrier.Register([&] { ++heard; });
  carrier.Call();
  EXPECT_EQ(heard, 1);
}

}  // namespace
}  // namespace Tarn::GevServer
