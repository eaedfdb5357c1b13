#include "camera/device/control_threads.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <thread>
#include <utility>

#include "camera/base/mutex.h"
#include "camera/base/thread_control.h"
#include "camera/device/device.h"
#include "camera/device/message_channel.h"
#include "camera/net/control_sockets.h"
#include "camera/net/link_watch.h"
#include "camera/net/poller.h"

namespace Tarn {
namespace {

// Larger than any command, so that longer ones are recognised as such.
constexpr std::size_t kReceiveBuffer = 2048;
constexpr std::chrono::seconds kStopTimeout{5};

}  // namespace

class ControlThreads::Shared {
 public:
  Shared(std::uint32_t address, std::uint16_t port) : sockets_(address, port) {}

  /// Each thread shares this object, the device and the channel until its end.
  static void Start(const std::shared_ptr<Shared>& self, const std::shared_ptr<Device>& device,
                    const std::shared_ptr<MessageChannel>& messages) {
    const MutexLock lock(self->mutex_);
    self->receiving_ = std::thread([self, device, messages] {
      ThisThread::Name("tarn-control");
      self->ReceiveAll(*device, *messages);
      self->NoteEnd();
    });
    ++self->running_;
    self->calling_ = std::thread([self, device] {
      ThisThread::Name("tarn-calling");
      self->CallListeners(*device);
      self->NoteEnd();
    });
    ++self->running_;
  }

  Endpoint Local() const { return sockets_.Local(); }
  void Send(const ControlDatagram& datagram) noexcept {
    sockets_.Send(datagram.Bytes(), datagram.destination);
  }
  void WakeReceiving() noexcept { wakeup_.Wake(); }

  void WakeCalling() noexcept {
    const MutexLock lock(mutex_);
    calls_wait_ = true;
    calling_wake_.notify_one();
  }

  void End() noexcept {
    {
      const MutexLock lock(mutex_);
      ending_ = true;
    }
    wakeup_.Wake();
    calling_wake_.notify_one();
  }

  /// Joins what can be joined; what cannot goes on alone.
  void Collect() {
    MutexLock lock(mutex_);
    const std::thread::id self = std::this_thread::get_id();
    const bool inside = receiving_.get_id() == self || calling_.get_id() == self;
    const auto deadline = Now() + kStopTimeout;
    while (!inside && running_ > 0 && Now() < deadline) ended_.wait_until(lock, deadline);
    const bool ended = running_ == 0;
    std::thread threads[] = {std::move(receiving_), std::move(calling_)};
    lock.unlock();
    for (std::thread& thread : threads) {
      if (!thread.joinable()) continue;
      if (ended) {
        thread.join();
      } else {
        thread.detach();
      }
    }
  }

  void Detach() noexcept {
    const MutexLock lock(mutex_);
    for (std::thread* thread : {&receiving_, &calling_}) {
      if (thread->joinable()) thread->detach();
    }
  }

 private:
  bool Ending() {
    const MutexLock lock(mutex_);
    return ending_;
  }

  void NoteEnd() {
    const MutexLock lock(mutex_);
    --running_;
    ended_.notify_all();
  }

  bool AwaitCalls() {
    MutexLock lock(mutex_);
    while (!ending_ && !calls_wait_) calling_wake_.wait(lock);
    calls_wait_ = false;
    return !ending_;
  }

  void ReceiveAll(Device& device, MessageChannel& messages);
  void CallListeners(Device& device);

  ControlSockets sockets_;
  LinkWatch links_;
  Wakeup wakeup_;

  Mutex mutex_;
  std::thread receiving_ TARN_GUARDED_BY(mutex_);
  std::thread calling_ TARN_GUARDED_BY(mutex_);
  std::condition_variable_any calling_wake_;
  std::condition_variable_any ended_;
  bool calls_wait_ TARN_GUARDED_BY(mutex_) = false;
  int running_ TARN_GUARDED_BY(mutex_) = 0;
  bool ending_ TARN_GUARDED_BY(mutex_) = false;
};

/// Time-outs are judged only where all that had arrived before was heard: after a pause of the process the signs
/// of life of its clients wait in the sockets. These keep their order, and only the first one, that of unicast
/// datagrams, brings signs of life. So the time up to which everything was heard is that of its last datagram,
/// or, where it was empty, that before it was asked. Of each socket one datagram is taken at a time: to look
/// for a second one costs more than to be told of it.
void ControlThreads::Shared::ReceiveAll(Device& device, MessageChannel& messages) {
  Poller poller;
  poller.Add(wakeup_.Fd());
  const std::array<int, 3> fds = sockets_.Fds();
  for (const int fd : fds) poller.Add(fd);
  const std::size_t first_message = poller.Add(messages.Fds()[0]);
  poller.Add(messages.Fds()[1]);
  const std::size_t links = poller.Add(links_.Fd());
  std::array<std::uint8_t, kReceiveBuffer> buffer;
  Outbox outbox;
  Instant deadline = device.Arm();
  while (!Ending()) {
    const Instant message_deadline = messages.Deadline();
    const Instant next = std::min(deadline, message_deadline);
    Instant heard = Now();
    poller.Wait(next == Instant::max() ? std::nullopt : std::optional(next));
    if (poller.Ready(0)) {
      wakeup_.Clear();
      deadline = device.Arm();
    }
    for (std::size_t i = 0; i < fds.size(); ++i) {
      if (!poller.Ready(i + 1)) continue;
      const auto received = sockets_.Receive(fds[i], buffer);
      if (!received) continue;
      if (i == 0) heard = received->arrival;
      deadline =
          device.Receive({received->bytes, received->source, received->broadcast, received->arrival}, outbox);
    }
    if (poller.Ready(first_message) || poller.Ready(first_message + 1) || heard >= message_deadline) {
      messages.Serve();
    }
    if (poller.Ready(links) && links_.Drain()) device.LinksChanged(outbox);
    if (heard >= deadline) deadline = device.Advance(heard, outbox);
  }
}

void ControlThreads::Shared::CallListeners(Device& device) {
  Outbox outbox;
  while (AwaitCalls()) {
    for (Listeners next = device.NextCalls(outbox); !next.empty(); next = device.NextCalls(outbox)) {
      for (const auto& listener : next) listener->call(listener->context);
      if (Ending()) return;  // the device may be at its next start already
    }
  }
}

ControlThreads::ControlThreads(std::uint32_t address, std::uint16_t port)
    : shared_(std::make_shared<Shared>(address, port)) {}

ControlThreads::~ControlThreads() { Abandon(); }

void ControlThreads::Start(const std::shared_ptr<Device>& device,
                           const std::shared_ptr<MessageChannel>& messages) {
  Shared::Start(shared_, device, messages);
}

Endpoint ControlThreads::Local() const { return shared_->Local(); }
void ControlThreads::Send(const ControlDatagram& datagram) noexcept { shared_->Send(datagram); }
void ControlThreads::WakeReceiving() noexcept { shared_->WakeReceiving(); }
void ControlThreads::WakeCalling() noexcept { shared_->WakeCalling(); }

void ControlThreads::Stop() {
  shared_->End();
  shared_->Collect();
}

void ControlThreads::Abandon() noexcept {
  shared_->End();
  shared_->Detach();
}

}  // namespace Tarn
