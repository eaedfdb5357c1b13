#pragma once

/// What the driver of an interface says about it.

#include <string>

namespace Tarn {

/// Mbit/s; 0 when the driver does not know. Pairs between namespaces and taps claim numbers that limit nothing.
unsigned LinkSpeedOf(const std::string& interface);

/// Where the interface is plugged in: an address on a bus, or what a virtual driver says instead; empty when
/// there is nothing to say.
std::string BusAddressOf(const std::string& interface);

/// Whether it completes UDP checksums of what it sends.
bool OffloadsChecksums(const std::string& interface);

}  // namespace Tarn
