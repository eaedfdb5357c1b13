#include "core/tarn_exception.h"

#include <cstdint>
#include <new>

namespace Tarn {

// Source: the libraries' table of codes. Codes without a name in tr_status.h come from other libraries of the
// family.
std::exception_ptr ExceptionForStatus(TR_STATUS status, const std::string& message) {
  switch (static_cast<std::uint32_t>(status)) {
    case 0x80000002:
    case 0x80000022:
    case 0x80000023:
    case 0x80000024:
    case 0x80000025:
    case 0x80000026:
    case 0x80000028:
    case 0x80000029:
      return std::make_exception_ptr(std::invalid_argument(message));
    case 0x80000006:
    case 0x80000008:
    case 0x80000009:
    case 0x8000000A:
    case 0x8000000D:
    case 0x80000030:
      return std::make_exception_ptr(std::out_of_range(message));
    case 0x80000007:
    case 0x80000012:
    case 0x80000013:
    case 0x80000016:
    case 0x80000018:
    case 0x80000019:
    case 0x8000001A:
    case 0x8000001B:
    case 0x8000001C:
    case 0x8000001E:
    case 0x80000027:
    case 0x8000002A:
    case 0x8000002F:
    case 0x80000031:
      return std::make_exception_ptr(std::domain_error(message));
    case 0x8000002B:
      return std::make_exception_ptr(std::overflow_error(message));
    case 0x80000005:
      return std::make_exception_ptr(std::bad_alloc());
    default:
      return std::make_exception_ptr(TarnException(message, status));
  }
}

void ThrowStatus(TR_STATUS status, const std::string& message) {
  std::rethrow_exception(ExceptionForStatus(status, message));
}

}  // namespace Tarn
