#include <cstdint>

#include "binding/type_builder.h"
#include "core/module/no_instances.h"
#include "core/module/type_def.h"
#include "core/module/value_protocol.h"

namespace tarn {
namespace {

std::int64_t Id(const Tarn::EventCookie& cookie) { return cookie.id; }
const char* CookieFormat() { return "EventCookie(id=%r)"; }

}  // namespace

template <>
void TypeDef<EventCookie>::Init() {
  TypeDefinition& type = TypeBuilder(Get(), "tarn.EventCookie", "Names one registration of a listener.",
                                     "Handed out by the registration; needed to end it.")
                             .ReadOnly<&Id>("id", "Gets the number of the registration.")
                             .Definition();
  type.construct = &RefuseNew;
  type.compare = &Compare<Tarn::EventCookie, &TypeObject__EventCookie__>;
  type.hash = &Hash<Tarn::EventCookie>;
  type.represent = &Represent<Tarn::EventCookie, &CookieFormat>;
}

}  // namespace tarn
