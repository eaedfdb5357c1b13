#include "module/live_servers.h"

#include <exception>
#include <utility>
#include <vector>

#include "camera/base/mutex.h"

namespace _tarn::gevserver {
namespace {

using Tarn::GevServer::ServerBase;

struct Servers {
  Tarn::Mutex mutex;
  std::vector<std::weak_ptr<ServerBase>> list TARN_GUARDED_BY(mutex);
};

Servers& TheServers() {
  static Servers servers;
  return servers;
}

}  // namespace

void RememberServer(const std::shared_ptr<ServerBase>& server) {
  Servers& servers = TheServers();
  const Tarn::MutexLock lock(servers.mutex);
  std::erase_if(servers.list, [](const auto& weak) { return weak.expired(); });
  servers.list.push_back(server);
}

void StopAllServers() noexcept {
  std::vector<std::weak_ptr<ServerBase>> list;
  {
    Servers& servers = TheServers();
    const Tarn::MutexLock lock(servers.mutex);
    list.swap(servers.list);
  }
  for (const auto& weak : list) {
    try {
      if (const auto server = weak.lock()) server->Stop();
    } catch (const std::exception&) {
      // The process is ending: there is nobody to tell, and the others are to be stopped all the same.
    }
  }
}

}  // namespace _tarn::gevserver
