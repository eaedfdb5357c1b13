#pragma once

/// How wrappers hold the native classes of the object model (see binding/wrapper.h).

#include <concepts>

#include "binding/core_values.h"
#include "binding/wrapper.h"
#include "gevserver/buffer_description.h"
#include "gevserver/network_interface.h"
#include "gevserver/nodes/node.h"
#include "gevserver/server_base.h"
#include "gevserver/stream_base.h"

namespace Tarn::Binding {

template <std::derived_from<GevServer::Node> T>
struct Held<T> {
  using Root = GevServer::Node;
  static constexpr bool kValue = false;
};

template <std::derived_from<GevServer::ServerBase> T>
struct Held<T> {
  using Root = GevServer::ServerBase;
  static constexpr bool kValue = false;
};

template <std::derived_from<GevServer::StreamBase> T>
struct Held<T> {
  using Root = GevServer::StreamBase;
  static constexpr bool kValue = false;
};

template <std::derived_from<GevServer::ImageBufferDescription> T>
struct Held<T> {
  using Root = GevServer::ImageBufferDescription;
  static constexpr bool kValue = true;
};

template <>
struct Held<GevServer::LogicalNetworkInterface> : HeldValue<GevServer::LogicalNetworkInterface> {};

}  // namespace Tarn::Binding
