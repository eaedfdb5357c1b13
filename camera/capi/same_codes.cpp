// The codes that stand on both sides of the C line agree, one by one. The engine has tables of its own, since
// nothing below this folder may include the C headers. Those of the kinds of nodes stand with the calls that
// create nodes.

#include "camera/base/engine_error.h"
#include "camera/device/server_events.h"
#include "camera/device/stream_channel.h"
#include "camera/engine/nodes/codes.h"
#include "gevserver/library/tr_codes.h"
#include "gevserver/library/tr_status.h"

namespace Tarn {

#define TARN_SAME_CODE(engine, line) static_assert(static_cast<std::int32_t>(engine) == (line))

TARN_SAME_CODE(Failure::kFailed, TR_E_FAILED);
TARN_SAME_CODE(Failure::kInvalidArgument, TR_E_INVALID_ARGUMENT);
TARN_SAME_CODE(Failure::kInvalidHandle, TR_E_INVALID_HANDLE);
TARN_SAME_CODE(Failure::kInternal, TR_E_INTERNAL);
TARN_SAME_CODE(Failure::kNoMemory, TR_E_NO_MEMORY);
TARN_SAME_CODE(Failure::kOutOfRange, TR_E_OUT_OF_RANGE);
TARN_SAME_CODE(Failure::kWrongState, TR_E_WRONG_STATE);
TARN_SAME_CODE(Failure::kNotFound, TR_E_NOT_FOUND);
TARN_SAME_CODE(Failure::kBusy, TR_E_BUSY);
TARN_SAME_CODE(Failure::kSystem, TR_E_SYSTEM);
TARN_SAME_CODE(Failure::kBufferTooSmall, TR_E_BUFFER_TOO_SMALL);
TARN_SAME_CODE(Failure::kAccess, TR_E_ACCESS);
TARN_SAME_CODE(Failure::kNotSupported, TR_E_NOT_SUPPORTED);
TARN_SAME_CODE(Failure::kNoValue, TR_E_NO_VALUE);
TARN_SAME_CODE(Failure::kNoStream, TR_E_NO_STREAM);
TARN_SAME_CODE(Failure::kExists, TR_E_EXISTS);
TARN_SAME_CODE(Failure::kIncrement, TR_E_INCREMENT);
TARN_SAME_CODE(Failure::kFormula, TR_E_FORMULA);
TARN_SAME_CODE(Failure::kText, TR_E_TEXT);
TARN_SAME_CODE(Failure::kName, TR_E_NAME);
TARN_SAME_CODE(Failure::kCycle, TR_E_CYCLE);
TARN_SAME_CODE(Failure::kAddress, TR_E_ADDRESS);
TARN_SAME_CODE(Failure::kOverflow, TR_E_OVERFLOW);

TARN_SAME_CODE(NodeItem::Name, GSN_INFO_NAME);
TARN_SAME_CODE(NodeItem::DisplayName, GSN_INFO_DISPLAY_NAME);
TARN_SAME_CODE(NodeItem::AccessMode, GSN_INFO_ACCESS_MODE);
TARN_SAME_CODE(NodeItem::Max, GSN_INFO_MAX);
TARN_SAME_CODE(NodeItem::Min, GSN_INFO_MIN);
TARN_SAME_CODE(NodeItem::Increment, GSN_INFO_INCREMENT);
TARN_SAME_CODE(NodeItem::NumEnumEntries, GSN_INFO_NUM_ENUM_ENTRIES);
TARN_SAME_CODE(NodeItem::Streamable, GSN_INFO_STREAMABLE);
TARN_SAME_CODE(NodeItem::CachingMode, GSN_INFO_CACHING_MODE);
TARN_SAME_CODE(NodeItem::ToolTip, GSN_INFO_TOOL_TIP);
TARN_SAME_CODE(NodeItem::Description, GSN_INFO_DESCRIPTION);
TARN_SAME_CODE(NodeItem::Visibility, GSN_INFO_VISIBILITY);
TARN_SAME_CODE(NodeItem::PollingTime, GSN_INFO_POLLING_TIME);
TARN_SAME_CODE(NodeItem::EventId, GSN_INFO_EVENT_ID);
TARN_SAME_CODE(NodeItem::NameSpace, GSN_INFO_NAME_SPACE);
TARN_SAME_CODE(NodeItem::RegisterLength, GSN_INFO_REGISTER_LENGTH);
TARN_SAME_CODE(NodeItem::RegisterAddress, GSN_INFO_REGISTER_ADDRESS);
TARN_SAME_CODE(NodeItem::Representation, GSN_INFO_REPRESENTATION);
TARN_SAME_CODE(NodeItem::Value, GSN_INFO_VALUE);
TARN_SAME_CODE(NodeItem::OnValue, GSN_INFO_ON_VALUE);
TARN_SAME_CODE(NodeItem::OffValue, GSN_INFO_OFF_VALUE);
TARN_SAME_CODE(NodeItem::Formula, GSN_INFO_FORMULA);
TARN_SAME_CODE(NodeItem::ImposedAccessMode, GSN_INFO_IMPOSED_ACCESS_MODE);
TARN_SAME_CODE(NodeItem::IsImplemented, GSN_INFO_IS_IMPLEMENTED);
TARN_SAME_CODE(NodeItem::IsAvailable, GSN_INFO_IS_AVAILABLE);
TARN_SAME_CODE(NodeItem::IsLocked, GSN_INFO_IS_LOCKED);
TARN_SAME_CODE(NodeItem::Alias, GSN_INFO_ALIAS);
TARN_SAME_CODE(NodeItem::Sign, GSN_INFO_SIGN);
TARN_SAME_CODE(NodeItem::Unit, GSN_INFO_UNIT);
TARN_SAME_CODE(NodeItem::DisplayPrecision, GSN_INFO_DISPLAY_PRECISION);
TARN_SAME_CODE(NodeItem::IsDeprecated, GSN_INFO_IS_DEPRECATED);
TARN_SAME_CODE(NodeItem::IsFeature, GSN_INFO_IS_FEATURE);

TARN_SAME_CODE(NodeList::Child, GSN_LIST_CHILD);
TARN_SAME_CODE(NodeList::Selected, GSN_LIST_SELECTED);
TARN_SAME_CODE(NodeList::Invalidator, GSN_LIST_INVALIDATOR);
TARN_SAME_CODE(NodeList::Addresses, GSN_LIST_ADDRESSES);

TARN_SAME_CODE(NodeEvent::Read, GSN_EVENT_READ);
TARN_SAME_CODE(NodeEvent::Write, GSN_EVENT_WRITE);

TARN_SAME_CODE(AccessMode::NotImplemented, GS_ACCESS_NOT_IMPLEMENTED);
TARN_SAME_CODE(AccessMode::NotAvailable, GS_ACCESS_NOT_AVAILABLE);
TARN_SAME_CODE(AccessMode::ReadOnly, GS_ACCESS_READ_ONLY);
TARN_SAME_CODE(AccessMode::WriteOnly, GS_ACCESS_WRITE_ONLY);
TARN_SAME_CODE(AccessMode::ReadWrite, GS_ACCESS_READ_WRITE);

TARN_SAME_CODE(CacheMode::NoCache, GS_CACHE_NO_CACHE);
TARN_SAME_CODE(CacheMode::WriteThrough, GS_CACHE_WRITE_THROUGH);
TARN_SAME_CODE(CacheMode::WriteAround, GS_CACHE_WRITE_AROUND);

TARN_SAME_CODE(Visibility::Beginner, GS_VISIBILITY_BEGINNER);
TARN_SAME_CODE(Visibility::Expert, GS_VISIBILITY_EXPERT);
TARN_SAME_CODE(Visibility::Guru, GS_VISIBILITY_GURU);
TARN_SAME_CODE(Visibility::Invisible, GS_VISIBILITY_INVISIBLE);

TARN_SAME_CODE(Representation::Linear, GS_REPRESENTATION_LINEAR);
TARN_SAME_CODE(Representation::Logarithmic, GS_REPRESENTATION_LOGARITHMIC);
TARN_SAME_CODE(Representation::Boolean, GS_REPRESENTATION_BOOLEAN);
TARN_SAME_CODE(Representation::PureNumber, GS_REPRESENTATION_PURE_NUMBER);
TARN_SAME_CODE(Representation::HexNumber, GS_REPRESENTATION_HEX_NUMBER);
TARN_SAME_CODE(Representation::Ipv4Address, GS_REPRESENTATION_IPV4_ADDRESS);
TARN_SAME_CODE(Representation::MacAddress, GS_REPRESENTATION_MAC_ADDRESS);

TARN_SAME_CODE(NameSpace::Standard, GS_NAMESPACE_STANDARD);
TARN_SAME_CODE(NameSpace::Custom, GS_NAMESPACE_CUSTOM);
TARN_SAME_CODE(NameSpace::Private, GS_NAMESPACE_PRIVATE);

TARN_SAME_CODE(ServerEvent::Connected, GS_EVENT_CONNECTED);
TARN_SAME_CODE(ServerEvent::Disconnected, GS_EVENT_DISCONNECTED);
TARN_SAME_CODE(ServerEvent::AcquisitionStart, GS_EVENT_ACQUISITION_START);
TARN_SAME_CODE(ServerEvent::AcquisitionStop, GS_EVENT_ACQUISITION_STOP);
TARN_SAME_CODE(ServerEvent::ImageSnapped, GS_EVENT_IMAGE_SNAPPED);

TARN_SAME_CODE(StreamDriver::Auto, GS_DRIVER_AUTO);
TARN_SAME_CODE(StreamDriver::Socket, GS_DRIVER_SOCKET);
TARN_SAME_CODE(StreamDriver::Filter, GS_DRIVER_FILTER);

// Of a register: whether it is signed.
TARN_SAME_CODE(false, GS_UNSIGNED);
TARN_SAME_CODE(true, GS_SIGNED);

#undef TARN_SAME_CODE

}  // namespace Tarn
