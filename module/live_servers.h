#pragma once

/// The servers that are to be stopped before the interpreter ends.

#include <memory>

#include "gevserver/server_base.h"

namespace _tarn::gevserver {

/// Threads: any thread.
void RememberServer(const std::shared_ptr<Tarn::GevServer::ServerBase>& server);

/// Stops every server that still lives. Never throws.
/// Requires: the interpreter lock not held, as callbacks that are under way may wait for it.
void StopAllServers() noexcept;

}  // namespace _tarn::gevserver
