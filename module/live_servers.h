#pragma once

/// The servers of this process, for the moments at which all of them end: the interpreter's exit, and a fork.

#include <memory>

#include "gevserver/server_base.h"

namespace _tarn::gevserver {

/// Threads: any thread.
void RememberServer(const std::shared_ptr<Tarn::GevServer::ServerBase>& server);

/// Stops every server that still lives. One that does not stop, as a listener of it never returns, is left
/// behind.
/// Requires: the interpreter lock not held, as callbacks that are under way may wait for it.
void StopAllServers();

/// Has every forked child forget the servers: they belong to the parent alone, and are there as if they had
/// never been started. Once, at the import.
void ForgetServersInForkedChildren();

}  // namespace _tarn::gevserver
