#pragma once

/// Python listeners of node events: the bodies of the registration methods of nodes.
///
/// A listener is called with the node, on the thread of the library that reports the event. The native side
/// keeps an id; the callable is in the node wrapper's registry, and the wrapper, while it has listeners, is
/// kept by its node map (or lives as long as its user holds it, for a free node). Nothing here takes part in
/// cycle collection: a callable that itself holds the server keeps it until it is unregistered.

#include "binding/convert.h"
#include "binding/core_values.h"
#include "binding/function_traits.h"

namespace _tarn::gevserver {

/// Register: keyword "handler". Unregister: keyword "event_cookie"; throws std::runtime_error "no such
/// callable for this id" for a cookie that is not this event's, or not any more.
Tarn::EventCookie RegisterEventUpdated(Tarn::Binding::Self self, Tarn::Binding::Callable handler);
void UnregisterEventUpdated(Tarn::Binding::Self self, Tarn::EventCookie cookie);

Tarn::EventCookie RegisterEventOnReadUpdated(Tarn::Binding::Self self, Tarn::Binding::Callable handler);
void UnregisterEventOnReadUpdated(Tarn::Binding::Self self, Tarn::EventCookie cookie);

Tarn::EventCookie RegisterEventWrittenUpdated(Tarn::Binding::Self self, Tarn::Binding::Callable handler);
void UnregisterEventWrittenUpdated(Tarn::Binding::Self self, Tarn::EventCookie cookie);

}  // namespace _tarn::gevserver
