#include "gevserver/nodes/default_node.h"

#include <stdexcept>

namespace Tarn::GevServer::Private {

std::int32_t DefaultNode::AccessMode() const { throw std::runtime_error("not implemented"); }
std::int32_t DefaultNode::CacheMode() const { throw std::runtime_error("not implemented"); }

}  // namespace Tarn::GevServer::Private
