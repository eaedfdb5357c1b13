// The server family of the C line.

#include <array>
#include <atomic>
#include <chrono>
#include <string>

#include "camera/base/clock.h"
#include "camera/capi/entry.h"
#include "camera/capi/node_box.h"
#include "camera/capi/pinned.h"
#include "camera/capi/server_box.h"
#include "camera/capi/text_exchange.h"
#include "gevserver/library/tr_gev_server.h"
#include "gevserver/library/tr_img.h"

namespace Tarn {
namespace {

TR_HANDLE MakeServer(const std::optional<SensorFormat>& format, StreamDriver driver) {
  return MakeHandle(std::make_unique<ServerBox>(Device::Create(format, driver)));
}

StreamDriver DriverOf(std::int32_t code) {
  if (code < GS_DRIVER_AUTO || code > GS_DRIVER_FILTER) {
    throw EngineError(Failure::kInvalidArgument, std::to_string(code) + " is no driver type");
  }
  return static_cast<StreamDriver>(code);
}

SensorFormat FormatOf(const GSCreationRecord& record) {
  if (record.init_type != GS_INIT_FIXED_SIZE && record.init_type != GS_INIT_DYNAMIC_SIZE) {
    throw EngineError(Failure::kInvalidArgument, std::to_string(record.init_type) + " is no init type");
  }
  if (record.width < 1 || record.height < 1) {
    throw EngineError(Failure::kInvalidArgument, "width and height must be at least 1");
  }
  SensorFormat format;
  format.pixel_format = record.pixel_format;
  format.pixel_format_name = record.pixel_format_name ? record.pixel_format_name : "";
  format.width = record.width;
  format.height = record.height;
  format.variable_size = record.init_type == GS_INIT_DYNAMIC_SIZE;
  if (record.pixel_format == 0) throw EngineError(Failure::kInvalidArgument, "0 is no pixel format");
  return format;
}

int VersionPart(std::int32_t info) {
  if (info < GS_INFO_XML_VERSION_MAJOR || info > GS_INFO_XML_VERSION_SUB_MINOR) {
    throw EngineError(Failure::kNotSupported,
                      "the server has no such integer information: " + std::to_string(info));
  }
  return info - GS_INFO_XML_VERSION_MAJOR;
}

void RequireUserVersion(std::int32_t info) {
  if (info == GS_INFO_SERVER_USER_VERSION) return;
  throw EngineError(Failure::kNotSupported,
                    "the server has no such text information: " + std::to_string(info));
}

/// An image on its way: holds the handle until its memory is needed no more.
struct SentImage {
  TR_HANDLE image;
  GSCallback released;
  void* context;

  static void Release(void* self) {
    auto* sent = static_cast<SentImage*>(self);
    sent->released(sent->context);
    ReleaseObject(&sent->image);
    delete sent;
  }
};

/// The planes of an image as the image library tells them.
class ImageView {
 public:
  explicit ImageView(TR_HANDLE image) {
    const std::int64_t planes = ImageDimension(image);
    if (planes < 1) throw EngineError(Failure::kInvalidHandle, "the handle is no image");
    if (static_cast<std::size_t>(planes) > planes_.size()) {
      throw EngineError(Failure::kInvalidArgument,
                        "no stream format has " + std::to_string(planes) + " planes");
    }
    memory_.width = static_cast<std::size_t>(ImageWidth(image));
    memory_.height = static_cast<std::size_t>(ImageHeight(image));
    memory_.sample_bytes = ((ImageDatatype(image, 0) & TR_DATATYPE_BITS_MASK) + 7) / 8;
    for (std::int64_t i = 0; i < planes; ++i) {
      PlaneMemory& plane = planes_[static_cast<std::size_t>(i)];
      void* base = nullptr;
      if (!GetLinearAccess(image, i, &base, &plane.x_increment, &plane.y_increment)) {
        throw EngineError(Failure::kInvalidArgument, "the image has no linear layout");
      }
      plane.base = static_cast<const std::uint8_t*>(base);
    }
    memory_.planes = std::span<const PlaneMemory>(planes_).first(static_cast<std::size_t>(planes));
  }

  const ImageMemory& Memory() const { return memory_; }

