#pragma once

/// A GigE Vision server: state, identity, start and stop.

#include <cstdint>
#include <memory>
#include <string>

#include "camera/base/mutex.h"
#include "core/network_connection.h"
#include "gevserver/library/tr_types.h"
#include "gevserver/server_state.h"
#include "gevserver/start_stop_lock.h"

namespace Tarn::GevServer {

class NodeMap;

/// What every server can do; made as a Server, always shared.
///
/// Library failures throw the kind of their code, with texts that begin with "ServerBase ".
/// Threads: any thread. Destruction waits for nothing.
class ServerBase : public std::enable_shared_from_this<ServerBase> {
 public:
  virtual ~ServerBase();
  ServerBase(const ServerBase&) = delete;
  ServerBase& operator=(const ServerBase&) = delete;

  virtual TR_HANDLE Handle() const noexcept = 0;

  /// State code (see State).
  virtual std::int32_t State() const noexcept;

  /// GSDriverType that is in use.
  virtual std::int32_t DriverType() const;

  /// Text behind the device version. The library crops it to 31 bytes.
  virtual std::string UserVersion() const;
  virtual void SetUserVersion(const std::string& text);

  /// Where the server listens; means something while it is started.
  virtual NetworkConnection LocalEndpoint() const;
  /// The connected client; "0.0.0.0" and 0 as long as the library tells no other.
  virtual NetworkConnection RemoteEndpoint() const;

  /// The node map, made at the first call.
  /// Throws: std::bad_weak_ptr when nobody shares the server any more.
  virtual std::shared_ptr<GevServer::NodeMap> NodeMap();

  /// Binds and starts answering clients. A failure leaves the state as it was.
  /// \param address  read as LooseAddress does
  /// Throws: std::runtime_error "ServerBase server is being stopped" while another thread stops it.
  virtual void Start(const std::string& address);
  /// \param address  host order
  virtual void Start(std::uint32_t address);

  /// Stops, and waits for the library's threads unless called from a callback; then a stop already under way
  /// is not waited for either.
  virtual void Stop();

  /// To be called in a forked child: the server runs in the parent, and here no start or stop is under way.
  void ForgetParent();

  /// Text of a GSInfo item.
  std::string GetInfoAsString(std::int32_t info) const;

 protected:
  ServerBase();

  /// Has the library's events drive the state.
  void RegisterEvents();

 private:
  // Constant after construction.
  const std::shared_ptr<Private::ServerState> state_;
  const std::uint64_t event_context_;

  Private::StartStopLock start_stop_;
  Mutex node_map_mutex_;  // never held together with start_stop_
  std::shared_ptr<GevServer::NodeMap> node_map_ TARN_GUARDED_BY(node_map_mutex_);
};

}  // namespace Tarn::GevServer
