#include "gevserver/server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <stdexcept>

#include "core/tarn_exception.h"
#include "gevserver/callback_scope.h"
#include "gevserver/fake_server_library_test.h"
#include "gevserver/node_map.h"
#include "gevserver/stream.h"

namespace Tarn::GevServer {
namespace {

constexpr std::uint32_t kMono8 = 0x01080001;

class ServerTest : public testing::Test {
 protected:
  ServerTest() {
    library_.Reset();
    fake_.Reset();
  }

  static std::shared_ptr<Server> NewServer() {
    return Server::CreateConstantSize(640, 480, kMono8, GS_DRIVER_AUTO);
  }

  // Text of what `action` throws.
  template <class Exception, class Action>
  static std::string TextOf(Action&& action) {
    try {
      action();
    } catch (const Exception& e) {
      return e.what();
    }
    return "nothing of that kind";
  }

  Testing::FakeLibrary& library_ = Testing::FakeLibrary::Instance();
  Testing::FakeServerLibrary& fake_ = Testing::FakeServerLibrary::Instance();
};

TEST_F(ServerTest, ChecksSizeAndFormatBeforeItAsksTheLibrary) {
  for (const auto create : {Server::CreateConstantSize, Server::CreateVariableSize}) {
    EXPECT_EQ(TextOf<std::runtime_error>([&] { create(0, 0, 0, 0); }), "Width must be larger or equal to 1");
    EXPECT_EQ(TextOf<std::runtime_error>([&] { create(640, 0, 0, 0); }),
              "Height must be larger or equal to 1");
    EXPECT_EQ(TextOf<std::runtime_error>([&] { create(640, 480, 0, 0); }), "Invalid pixel format");
  }
  EXPECT_TRUE(library_.calls.empty());
  EXPECT_EQ(TextOf<std::out_of_range>([&] { Server::CreateConstantSize(1, 1, 0x12345678, 0); }),
            "Unknown PfncFormat.");
}

TEST_F(ServerTest, FillsTheCreationRecord) {
  const auto constant = NewServer();
  EXPECT_EQ(fake_.record.init_type, GS_INIT_FIXED_SIZE);
  EXPECT_EQ(fake_.record.width, 640);
  EXPECT_EQ(fake_.record.height, 480);
  EXPECT_EQ(fake_.record.max_width, 0);
  EXPECT_EQ(fake_.record_name, "Mono8");
  const auto variable = Server::CreateVariableSize(32, 16, kMono8, GS_DRIVER_FILTER);
  EXPECT_EQ(fake_.record.init_type, GS_INIT_DYNAMIC_SIZE);
  EXPECT_EQ(fake_.record.max_width, 32);
  EXPECT_EQ(fake_.record.max_height, 16);
  EXPECT_THAT(library_.calls, testing::Contains("CreateGevServer2(1)"));
}

TEST_F(ServerTest, FailsAndGivesTheHandleBackWhenEventsCannotBeRegistered) {
  library_.Fail("CreateGevServer", TR_E_FAILED);
  EXPECT_EQ(TextOf<TarnException>([] { Server::CreateNonStreaming(); }), "ServerBase library text");
  library_.Reset();
  library_.Fail("GSRegisterEvent", TR_E_OVERFLOW);
  EXPECT_EQ(TextOf<std::overflow_error>([] { Server::CreateNonStreaming(); }), "ServerBase library text");
  EXPECT_EQ(library_.LiveHandles(), 0U);
}

TEST_F(ServerTest, FailuresHaveATextEvenWhenNoneCanBeHad) {
  const auto server = NewServer();
  library_.Fail("GSDriverType", TR_E_OVERFLOW);
  const auto text = [&] { return TextOf<std::overflow_error>([&] { server->DriverType(); }); };
  fake_.last_error = "";
  EXPECT_EQ(text(), "ServerBase Error");
  EXPECT_TRUE(library_.reports.empty());
  for (const char* part : {"GSGetLastErrorString(size)", "GSGetLastErrorString(text)"}) {
    fake_.last_error = "library text";
    library_.failures.erase("GSGetLastErrorString(size)");
    library_.Fail(part, TR_E_INTERNAL);
    EXPECT_EQ(text(), "ServerBase Error") << part;
    ASSERT_FALSE(library_.reports.empty()) << part;
    EXPECT_THAT(library_.reports.back(),
                testing::EndsWith(
                    "{\"Name\": \"GSGetLastErrorString\", \"TRC_ERROR_CODE\": 4}|GSGetLastErrorString"));
  }
}

TEST_F(ServerTest, StateFollowsCallsAndEvents) {
  const auto server = NewServer();
  EXPECT_EQ(server->State(), State::Configuration);
  fake_.FireServerEvent(GS_EVENT_CONNECTED);
  EXPECT_EQ(server->State(), State::Configuration) << "not started";
  server->Start("127.0.0.1");
  EXPECT_THAT(library_.calls.back(), testing::EndsWith(",2130706433)"));
  EXPECT_EQ(server->State(), State::Disconnected);
  const std::pair<std::int32_t, std::int32_t> events[] = {
      {GS_EVENT_CONNECTED, State::Connected},
      {GS_EVENT_ACQUISITION_START, State::AcquisitionEnabled},
      {GS_EVENT_ACQUISITION_STOP, State::Connected},
      {GS_EVENT_DISCONNECTED, State::Disconnected}};
  for (const auto& [event, state] : events) {
    fake_.FireServerEvent(event);
    EXPECT_EQ(server->State(), state) << "event " << event;
    EXPECT_EQ(server->Stream()->IsRunning(), state == State::AcquisitionEnabled) << "event " << event;
  }
  library_.Fail("GSStop", TR_E_BUSY);
  EXPECT_THROW(server->Stop(), TarnException);
  EXPECT_EQ(server->State(), State::Disconnected) << "a failed stop changes nothing";
  library_.Fail("GSStop", TR_OK);
  server->Stop();
  EXPECT_EQ(server->State(), State::Configuration);
  EXPECT_FALSE(library_.calls.empty());
}

TEST_F(ServerTest, StartThatFailsLeavesItAsItWas) {
  const auto server = NewServer();
  library_.Fail("GSStartIPv4", TR_E_SYSTEM);
  EXPECT_EQ(TextOf<TarnException>([&] { server->Start(1); }), "ServerBase library text");
  EXPECT_EQ(server->State(), State::Configuration);
  fake_.FireServerEvent(GS_EVENT_CONNECTED);
  EXPECT_EQ(server->State(), State::Configuration);
  library_.Fail("GSStartIPv4", TR_OK);
  server->Start(1);
  fake_.FireServerEvent(GS_EVENT_CONNECTED);
  library_.Fail("GSStartIPv4", TR_E_WRONG_STATE);
  EXPECT_THROW(server->Start(1), std::domain_error);
  EXPECT_EQ(server->State(), State::Connected);
}

TEST_F(ServerTest, ClientMayConnectBeforeStartReturns) {
  const auto server = NewServer();
  fake_.during_start = [&] { fake_.FireServerEvent(GS_EVENT_CONNECTED); };
  server->Start(1);
  EXPECT_EQ(server->State(), State::Connected);
}

TEST_F(ServerTest, EventAfterItsServerWentDoesNothing) {
  auto server = NewServer();
  server->Start(1);
  const auto event = fake_.server_events.at(GS_EVENT_CONNECTED);
  server.reset();
  EXPECT_EQ(library_.LiveHandles(), 0U);
  event.first(event.second);
}

// A stop waits for the library's threads. One of them is inside a callback that stops the server too.
TEST_F(ServerTest, StopFromACallbackDoesNotWaitForTheStopThatWaitsForIt) {
  const auto server = NewServer();
  server->Start(1);
  std::future<void> callback;
  fake_.during_stop = [&] {
    if (callback.valid()) return;
    callback = std::async(std::launch::async, [&] {
      const Private::CallbackScope scope;
      server->Stop();
      EXPECT_THROW(server->Start(1), std::runtime_error);
    });
    EXPECT_EQ(callback.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "waits for itself";
  };
  server->Stop();
  EXPECT_EQ(library_.Count("GSStop"), 1U);
  EXPECT_EQ(server->State(), State::Configuration);
}

TEST_F(ServerTest, EndpointsAreRenderedAndStartEmpty) {
  const auto server = NewServer();
  EXPECT_EQ(server->LocalEndpoint().ToString(), "192.168.0.1:3956");
  EXPECT_EQ(server->RemoteEndpoint().ToString(), "0.0.0.0:0");
}

TEST_F(ServerTest, HasOneNodeMapThatOutlivesItDetached) {
  auto server = Server::CreateNonStreaming();
  const auto map = server->NodeMap();
  EXPECT_EQ(server->NodeMap(), map);
  EXPECT_EQ(server->Stream(), nullptr) << "no stream";
  EXPECT_FALSE(map->IsReadOnly());
  server->Start(1);
  EXPECT_TRUE(map->IsReadOnly());
  server.reset();
  EXPECT_EQ(library_.LiveHandles(), 0U);
  EXPECT_EQ(TextOf<std::runtime_error>([&] { map->IsReadOnly(); }),
            "this node map is not attached to a server");
  EXPECT_EQ(TextOf<TarnException>([&] { map->GetInfoAsInt(0); }), "NodeMap: library text");
}

}  // namespace
}  // namespace Tarn::GevServer
