#include "camera/device/control_server.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <iterator>
#include <list>
#include <thread>
#include <utility>
#include <vector>

#include "camera/base/mutex.h"
#include "camera/net/control_sockets.h"
#include "camera/net/poller.h"

namespace Tarn {
namespace {

constexpr std::size_t kReceiveBuffer =
    2048;  // larger than any command, so that longer ones are recognised as such
constexpr std::size_t kMostWaiting = 64;     // commands; clients have one under way each
constexpr std::size_t kMostOfStrangers = 8;  // of those; a slow listener is not to be kept busy by anybody
constexpr std::size_t kMostDelayed = 64;     // discoveries
constexpr std::chrono::seconds kStopPatience{5};

/// A command on its way through the listeners.
struct Job {
  std::vector<std::uint8_t> bytes;
  Endpoint source;
  bool broadcast = false;
  Instant arrival;
  Instant next_notice;  ///< when its client is told next that it takes longer
  bool from_holder = false;

  Job(const ControlRequest& request, Instant notice, bool holder = false)
      : bytes(request.bytes.begin(), request.bytes.end()),
        source(request.source),
        broadcast(request.broadcast),
        arrival(request.arrival),
        next_notice(notice),
        from_holder(holder) {}
  ControlRequest Request() const { return {bytes, source, broadcast, arrival}; }
};

/// A command that is answered later on purpose.
struct Delayed {
  Instant due;
  Job job;
};

/// The request to wait: | reserved 16 | milliseconds 16 | behind an answer's header.
std::size_t PendingAnswer(const Job& job, std::chrono::milliseconds time, MutableByteView buffer) {
  ByteReader in(job.bytes);
  const std::optional<CommandHeader> command = CommandHeader::Decode(in);
  if (!command || (command->flags & CommandFlag::kAckRequired) == 0) return 0;
  AckHeader header;
  header.acknowledge = kPendingAck;
  header.length = 4;
  header.ack_id = command->request_id;
  ByteWriter out(buffer);
  header.Encode(out);
  out.Put(std::uint16_t{0});
  out.Put(static_cast<std::uint16_t>(time.count()));
  return out.Size();
}

}  // namespace

class ControlServer::Threads {
 public:
  Threads(std::uint32_t address, std::uint16_t port) : sockets_(address, port) {}

  /// Each thread shares this object and the service until its end.
  static void Start(const std::shared_ptr<Threads>& self, const std::shared_ptr<ControlService>& service,
                    const std::shared_ptr<SideChannel>& side) {
    const MutexLock lock(self->mutex_);
    self->service_ = service.get();
    self->running_ = 2;
    self->hearing_ = std::thread([self, service, side] { self->Hear(side.get()); });
    self->executing_ = std::thread([self, service] { self->ExecuteJobs(); });
  }

  Endpoint Local() const { return sockets_.Local(); }

  void End() noexcept {
    {
      const MutexLock lock(mutex_);
      ending_ = true;
    }
    wakeup_.Wake();
    job_came_.notify_all();
  }