 private:
  std::array<PlaneMemory, 16> planes_;  // formats have up to four; byte-wise images may count more
  ImageMemory memory_;
};

/// At most once a minute in the whole process.
bool MayLogRefusal() {
  constexpr std::chrono::minutes kPause{1};
  static std::atomic<std::int64_t> next_ns = 0;  // nanoseconds of Now(); whoever moves it on may log
  const std::int64_t now = Now().time_since_epoch().count();
  std::int64_t next = next_ns;
  return now >= next && next_ns.compare_exchange_strong(next, now + Nanoseconds(kPause).count());
}

/// As Entry, for sends. An image that does not fit is the program's mistake, and programs that only try look
/// at nothing but success: the log tells them why nothing arrives.
template <class Body>
TR_STATUS SendEntry(Body&& body) noexcept {
  const TR_STATUS status = Entry(std::forward<Body>(body));
  if (status == TR_E_INVALID_ARGUMENT && MayLogRefusal()) {
    ReportTARNErrorEx(status, TRCLastErrorText(), "GSSendImage");
  }
  return status;
}

}  // namespace
}  // namespace Tarn

using namespace Tarn;

TR_HANDLE CreateGevServer(void) {
  return HandleEntry([] { return MakeServer(std::nullopt, StreamDriver::Auto); });
}

TR_HANDLE CreateGevServer2(int32_t driver_type, const GSCreationRecord* record) {
  return HandleEntry([&] {
    if (!record) throw EngineError(Failure::kInvalidArgument, "record must not be null");
    return MakeServer(FormatOf(*record), DriverOf(driver_type));
  });
}

TR_STATUS GSStartIPv4(TR_HANDLE server, uint32_t address) {
  return Entry([&] { Pinned<ServerBox>(server)->device->Start(address); });
}

TR_STATUS GSStop(TR_HANDLE server) {
  return Entry([&] { Pinned<ServerBox>(server)->device->Stop(); });
}

TR_STATUS GSDriverType(TR_HANDLE server, int32_t* driver_type) {
  return Entry([&] {
    const Pinned<ServerBox> box(server);
    Output(driver_type, "driver_type") = static_cast<int32_t>(box->device->Driver());
  });
}

namespace {

TR_STATUS GetEndpoint(TR_HANDLE server, uint32_t* address, uint16_t* port, Endpoint (Device::*get)() const) {
  return Entry([&] {
    const Pinned<ServerBox> box(server);
    uint32_t& to_address = Output(address, "address");
    uint16_t& to_port = Output(port, "port");
    const Endpoint endpoint = ((*box->device).*get)();
    to_address = endpoint.address;
    to_port = endpoint.port;
  });
}

}  // namespace

TR_STATUS GSGetLocalIPv4(TR_HANDLE server, uint32_t* address, uint16_t* port) {
  return GetEndpoint(server, address, port, &Device::Local);
}

TR_STATUS GSGetRemoteIPv4(TR_HANDLE server, uint32_t* address, uint16_t* port) {
  return GetEndpoint(server, address, port, &Device::Remote);
}

TR_STATUS GSGetInfoAsInteger(TR_HANDLE server, int32_t info, int64_t* value) {
  return Entry([&] {
    const Pinned<ServerBox> box(server);
    int64_t& to = Output(value, "value");
    to = info == GS_INFO_ACQUISITION_ACTIVE ? int64_t{box->device->AcquisitionActive()}
                                            : int64_t{box->device->XmlVersion(VersionPart(info))};
  });
}

TR_STATUS GSSetInfoAsInteger(TR_HANDLE server, int32_t info, int64_t value) {
  return Entry([&] { Pinned<ServerBox>(server)->device->SetXmlVersion(VersionPart(info), value); });
}

TR_STATUS GSGetInfoAsString(TR_HANDLE server, int32_t info, char* text, size_t* size) {
  return Entry([&] {
    const Pinned<ServerBox> box(server);
    RequireUserVersion(info);
    CopyText(box->device->UserVersion(), text, size);
  });
}

TR_STATUS GSSetInfoAsString(TR_HANDLE server, int32_t info, const char* text) {
  return Entry([&] {
    const Pinned<ServerBox> box(server);
    RequireUserVersion(info);
    box->device->SetUserVersion(TextArgument(text));
  });
}

