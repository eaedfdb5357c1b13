// What servers and nodes make of the library's answers: of failures, and of calls that come at odd moments.

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <optional>
#include <tuple>
#include <typeinfo>
#include <vector>

#include "core/tarn_exception.h"
#include "gevserver/callback_scope.h"
#include "gevserver/library/tr_core.h"
#include "gevserver/library/tr_gev_server.h"
#include "gevserver/library/tr_utilities.h"
#include "gevserver/network_interface.h"
#include "gevserver/node_map.h"
#include "gevserver/nodes/integer_node.h"
#include "gevserver/nodes/make_node.h"
#include "gevserver/nodes/node_factory.h"
#include "gevserver/nodes/register_nodes.h"
#include "gevserver/server.h"
#include "gevserver/stream.h"

namespace {

struct Callback {
  GSCallback function;
  void* context;
};

/// What the running test puts in front of the library. Not for several threads at a time.
struct Fake {
  /// What calls answer instead of reaching the library, by name. Whatever fails leaves `text` as the last error.
  std::map<std::string, std::function<TR_STATUS()>> instead;
  std::string text = "library text";
  std::optional<std::int32_t> node_type;
  std::optional<std::int64_t> register_length;
  bool values_go_in_circles = false;

  std::map<std::string, int> made;   ///< how often each call was made
  std::vector<std::string> reports;  ///< "code|message|name" of each reported failure
  /// By event, the latest. Kept for good: the library may be about to call when they are unregistered.
  std::map<std::int32_t, Callback> server_events, node_events;
  std::vector<Callback> releases;
};
Fake fake;

// The program's own functions come before the library's, which are the next ones of their names.
template <class Result, class... Parameters>
Result Call(const std::string& name, const char* function, Result (*)(Parameters...),
            std::type_identity_t<Parameters>... arguments) {
  ++fake.made[name];
  const auto instead = fake.instead.find(name);
  if (instead == fake.instead.end())
    return reinterpret_cast<Result (*)(Parameters...)>(::dlsym(RTLD_NEXT, function))(arguments...);
  const TR_STATUS status = instead->second();
  if (status < 0) TRCSetLastError(status, fake.text.c_str());
  if constexpr (std::is_pointer_v<Result>)
    return nullptr;
  else
    return status;
}

}  // namespace

