#include <cstdint>
#include <optional>
#include <string>

#include "binding/type_builder.h"
#include "core/module/type_def.h"
#include "core/module/value_protocol.h"

namespace tarn {
namespace {

using Number = std::optional<std::int64_t>;

PyRef NewVersion(NewType type, Number major, Number minor, Number sub_minor) {
  const Tarn::GenApiVersion version{major.value_or(0), minor.value_or(0), sub_minor.value_or(0)};
  return Construct(type.type, std::make_shared<Tarn::GenApiVersion>(version));
}

std::int64_t Major(const Tarn::GenApiVersion& version) { return version.major_version; }
std::int64_t Minor(const Tarn::GenApiVersion& version) { return version.minor_version; }
std::int64_t SubMinor(const Tarn::GenApiVersion& version) { return version.sub_minor_version; }
const char* VersionFormat() { return "GenApiVersion(major=%r, minor=%r, sub_minor=%r)"; }

PyRef NewConnection(NewType type, const std::optional<std::string>& address,
                    std::optional<std::uint16_t> port) {
  const Tarn::NetworkConnection connection{address.value_or("0.0.0.0"), port.value_or(0)};
  return Construct(type.type, std::make_shared<Tarn::NetworkConnection>(connection));
}

std::string Address(const Tarn::NetworkConnection& connection) { return connection.address; }
std::uint16_t Port(const Tarn::NetworkConnection& connection) { return connection.port; }
const char* ConnectionFormat() { return "NetworkConnection(address=%r, port=%r)"; }

}  // namespace

template <>
void TypeDef<GenApiVersion>::Init() {
  TypeDefinition& type = TypeBuilder(Get(), "tarn.GenApiVersion",
                                     "Version of a GenApi XML description or of its schema.", "Immutable.")
                             .Constructor<Signature<&NewVersion, "major", "minor", "sub_minor">>(
                                 {{.summary = "Instantiates a GenApiVersion object.",
                                   .params = {{"major", "int", "Major version.", "0"},
                                              {"minor", "int", "Minor version.", "0"},
                                              {"sub_minor", "int", "Sub minor version.", "0"}}}})
                             .ReadOnly<&Major>("major", "Gets the major version.")
                             .ReadOnly<&Minor>("minor", "Gets the minor version.")
                             .ReadOnly<&SubMinor>("sub_minor", "Gets the sub minor version.")
                             .Definition();
  type.compare = &Compare<Tarn::GenApiVersion, &TypeObject__GenApiVersion__, true>;
  type.hash = &Hash<Tarn::GenApiVersion>;
  type.to_text = &Text<Tarn::GenApiVersion>;
  type.represent = &Represent<Tarn::GenApiVersion, &VersionFormat>;
}

template <>
void TypeDef<NetworkConnection>::Init() {
  TypeDefinition& type = TypeBuilder(Get(), "tarn.NetworkConnection", "One end of a network connection.",
                                     "Iterates as (address, port). Immutable.")
                             .Constructor<Signature<&NewConnection, "address", "port">>(
                                 {{.summary = "Instantiates a NetworkConnection object.",
                                   .params = {{"address", "str", "IP address version 4.", "\"0.0.0.0\""},
                                              {"port", "int", "UDP port, 0 to 65535.", "0"}}}})
                             .ReadOnly<&Address>("address", "Gets the IP address version 4.")
                             .ReadOnly<&Port>("port", "Gets the UDP port.")
                             .Definition();
  type.compare = &Compare<Tarn::NetworkConnection, &TypeObject__NetworkConnection__>;
  type.hash = &Hash<Tarn::NetworkConnection>;
  type.iterate = &Iterate<Tarn::NetworkConnection>;
  type.to_text = &Text<Tarn::NetworkConnection>;
  type.represent = &Represent<Tarn::NetworkConnection, &ConnectionFormat>;
}

}  // namespace tarn