  /// Joins what can be joined; what cannot goes on alone.
  void Collect() {
    MutexLock lock(mutex_);
    const std::thread::id self = std::this_thread::get_id();
    const bool inside = hearing_.get_id() == self || executing_.get_id() == self;
    const auto deadline = Now() + kStopPatience;
    while (!inside && running_ > 0 && Now() < deadline) ended_.wait_until(lock, deadline);
    const bool ended = running_ == 0;
    std::thread threads[] = {std::move(hearing_), std::move(executing_)};
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
    for (std::thread* thread : {&hearing_, &executing_}) {
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

  void Hear(SideChannel* side);
  void Receive(int fd);
  void Answer(const ControlRequest& request);
  void Send(ByteView answer, Endpoint client);
  void Enqueue(const ControlRequest& request, bool holder);
  Instant NextDelayed() const;
  void AnswerDelayed(Instant now);
  void AskForCall();
  void ExecuteJobs();
  Instant NextNotice();
  void SendNotices(Instant now);
  std::vector<Endpoint> Waiting();

  ControlSockets sockets_;
  Wakeup wakeup_;
  ControlService* service_ = nullptr;  ///< alive while a thread runs
  std::vector<Delayed> delayed_;       ///< of the thread that hears

  Mutex mutex_;
  std::thread hearing_ TARN_GUARDED_BY(mutex_);
  std::thread executing_ TARN_GUARDED_BY(mutex_);
  std::condition_variable_any job_came_;
  std::condition_variable_any ended_;
  std::list<Job> jobs_ TARN_GUARDED_BY(mutex_);      ///< the first one is being executed
  bool call_asked_ TARN_GUARDED_BY(mutex_) = false;  ///< for the service's Call
  int running_ TARN_GUARDED_BY(mutex_) = 0;
  bool ending_ TARN_GUARDED_BY(mutex_) = false;
};

void ControlServer::Threads::Hear(SideChannel* side) {
  Poller poller;
  poller.Add(wakeup_.Fd());
  const std::array<int, 3> fds = sockets_.Fds();
  for (const int fd : fds) poller.Add(fd);
  const std::array<int, 2> side_fds = side ? side->Fds() : std::array{-1, -1};
  const std::size_t first_side = poller.Add(side_fds[0]);
  poller.Add(side_fds[1]);
  while (!Ending()) {
    const Instant side_deadline = side ? side->Deadline() : Instant::max();
    const Instant deadline = std::min({service_->Deadline(), NextNotice(), NextDelayed(), side_deadline});
    poller.Wait(deadline == Instant::max() ? std::nullopt : std::optional(deadline));
    if (poller.Ready(0)) wakeup_.Clear();
    for (std::size_t i = 0; i < fds.size(); ++i) {
      if (poller.Ready(i + 1)) Receive(fds[i]);
    }
    const Instant now = Now();
    if (poller.Ready(first_side) || poller.Ready(first_side + 1) || now >= side_deadline) side->Serve();
    SendNotices(now);
    AnswerDelayed(now);
    if (service_->Tick(now, Waiting())) AskForCall();
  }
  NoteEnd();
}

/// Takes one datagram: to look for a second one costs more than to be told of it.
void ControlServer::Threads::Receive(int fd) {
  std::array<std::uint8_t, kReceiveBuffer> buffer;
  const auto received = sockets_.Receive(fd, buffer);
  if (!received) return;
  const ControlRequest request{received->bytes, received->source, received->broadcast, received->arrival};
  const Reception reception = service_->Arrived(request);
  switch (reception.turn) {
    case Reception::Turn::Now:
      Answer(request);
      break;
    case Reception::Turn::Listeners:
      Enqueue(request, false);
      break;
    case Reception::Turn::ListenersFirst:
      Enqueue(request, true);
      break;
    case Reception::Turn::Later:
      if (delayed_.size() < kMostDelayed) delayed_.push_back({reception.due, {request, Instant::max()}});
      break;
    case Reception::Turn::Never:
      break;
  }
}

Instant ControlServer::Threads::NextDelayed() const {
  Instant next = Instant::max();
  for (const Delayed& delayed : delayed_) next = std::min(next, delayed.due);
  return next;
}

void ControlServer::Threads::AnswerDelayed(Instant now) {
  for (const Delayed& delayed : delayed_) {
    if (now >= delayed.due) Answer(delayed.job.Request());
  }
  std::erase_if(delayed_, [now](const Delayed& delayed) { return now >= delayed.due; });
}

void ControlServer::Threads::Answer(const ControlRequest& request) {
  std::array<std::uint8_t, kMaxControlDatagram> answer;
  const std::size_t size = service_->Execute(request, answer);
  Send(ByteView(answer).first(size), request.source);
}

/// \param answer  empty when the command is met with silence
void ControlServer::Threads::Send(ByteView answer, Endpoint client) {
  if (!answer.empty()) sockets_.Send(answer, client);
  service_->Answered();
}

void ControlServer::Threads::Enqueue(const ControlRequest& request, bool holder) {
  const std::optional<std::chrono::milliseconds> patience = service_->PendingAfter();
  const MutexLock lock(mutex_);
  const bool repeated = std::ranges::any_of(jobs_, [&](const Job& job) {
    return job.source == request.source && std::ranges::equal(job.bytes, request.bytes);
  });
  const auto strangers =
      jobs_.size() - static_cast<std::size_t>(std::ranges::count(jobs_, true, &Job::from_holder));
  if (repeated || jobs_.size() >= kMostWaiting || (!holder && strangers >= kMostOfStrangers)) return;
  // Behind the one that is being executed, and behind the holder's own.
  auto place = jobs_.end();
  if (holder && !jobs_.empty()) {
    place = std::ranges::find(std::next(jobs_.begin()), jobs_.end(), false, &Job::from_holder);
  }
  jobs_.emplace(place, request, patience ? request.arrival + *patience : Instant::max(), holder);
  job_came_.notify_all();
}

void ControlServer::Threads::ExecuteJobs() {
  {
    MutexLock lock(mutex_);
    while (!ending_) {
      if (std::exchange(call_asked_, false)) {  // first, since actions are to happen at once
        lock.unlock();
        service_->Call();
        lock.lock();
        continue;
      }
      if (jobs_.empty()) {
        job_came_.wait(lock);
        continue;
      }
      const Job& job = jobs_.front();  // stays in place: others come behind it
      const Endpoint client = job.source;
      lock.unlock();
      std::array<std::uint8_t, kMaxControlDatagram> answer;
      const std::size_t size = service_->Execute(job.Request(), answer);
      lock.lock();
      // Before the answer goes: after it no notice may follow, and what the client then repeats is a new
      // command.
      jobs_.pop_front();
      lock.unlock();
      Send(ByteView(answer).first(size), client);
      lock.lock();
    }
  }
  NoteEnd();
}

Instant ControlServer::Threads::NextNotice() {
  const MutexLock lock(mutex_);
  Instant next = Instant::max();
  for (const Job& job : jobs_) next = std::min(next, job.next_notice);
  return next;
}

void ControlServer::Threads::SendNotices(Instant now) {
  if (now < NextNotice()) return;
  const std::optional<std::chrono::milliseconds> patience = service_->PendingAfter();
  if (!patience) return;
  const MutexLock lock(mutex_);
  for (Job& job : jobs_) {
    if (now < job.next_notice) continue;
    std::array<std::uint8_t, kMaxControlDatagram> answer;
    // Twice the interval at which the notices come, so that the client outlives a late one.
    const std::size_t size = PendingAnswer(job, *patience * 2, answer);
    if (size > 0) sockets_.Send(ByteView(answer).first(size), job.source);
    job.next_notice = now + *patience;
  }
}

std::vector<Endpoint> ControlServer::Threads::Waiting() {
  const MutexLock lock(mutex_);
  std::vector<Endpoint> clients;
  for (const Job& job : jobs_) clients.push_back(job.source);
  return clients;
}

void ControlServer::Threads::AskForCall() {
  const MutexLock lock(mutex_);
  call_asked_ = true;
  job_came_.notify_all();
}

ControlServer::ControlServer(std::uint32_t address, std::uint16_t port)
    : threads_(std::make_shared<Threads>(address, port)) {}

void ControlServer::Start(const std::shared_ptr<ControlService>& service,
                          const std::shared_ptr<SideChannel>& side) {
  Threads::Start(threads_, service, side);
}

ControlServer::~ControlServer() { Abandon(); }

Endpoint ControlServer::Local() const { return threads_->Local(); }

void ControlServer::Stop() {
  threads_->End();
  threads_->Collect();
}

void ControlServer::Abandon() noexcept {
  threads_->End();
  threads_->Detach();
}

}  // namespace Tarn
