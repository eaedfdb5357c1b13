#include "gevserver/node_map.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "core/tarn_exception.h"
#include "gevserver/fake_server_library_test.h"
#include "gevserver/nodes/category_node.h"
#include "gevserver/nodes/enumeration_node.h"
#include "gevserver/nodes/int_swiss_knife_node.h"
#include "gevserver/nodes/integer_node.h"
#include "gevserver/nodes/register_nodes.h"
#include "gevserver/server.h"

namespace Tarn::GevServer {
namespace {

using testing::Contains;
using testing::ElementsAre;

class NodeMapTest : public testing::Test {
 protected:
  NodeMapTest() {
    library_.Reset();
    fake_.Reset();
    root_handle_ = fake_.AddStandardNode("Root", GSN_TYPE_CATEGORY);
    fake_.AddStandardNode("DeviceModelName", GSN_TYPE_STRING);
    server_ = Server::CreateNonStreaming();
    map_ = server_->NodeMap();
    library_.calls.clear();
  }

  std::shared_ptr<EnumerationNode> AddEnumeration(const char* name) {
    const auto node = EnumerationNode::Create(name);
    map_->AddNode(name, node);
    return node;
  }

  template <class Exception = std::runtime_error, class Action>
  static std::string Refusal(Action&& action) {
    try {
      action();
    } catch (const Exception& e) {
      return e.what();
    }
    return "accepted";
  }

  std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (const auto& node : map_->Nodes()) names.push_back(node->Name());
    return names;
  }

