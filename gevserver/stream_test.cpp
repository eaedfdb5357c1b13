#include "gevserver/stream.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

#include "gevserver/fake_server_library_test.h"
#include "gevserver/server.h"

namespace Tarn::GevServer {
namespace {

class StreamTest : public testing::Test {
 protected:
  StreamTest() {
    library_.Reset();
    fake_.Reset();
    server_ = Server::CreateConstantSize(3, 2, 0x01080001, GS_DRIVER_AUTO);
    stream_ = server_->Stream();
    image_ = Image::Create(3, 2, 1, DataTypes::kInt8BppUnsigned);
  }

  // Calls the library's release of the oldest image.
  void ReleaseFirst() {
    const auto pending = fake_.pending.front();
    fake_.pending.erase(fake_.pending.begin());
    pending.released(pending.context);
  }

  Testing::FakeLibrary& library_ = Testing::FakeLibrary::Instance();
  Testing::FakeServerLibrary& fake_ = Testing::FakeServerLibrary::Instance();
  std::shared_ptr<Server> server_;
  std::shared_ptr<Stream> stream_;
  std::shared_ptr<Image> image_;
};

TEST_F(StreamTest, KeepsServerAndImageUntilTheyAreNeededNoMore) {
  const std::weak_ptr<Image> image = image_;
  std::vector<std::shared_ptr<Image>> released;
  EXPECT_EQ(stream_->InnerSend(std::move(image_), [&](const auto& which) { released.push_back(which); }),
            TR_OK);
  ASSERT_FALSE(image.expired());
  EXPECT_TRUE(released.empty());
  ReleaseFirst();
  ASSERT_EQ(released.size(), 1U);
  EXPECT_EQ(released[0], image.lock());
  released.clear();
  EXPECT_TRUE(image.expired());

  const std::weak_ptr<Server> server = server_;
  server_.reset();
  EXPECT_FALSE(server.expired());
  stream_.reset();
  EXPECT_TRUE(server.expired());
}

TEST_F(StreamTest, NeverCallsBackAfterAFailureAndLetsTheImageGo) {
  library_.Fail("GSSendImageCB", TR_E_NO_STREAM);
  const std::weak_ptr<Image> image = image_;
  int released = 0;
  EXPECT_EQ(stream_->InnerSend(std::move(image_), [&](const auto&) { ++released; }), TR_E_NO_STREAM);
  EXPECT_TRUE(image.expired());
  EXPECT_EQ(released, 0);
}

TEST_F(StreamTest, KeepsExceptionsAndMissingCallbacksFromTheLibrary) {
  EXPECT_EQ(stream_->InnerSend(image_, [](const auto&) { throw std::runtime_error("bad"); }), TR_OK);
  EXPECT_EQ(stream_->InnerSend(image_, {}), TR_OK);
  const auto trampoline = fake_.pending.front().released;
  ReleaseFirst();
  ReleaseFirst();
  trampoline(nullptr);
  EXPECT_EQ(image_.use_count(), 1);
}

TEST_F(StreamTest, SendsWithoutCallbackWhileResendIsOffOnly) {
  EXPECT_NO_THROW(stream_->Send(image_));
  library_.Fail("GSSendImage", TR_E_NO_STREAM);
  EXPECT_THROW(stream_->Send(image_), std::runtime_error);
  EXPECT_EQ(stream_->TrySend(image_), TR_E_NO_STREAM);
  EXPECT_EQ(library_.Count("GSSendImage"), 3U);

  EXPECT_EQ(stream_->SetResendBuffersCount(1), TR_OK);
  for (const auto send :
       {+[](Stream&s, const std::shared_ptr<Image>&i) { s.Send(i); },
        +[](Stream&s, const std::shared_ptr<Image>&i) { static_cast<void>(s.TrySend(i)); }}) {
    try {
      send(*stream_, image_);
      FAIL() << "sent";
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "Packet resend must be disabled for send without callback");
    }
  }
  EXPECT_EQ(library_.Count("GSSendImage"), 3U) << "nothing is sent";
}

TEST_F(StreamTest, ResendCountNeverWraps) {
  EXPECT_THROW(static_cast<void>(stream_->SetResendBuffersCount(std::int64_t{1} << 32)), std::out_of_range);
  EXPECT_EQ(library_.Count("GSSetPacketResendBuffers"), 0U);
  fake_.resend_buffers = 5;
  library_.Fail("GSGetPacketResendBuffers", TR_E_INTERNAL);
  EXPECT_EQ(stream_->ResendBuffersCount(), 0) << "a library that does not tell";
}

}  // namespace
}  // namespace Tarn::GevServer