TR_STATUS GSRegisterEvent(TR_HANDLE server, int32_t event, GSCallback callback, void* context,
                          uint64_t* cookie) {
  return Entry([&] {
    const Pinned<ServerBox> box(server);
    if (event < GS_EVENT_CONNECTED || event > GS_EVENT_IMAGE_SNAPPED) {
      throw EngineError(Failure::kInvalidArgument, std::to_string(event) + " is no server event");
    }
    if (!callback) throw EngineError(Failure::kInvalidArgument, "callback must not be null");
    Output(cookie, "cookie") =
        box->device->Events().Register(static_cast<ServerEvent>(event), callback, context);
  });
}

TR_STATUS GSAddNode(TR_HANDLE server, TR_HANDLE node) {
  return Entry([&] {
    const Pinned<ServerBox> box(server);
    const Pinned<NodeBox> added(node);
    const NodeLock lock(box->device->Tree());
    box->device->Tree().Add(added->node);
  });
}

TR_STATUS GSRemoveNode(TR_HANDLE server, TR_HANDLE node) {
  return Entry([&] {
    const Pinned<ServerBox> box(server);
    const Pinned<NodeBox> removed(node);
    const NodeLock lock(box->device->Tree());
    box->device->Tree().Remove(removed->node);
  });
}

TR_STATUS GSGetNode(TR_HANDLE server, const char* name, TR_HANDLE* node) {
  return Entry([&] {
    const Pinned<ServerBox> box(server);
    TR_HANDLE& to = Output(node, "node");
    const std::string wanted = TextArgument(name);
    NodePtr found;
    {
      const NodeLock lock(box->device->Tree());
      found = box->device->Tree().Find(wanted);
    }
    if (!found) throw EngineError(Failure::kNotFound, "the node map has no node named " + wanted);
    to = HandleOf(found);
    LetGo(found);
  });
}

TR_STATUS GSNodeCount(TR_HANDLE server, int64_t* count) {
  return Entry([&] {
    const Pinned<ServerBox> box(server);
    int64_t& to = Output(count, "count");
    const NodeLock lock(box->device->Tree());
    to = static_cast<int64_t>(box->device->Tree().Nodes().size());
  });
}

TR_STATUS GSNodeList(TR_HANDLE server, int64_t index, char* name, size_t* size) {
  return Entry([&] {
    const Pinned<ServerBox> box(server);
    const NodeLock lock(box->device->Tree());
    const std::vector<NodePtr>& nodes = box->device->Tree().Nodes();
    if (index < 0 || static_cast<std::size_t>(index) >= nodes.size()) {
      throw EngineError(Failure::kNotFound, "the node map has no node number " + std::to_string(index));
    }
    CopyText(nodes[static_cast<std::size_t>(index)]->name, name, size);
  });
}

TR_STATUS GSSendImage(TR_HANDLE server, TR_HANDLE image) {
  return SendEntry([&] {
    const Pinned<ServerBox> box(server);
    const ImageView view(image);
    if (box->device->ResendDepth() > 0) {
      throw EngineError(Failure::kWrongState,
                        "packet resend must be disabled for images without a release callback");
    }
    box->device->Send(view.Memory(), {});
  });
}

TR_STATUS GSSendImageCB(TR_HANDLE server, TR_HANDLE image, GSCallback released, void* context) {
  return SendEntry([&] {
    const Pinned<ServerBox> box(server);
    const ImageView view(image);
    if (!released) throw EngineError(Failure::kInvalidArgument, "released must not be null");
    auto sent = std::make_unique<SentImage>(SentImage{image, released, context});
    ShareObject(image);
    try {
      box->device->Send(view.Memory(), BlockOwner(&SentImage::Release, sent.get()));
    } catch (...) {
      ReleaseObject(&sent->image);
      throw;
    }
    sent.release();
  });
}

TR_STATUS GSHasImagePlace(TR_HANDLE server, bool* has_place) {
  return Entry([&] {
    const Pinned<ServerBox> box(server);
    Output(has_place, "has_place") = box->device->HasImagePlace();
  });
}

TR_STATUS GSGetPacketResendBuffers(TR_HANDLE server, int32_t* count) {
  return Entry([&] {
    const Pinned<ServerBox> box(server);
    Output(count, "count") = static_cast<int32_t>(box->device->ResendDepth());
  });
}

TR_STATUS GSSetPacketResendBuffers(TR_HANDLE server, int32_t count) {
  return Entry([&] { Pinned<ServerBox>(server)->device->SetResendDepth(count); });
}

TR_STATUS GSGetLastErrorString(char* text, size_t* size) {
  return EntryKeepingLastError([&] { CopyText(std::string_view(TRCLastErrorText()), text, size); });
}