  Testing::FakeLibrary& library_ = Testing::FakeLibrary::Instance();
  Testing::FakeServerLibrary& fake_ = Testing::FakeServerLibrary::Instance();
  TR_HANDLE root_handle_ = nullptr;
  std::shared_ptr<Server> server_;
  std::shared_ptr<NodeMap> map_;
};

TEST_F(NodeMapTest, LoadingTellsWhichCallFailed) {
  const std::pair<const char*, const char*> rows[] = {{"GSNodeCount", "failed to get node count"},
                                                      {"GSNodeList(size)", "failed to get node name length"},
                                                      {"GSNodeList(name)", "failed to get node name"}};
  for (const auto& [function, text] : rows) {
    library_.failures.clear();
    library_.Fail(function, TR_E_OUT_OF_RANGE);
    EXPECT_EQ(Refusal<std::out_of_range>([&] { NodeMap::Create(server_); }), text);
  }
  EXPECT_EQ(library_.Count("GSGetLastErrorString(size)"), 0U) << "these texts stand alone";
}

TEST_F(NodeMapTest, FindsNodesByNameWithAndWithoutPrefix) {
  const auto root = map_->At("Std::Root");
  EXPECT_EQ(root->Name(), "Std::Root");
  EXPECT_EQ(root->NodeMap(), map_);
  EXPECT_EQ(map_->TryGet("Root"), root);
  EXPECT_EQ(map_->TryGet("Nowhere"), nullptr);
  EXPECT_EQ(map_->TryGet(""), nullptr);
  EXPECT_EQ(Refusal<std::out_of_range>([&] { map_->At("Nowhere"); }), "no node for name");
  EXPECT_EQ(Refusal([&] { map_->At(""); }), "Node name must not be empty");
  library_.Fail("GSGetNode", TR_E_OUT_OF_RANGE);
  EXPECT_EQ(Refusal<std::out_of_range>([&] { map_->At("DeviceModelName"); }), "failed to get node");
}

TEST_F(NodeMapTest, MakesObjectsAgainThatNobodyHeld) {
  auto node = IntegerNode::Create("X");
  const std::weak_ptr<Node> weak = node;
  map_->AddNode("X", node);
  node.reset();
  EXPECT_TRUE(weak.expired());
  const auto again = map_->At("X");
  EXPECT_NE(std::dynamic_pointer_cast<IntegerNode>(again), nullptr);
  EXPECT_EQ(map_->At("X"), again);
  EXPECT_EQ(library_.Count("GSGetNode"), 1U);
}

TEST_F(NodeMapTest, ChecksKeysBeforeTheLibraryIsAsked) {
  const auto node = IntegerNode::Create("Width");
  EXPECT_EQ(Refusal([&] { map_->AddNode("", nullptr); }), "key must not be empty");
  EXPECT_EQ(Refusal([&] { map_->AddNode("X", nullptr); }), "node must not be null");
  for (const char* key : {"Height", "Cust::Width"}) {
    EXPECT_EQ(Refusal([&] { map_->AddNode(key, node); }), "key and value->NameOnly() must be equal");
  }
  EXPECT_EQ(library_.Count("GSAddNode"), 0U);
  map_->AddNode("Width", node);
  map_->AddNode("Width", node);
  EXPECT_EQ(library_.Count("GSAddNode"), 1U) << "once is enough";
  EXPECT_EQ(node->NodeMap(), map_);
  EXPECT_THAT(Names(), ElementsAre("Std::DeviceModelName", "Std::Root", "Cust::Width"));
}

TEST_F(NodeMapTest, RefusedNodeStaysFree) {
  library_.Fail("GSAddNode", TR_E_EXISTS);
  const auto node = IntegerNode::Create("X");
  EXPECT_EQ(Refusal<std::invalid_argument>([&] { map_->AddNode("X", node); }), "NodeMap: library text");
  EXPECT_EQ(node->NodeMap(), nullptr);
  EXPECT_EQ(map_->TryGet("X"), nullptr);
}

TEST_F(NodeMapTest, AddingWithAListLinksToTheRootOrNotAtAll) {
  const auto shown = IntegerNode::Create("Shown");
  map_->AddNode("Shown", shown, GSN_LIST_CHILD);
  EXPECT_THAT(fake_.NodeOf(root_handle_).lists[GSN_LIST_CHILD], ElementsAre(shown->Handle()));
  library_.Fail("GSNAddNode", TR_E_NOT_SUPPORTED);
  const auto refused = IntegerNode::Create("Refused");
  EXPECT_ANY_THROW(map_->AddNode("Refused", refused, GSN_LIST_SELECTED));
  EXPECT_EQ(map_->TryGet("Refused"), nullptr);
  EXPECT_EQ(refused->NodeMap(), nullptr);
}

TEST_F(NodeMapTest, RemovesWhatItHasAndNothingElse) {
  const auto node = IntegerNode::Create("X");
  EXPECT_FALSE(map_->RemoveNode("X"));
  EXPECT_FALSE(map_->RemoveNode(""));
  map_->AddNode("X", node);
  EXPECT_FALSE(map_->RemoveNode(IntegerNode::Create("X"))) << "another node of that name";
  EXPECT_EQ(library_.Count("GSRemoveNode"), 0U);
  EXPECT_TRUE(map_->RemoveNode("Cust::X"));
  EXPECT_EQ(map_->TryGet("X"), nullptr);
  EXPECT_EQ(node->NodeMap(), nullptr);
  map_->AddNode("X", node);
  library_.Fail("GSRemoveNode", TR_E_WRONG_STATE);
  EXPECT_EQ(Refusal<std::domain_error>([&] { map_->RemoveNode(node); }), "NodeMap: library text");
  EXPECT_EQ(map_->TryGet("X"), node);
}

TEST_F(NodeMapTest, LinksNodesOfItsOwnMapOnly) {
  const auto category = CategoryNode::Create("C");
  const auto free = IntegerNode::Create("X");
  EXPECT_EQ(Refusal([&] { category->Add(nullptr, GSN_LIST_CHILD); }), "Added Node must not be nullptr");
  EXPECT_EQ(Refusal([&] { category->Add(free, GSN_LIST_CHILD); }), "Parent Node must have node map");
  map_->AddNode("C", category);
  category->Add(free, GSN_LIST_CHILD);
  EXPECT_EQ(free->NodeMap(), nullptr) << "linked, but put into a map by the map only";
  EXPECT_THAT(category->Nodes(), ElementsAre(free));
  EXPECT_TRUE(category->Remove(free, GSN_LIST_CHILD));
  EXPECT_FALSE(category->Remove(free, GSN_LIST_CHILD));

  const auto other_server = Server::CreateNonStreaming();
  other_server->NodeMap()->AddNode("X", free);
  const auto entry = EnumEntryNode::Create("E");
  other_server->NodeMap()->AddNode("E", entry);
  EXPECT_EQ(Refusal([&] { category->Add(free, GSN_LIST_CHILD); }),
            "Added Node must be in the same node map as this Parent");
  EXPECT_EQ(Refusal([&] { AddEnumeration("M")->Add(entry, GSN_LIST_CHILD); }),
            "Added Node must be in the same node map as this Parent");
}

TEST_F(NodeMapTest, EntriesJoinTheMapWithTheirEnumeration) {
  const auto first = AddEnumeration("First");
  const auto second = AddEnumeration("Second");
  const auto off = EnumEntryNode::Create("Off");
  const auto other_off = EnumEntryNode::Create("Off");
  first->Add(off, GSN_LIST_CHILD);
  second->Add(other_off, GSN_LIST_CHILD);
  EXPECT_EQ(off->NodeMap(), map_);
  EXPECT_EQ(map_->At("Off"), off) << "the name means the first";
  EXPECT_THAT(first->Entries(), ElementsAre(off));
  EXPECT_THAT(second->Entries(), ElementsAre(other_off));
  const auto node = IntegerNode::Create("Free");
  first->Add(node, GSN_LIST_INVALIDATOR);
  EXPECT_EQ(node->NodeMap(), nullptr) << "only entries are adopted";
}

TEST_F(NodeMapTest, RelatedNodesAreTheObjectsThatExist) {
  const auto knife = IntSwissKnifeNode::Create("Knife");
  const auto source = Int32RegNode::Create("A");
  map_->AddNode("Knife", knife);
  map_->AddNode("A", source);
  knife->Add(source, GSN_LIST_CHILD);
  const auto variables = knife->Variables();
  ASSERT_EQ(variables.count("A"), 1U);
  EXPECT_EQ(variables.at("A"), source);
  library_.Fail("GSNListCount", TR_E_OUT_OF_RANGE);
  EXPECT_EQ(Refusal<std::out_of_range>([&] { static_cast<void>(knife->IsSelector()); }),
            "failed calling GSNListCount");
}

TEST_F(NodeMapTest, TellsWhoTheDeviceIs) {
  fake_.NodeOf(map_->At("DeviceModelName")->Handle()).value = "Model";
  EXPECT_EQ(map_->ModelName(), "Model");
  EXPECT_EQ(map_->VendorName(), "NORDHAVNOPTICS") << "no such node";
  EXPECT_EQ(map_->XmlFileVersion().ToString(), "10.11.12");
  map_->SetXmlFileVersion({1, 2, 3});
  EXPECT_THAT(library_.calls, Contains(testing::EndsWith(",2,3)")));
}

}  // namespace
}  // namespace Tarn::GevServer
