#pragma once

/// What may be done with a node at this moment, along its value chain.

#include "camera/engine/nodes/evaluation.h"
#include "camera/engine/nodes/node.h"

namespace Tarn {

/// Register's or value source's mode, cut down by the imposed mode, the lock and the availability of each
/// node on the way. Not implemented wins over not available.
/// Throws: EngineError when a condition has no value.
AccessMode AccessOf(const Node& node, Evaluation& at);
AccessMode AccessOf(const Node& node);  ///< at this moment

/// What clients may do with a register as such. The device alone writes what stands behind chunk and event
/// ports.
AccessMode RegisterAccess(const RegisterPart& reg);

/// The register's mode at the end of the value chain; NoCache when the value is a constant, and on ports
/// whose data comes anew with each image or event.
CacheMode CacheOf(const Node& node);

bool IsImplemented(const Node& node, Evaluation& at);
bool IsAvailable(const Node& node, Evaluation& at);
bool IsLocked(const Node& node, Evaluation& at);

}  // namespace Tarn
