#pragma once

/// What may be done with a node at this moment, along its value chain.

#include "engine/nodes/node.h"

namespace Tarn {

/// Register's or value source's mode, cut down by the imposed mode, the lock and the availability of each
/// node on the way. Not implemented wins over not available. Throws: EngineError when a condition has no
/// value.
AccessMode AccessOf(const Node& node);

/// The register's mode at the end of the value chain; NoCache when the value is a constant.
CacheMode CacheOf(const Node& node);

bool IsImplemented(const Node& node);
bool IsAvailable(const Node& node);
bool IsLocked(const Node& node);

}  // namespace Tarn