#define TARN_CALL(Name, Function, ...) Call(Name, #Function, &Function __VA_OPT__(, ) __VA_ARGS__)
#define TARN_FAKE(Result, Function, Parameters, ...) \
  Result Function Parameters { return TARN_CALL(#Function, Function __VA_OPT__(, ) __VA_ARGS__); }
#define TARN_TWO_CALLS(Function, text, ...) \
  TARN_CALL(text == nullptr ? #Function "(size)" : #Function "(text)", Function, __VA_ARGS__)

extern "C" {

TARN_FAKE(TR_STATUS, TRCGetLastErrorW, (TR_STATUS * code, wchar_t* text, size_t* size), code, text, size)
TARN_FAKE(TR_HANDLE, CreateInterfaceList, ())
TARN_FAKE(TR_STATUS, ILIPv4Address, (TR_HANDLE list, uint64_t at, uint32_t* address), list, at, address)
TARN_FAKE(TR_STATUS, ILIPv4SubnetMask, (TR_HANDLE list, uint64_t at, uint32_t* mask), list, at, mask)
TARN_FAKE(TR_HANDLE, CreateGevServer, ())
TARN_FAKE(TR_STATUS, GSStartIPv4, (TR_HANDLE server, uint32_t address), server, address)
TARN_FAKE(TR_STATUS, GSStop, (TR_HANDLE server), server)
TARN_FAKE(TR_STATUS, GSNUnregisterEvent, (TR_HANDLE node, int32_t event, uint64_t cookie), node, event,
          cookie)

TR_STATUS GSGetLastErrorString(char* text, size_t* size) {
  return TARN_TWO_CALLS(GSGetLastErrorString, text, text, size);
}

TR_STATUS GSNodeList(TR_HANDLE server, int64_t index, char* name, size_t* size) {
  return TARN_TWO_CALLS(GSNodeList, name, server, index, name, size);
}

TR_STATUS GSNGetAsString(TR_HANDLE node, char* text, size_t* size) {
  return TARN_TWO_CALLS(GSNGetAsString, text, node, text, size);
}

TR_STATUS GSNType(TR_HANDLE node, int32_t* type) {
  const TR_STATUS status = TARN_CALL("GSNType", GSNType, node, type);
  if (fake.node_type) *type = *fake.node_type;
  return status;
}

TR_STATUS GSNGetInfoAsInteger(TR_HANDLE node, int32_t info, int64_t* value) {
  const TR_STATUS status = TARN_CALL("GSNGetInfoAsInteger", GSNGetInfoAsInteger, node, info, value);
  if (info != GSN_INFO_REGISTER_LENGTH || !fake.register_length) return status;
  *value = *fake.register_length;
  return TR_OK;
}

TR_STATUS GSNGetInfoAsNode(TR_HANDLE node, int32_t info, TR_HANDLE* related) {
  if (!fake.values_go_in_circles) return TARN_CALL("", GSNGetInfoAsNode, node, info, related);
  *related = node;
  return ShareObject(node);
}

TR_STATUS GSRegisterEvent(TR_HANDLE server, int32_t event, GSCallback callback, void* context,
                          uint64_t* cookie) {
  fake.server_events[event] = {callback, context};
  return TARN_CALL("GSRegisterEvent", GSRegisterEvent, server, event, callback, context, cookie);
}

TR_STATUS GSNRegisterEventWithStatus(TR_HANDLE node, int32_t event, GSCallback callback, void* context,
                                     uint64_t* cookie) {
  fake.node_events[event] = {callback, context};
  return TARN_CALL(event == GSN_EVENT_READ ? "Register(read)" : "Register(write)", GSNRegisterEventWithStatus,
                   node, event, callback, context, cookie);
}

TR_STATUS GSSendImageCB(TR_HANDLE server, TR_HANDLE image, GSCallback released, void* context) {
  fake.releases.push_back({released, context});
  return TARN_CALL("GSSendImageCB", GSSendImageCB, server, image, released, context);
}

void ReportTARNErrorEx(TR_STATUS code, const char* message, const char* function_name) {
  fake.reports.push_back(std::to_string(code) + '|' + message + '|' + function_name);
}

}  // extern "C"

namespace Tarn::GevServer {
namespace {

using testing::ElementsAre;

class LibraryAnswers : public testing::Test {
 protected:
  LibraryAnswers() {
    fake = Fake();
    server_ = Server::CreateConstantSize(1, 1, 0x01080001, GS_DRIVER_AUTO);
    map_ = server_->NodeMap();
  }

  /// What the library answers from now on, after `meanwhile`.
  static void Answer(
      const char* call, TR_STATUS status, std::function<void()> meanwhile = [] {}) {
    fake.instead[call] = [=] {
      meanwhile();
      return status;
    };
  }

  /// An object over a node that has none yet.
  std::shared_ptr<Node> Wrap() const {
    ShareObject(other_.Get());
    return Private::NodeOfHandle(HandleGuard<Node>(other_.Get()), {}, Private::kNoLengthOfNode);
  }

  std::shared_ptr<Server> server_;
  std::shared_ptr<NodeMap> map_;
  const std::shared_ptr<Image> image_ = Image::Create(1, 1, 1, DataTypes::kInt8BppUnsigned);
  const HandleGuard<Node> other_{CreateGSInt32Node("Other", GS_NAMESPACE_CUSTOM, -1)};
};

/// Text of what `action` throws.
std::string Refusal(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& e) {
    return e.what();
  }
  return "accepted";
}

TEST_F(LibraryAnswers, FailuresTellTheirCallAndChangeNothing) {
  const auto inside = IntegerNode::Create("Inside");
  const auto free = Int32RegNode::Create("Free");
  map_->AddNode("Inside", inside);
  const auto text = [&] { free->ToString(); };
  const auto list = [&] { NodeMap::Create(server_); };
  const auto wrap = [&] { Wrap(); };
  const std::tuple<const char*, const char*, std::function<void()>> rows[] = {
      {"CreateGevServer", "ServerBase library text", [] { Server::CreateNonStreaming(); }},
      {"GSRegisterEvent", "ServerBase library text", [] { Server::CreateNonStreaming(); }},
      {"", "Unknown PfncFormat.", [] { Server::CreateConstantSize(1, 1, 7, 0); }},
      {"GSNodeList(size)", "failed to get node name length", list},
      {"GSNodeList(text)", "failed to get node name", list},
      {"GSNType", "failed to get node type", wrap},
      {"GSNGetInfoAsInteger", "failed to get node register length", wrap},
      {"Register(read)", "failed to register updated handler", wrap},
      {"Register(write)", "failed to register updated handler", wrap},
      {"GSNGetAsString(size)", "failed to get string representation name length", text},
      {"GSNGetAsString(text)", "failed to get string representation of this node", text},
      {"CreateInterfaceList", "Failed to create interface list", AllNetworkInterfaces},
      {"ILIPv4Address", "error retrieving IP", AllNetworkInterfaces},
      {"ILIPv4SubnetMask", "error retrieving subnet mask", AllNetworkInterfaces},
  };
  for (const auto& [call, words, action] : rows) {
    const std::uint64_t handles = TRCLiveHandleCount();
    fake.made.clear();
    Answer(call, TR_E_OUT_OF_RANGE);
    EXPECT_EQ(Refusal(action), words) << call;
    EXPECT_EQ(TRCLiveHandleCount(), handles) << call;
    EXPECT_EQ(fake.made["GSNUnregisterEvent"], call == std::string("Register(write)")) << call;
    fake.instead.clear();
  }

  TR_HANDLE server = server_->Handle();
  ReleaseObject(&server);  // the server object does not know
  const std::string reason = "the handle is stale or of another kind";
  const std::function<void()> of_server[] = {
      [&] { server_->Start(1); },          [&] { server_->Stop(); },
      [&] { server_->DriverType(); },      [&] { server_->UserVersion(); },
      [&] { server_->LocalEndpoint(); },   [&] { server_->RemoteEndpoint(); },
      [&] { server_->SetUserVersion(""); }};
  for (const auto& action : of_server) EXPECT_EQ(Refusal(action), "ServerBase " + reason);
  const std::function<void()> of_map[] = {
      [&] { map_->GetInfoAsInt(0); }, [&] { map_->SetXmlFileVersion({}); },
      [&] { map_->AddNode("Free", free); }, [&] { map_->RemoveNode(inside); }};
  for (const auto& action : of_map) EXPECT_EQ(Refusal(action), "NodeMap: " + reason);
  EXPECT_EQ(Refusal(list), "failed to get node count");
  EXPECT_EQ(Refusal([&] { map_->At("Width"); }), "failed to get node");
  EXPECT_EQ(server_->State(), State::Configuration);
  EXPECT_EQ(map_->TryGet("Inside"), inside);
  EXPECT_EQ(map_->TryGet("Free"), nullptr);
  EXPECT_EQ(free->NodeMap(), nullptr);
}

TEST_F(LibraryAnswers, FailuresHaveATextEvenWhenNoneCanBeHad) {
  const auto start = [&] { server_->Start(1); };
  Answer("GSStartIPv4", TR_E_WRONG_STATE);
  for (const char* call : {"GSGetLastErrorString(size)", "GSGetLastErrorString(text)"}) {
    Answer(call, TR_E_INTERNAL);
    EXPECT_EQ(Refusal(start), "ServerBase Error");
    EXPECT_THAT(std::exchange(fake.reports, {}),
                ElementsAre("-2147483644|C-API call failed; try getting a log by using TARN "
                            "LogScope/logscopeutil: {\"Name\": \"GSGetLastErrorString\", "
                            "\"TRC_ERROR_CODE\": 4}|GSGetLastErrorString"));
    fake.instead.erase(call);
  }
  fake.text = "";
  EXPECT_EQ(Refusal(start), "ServerBase Error");
  EXPECT_TRUE(fake.reports.empty());
  Answer("TRCGetLastErrorW", TR_E_INTERNAL);
  EXPECT_EQ(Refusal([] { IntegerNode::Create("no name"); }), "no specific message");
}

TEST_F(LibraryAnswers, StateFollowsCallsThatSucceedAndEventsSinceTheStart) {
  const auto connected = [event = fake.server_events[GS_EVENT_CONNECTED]] { event.function(event.context); };
  Answer("GSStartIPv4", TR_E_WRONG_STATE);
  EXPECT_THROW(server_->Start(1), std::domain_error);
  connected();
  EXPECT_EQ(server_->State(), State::Configuration);
  Answer("GSStartIPv4", TR_OK, connected);  // before the call returns
  server_->Start(1);
  EXPECT_EQ(server_->State(), State::Connected);
  for (const char* call : {"GSStartIPv4", "GSStop"}) Answer(call, TR_E_WRONG_STATE);
  EXPECT_THROW(server_->Start(1), std::domain_error);
  EXPECT_THROW(server_->Stop(), std::domain_error);
  EXPECT_EQ(server_->State(), State::Connected);
  Answer("GSStop", TR_OK);
  server_->Stop();
  EXPECT_EQ(server_->State(), State::Configuration);
  server_.reset();
  connected();  // was on its way
}

// A stop waits for the library's threads. One of them is inside a callback that stops the server too.
TEST_F(LibraryAnswers, StopFromACallbackDoesNotWaitForTheStopThatWaitsForIt) {
  Answer("GSStartIPv4", TR_OK);
  server_->Start(1);
  std::future<void> callback;
  Answer("GSStop", TR_OK, [&] {
    callback = std::async(std::launch::async, [&] {
      const Private::CallbackScope scope;
      server_->Stop();
      EXPECT_THROW(server_->Start(1), std::runtime_error);
    });
    EXPECT_EQ(callback.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "waits for itself";
  });
  server_->Stop();
  EXPECT_EQ(fake.made["GSStop"], 1);
  EXPECT_EQ(server_->State(), State::Configuration);
}

TEST_F(LibraryAnswers, ImagesAreHeldUntilTheLibraryLetsGo) {
  const auto stream = server_->Stream();
  const auto bad = [](const auto&) { throw std::runtime_error("stays out of the library"); };
  Answer("GSSendImageCB", TR_OK);
  for (const StreamBase::Released& released : {StreamBase::Released(bad), StreamBase::Released()})
    EXPECT_EQ(stream->InnerSend(image_, released), TR_OK);
  EXPECT_EQ(image_.use_count(), 3);
  for (const Callback& release : fake.releases) release.function(release.context);
  EXPECT_EQ(image_.use_count(), 1);
  fake.releases[0].function(nullptr);

  Answer("GSSendImageCB", TR_E_NO_STREAM);
  int released = 0;
  EXPECT_EQ(stream->InnerSend(image_, [&](const auto&) { ++released; }), TR_E_NO_STREAM);
  EXPECT_EQ(released, 0);
  EXPECT_EQ(image_.use_count(), 1);
  EXPECT_THROW(static_cast<void>(stream->SetResendBuffersCount(std::int64_t{1} << 32)), std::out_of_range);
}

TEST_F(LibraryAnswers, OneObjectOfItsClassForEachNodeWhateverTheLibraryKnows) {
  const std::tuple<std::int32_t, std::int64_t, const std::type_info&> rows[] = {
      {GSN_TYPE_UNKNOWN, 0, typeid(Private::DefaultNode)}, {13, 0, typeid(Private::DefaultNode)},
      {GSN_TYPE_INT_REG, 2, typeid(IntRegNode)},           {GSN_TYPE_INT_REG, 8, typeid(Int64RegNode)},
      {GSN_TYPE_FLOAT_REG, 3, typeid(FloatRegNode)},       {GSN_TYPE_STRING_REG, 16, typeid(StringRegNode)}};
  for (const auto& [type, length, expected] : rows) {
    fake.node_type = type;
    fake.register_length = length;
    const auto node = Wrap();
    const Node& object = *node;
    EXPECT_EQ(typeid(object), expected) << "type " << type << ", length " << length;
    EXPECT_EQ(Wrap(), node);
    if (type == GSN_TYPE_UNKNOWN) {
      EXPECT_EQ(Refusal([&] { node->AccessMode(); }), "not implemented");
      EXPECT_EQ(Refusal([&] { node->CacheMode(); }), "not implemented");
    }
  }
  fake.node_type = GSN_TYPE_INVALID;
  EXPECT_EQ(Refusal([&] { Wrap(); }), "invalid node type");
  fake.node_type = GSN_TYPE_INTEGER;
  const auto first = Wrap();
  ShareObject(other_.Get());
  EXPECT_EQ(Private::MakeNode<IntegerNode>(HandleGuard<Node>(other_.Get()), {}), first) << "two at once";
  fake.values_go_in_circles = true;  // a library that does not refuse them
  EXPECT_EQ(Refusal([&] { first->AccessMode(); }), "value chain does not end");
}

TEST_F(LibraryAnswers, NodeMayDieInsideItsOwnListenerAndHearsNothingAfterwards) {
  const std::uint64_t handles = TRCLiveHandleCount();
  auto node = IntegerNode::Create("X");
  int heard = 0;
  node->RegisterOnRead([&](Node&) { ++heard; });
  node->RegisterWritten([&](Node&) { node.reset(); });
  for (int i = 0; i < 2; ++i) {
    for (const auto& [event, callback] : fake.node_events) callback.function(callback.context);
    EXPECT_EQ(heard, 1);
    EXPECT_EQ(TRCLiveHandleCount(), handles);
  }
  EXPECT_EQ(fake.made["GSNUnregisterEvent"], 2);
}

}  // namespace
}  // namespace Tarn::GevServer
