#include "module/live_servers.h"

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "camera/base/process_mutex.h"

namespace _tarn::gevserver {
namespace {

using Tarn::GevServer::ServerBase;

using Servers = std::vector<std::weak_ptr<ServerBase>>;

/// How long an ending program waits for one server, longer than any stop takes whose listeners return.
constexpr std::chrono::milliseconds kStopTimeout{300};

/// Never destroyed: servers may be stopped until the very end.
struct Registry {
  Tarn::ProcessMutex mutex;
  Servers list TARN_GUARDED_BY(mutex);
};

Registry& TheRegistry() {
  static Registry& registry = *new Registry;
  return registry;
}

Servers TakeServers() {
  Servers list;
  const Tarn::MutexLock lock(TheRegistry().mutex);
  list.swap(TheRegistry().list);
  return list;
}

/// Stops servers one after the other on a thread of its own, so that whoever waits can stop waiting.
class Stopping : public std::enable_shared_from_this<Stopping> {
 public:
  explicit Stopping(Servers servers) : servers_(std::move(servers)) {}

  void Begin() {
    std::thread([self = shared_from_this()] { self->Run(); }).detach();
  }

  /// Until all are stopped, or one takes too long.
  void Wait() {
    std::unique_lock lock(mutex_);
    for (std::size_t seen = 0; seen < servers_.size(); seen = done_) {
      if (!progress_.wait_for(lock, kStopTimeout, [&] { return done_ > seen; })) return;
    }
  }

 private:
  void Run() {
    for (const auto& weak : servers_) {
      try {
        if (const auto server = weak.lock()) server->Stop();
      } catch (const std::exception&) {
        // The process is ending: there is nobody to tell, and the others are to be stopped all the same.
      }
      const std::lock_guard lock(mutex_);
      ++done_;
      progress_.notify_all();
    }
  }

  const Servers servers_;
  std::mutex mutex_;
  std::condition_variable progress_;
  std::size_t done_ = 0;
};

}  // namespace

void RememberServer(const std::shared_ptr<ServerBase>& server) {
  Registry& registry = TheRegistry();
  const Tarn::MutexLock lock(registry.mutex);
  std::erase_if(registry.list, [](const auto& weak) { return weak.expired(); });
  registry.list.push_back(server);
}

void StopAllServers() {
  auto servers = TakeServers();
  std::erase_if(servers, [](const auto& weak) { return weak.expired(); });
  if (servers.empty()) return;
  const auto stopping = std::make_shared<Stopping>(std::move(servers));
  stopping->Begin();
  stopping->Wait();
}

void ForgetServersInForkedChildren() {
  // The forking thread holds the lock when this runs, as it holds all of its kind.
  Tarn::OnForkedChild([&registry = TheRegistry()]() TARN_NO_THREAD_SAFETY_ANALYSIS {
    Servers servers;
    servers.swap(registry.list);
    for (const auto& weak : servers) {
      if (const auto server = weak.lock()) server->ForgetParent();
    }
  });
}

}  // namespace _tarn::gevserver
