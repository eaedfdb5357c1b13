#include "gevserver/server.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "binding/interpreter_lock.h"
#include "binding/parent_metas.h"
#include "binding/type_builder.h"
#include "core/size_and_point.h"
#include "gevserver/node_map.h"
#include "gevserver/pixel_format.h"
#include "gevserver/stream.h"
#include "module/image_params.h"
#include "module/live_servers.h"
#include "module/native_types.h"
#include "module/type_def.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;
namespace Native = Tarn::GevServer;

namespace {

using ServerPtr = std::shared_ptr<Native::Server>;
using NativeFactory = ServerPtr (*)(std::int32_t, std::int32_t, std::uint32_t, std::int32_t);

PyRef WrapNodeMap(std::shared_ptr<Native::NodeMap> map) {
  const void* native = map.get();
  PyRef wrapper = Bind(TypeObject__NodeMap__(), std::move(map));
  Attach(wrapper.Get(), std::make_shared<NodeMapMeta>(native, wrapper.Get()));
  return wrapper;
}

PyRef WrapStream(std::shared_ptr<Native::Stream> stream) {
  if (!stream) return {};
  PyRef wrapper = Bind(TypeObject__Stream__(), std::move(stream));
  Attach(wrapper.Get(), std::make_shared<StreamMeta>());
  return wrapper;
}

/// Callbacks run in the main interpreter, and so does its exit hook. A copy of the module in another
/// interpreter gets this far without the module's initialisation being asked.
void RequireMainInterpreter() {
  if (!InMainInterpreter()) throw std::runtime_error(kMainInterpreterOnly);
}

PyRef WrapServer(const ServerPtr& server) {
  RequireMainInterpreter();
  RememberServer(server);
  PyRef wrapper = Bind(TypeObject__Server__(), server);
  auto meta = std::make_shared<ServerMeta>();
  meta->node_map = WrapNodeMap(server->NodeMap());
  meta->stream = WrapStream(server->Stream());
  Attach(wrapper.Get(), std::move(meta));
  return wrapper;
}

PyRef CreateNonStreaming() { return WrapServer(Native::Server::CreateNonStreaming()); }

template <NativeFactory Create>
PyRef CreatePfnc(Tarn::Size2D size, std::uint32_t pixel_format, std::optional<std::int32_t> driver_type) {
  return WrapServer(Create(Tarn::RoundToInt32(size.width), Tarn::RoundToInt32(size.height), pixel_format,
                           driver_type.value_or(GS_DRIVER_AUTO)));
}

/// A pair without a pixel format goes on as 0, which the creation refuses after the size was checked.
template <NativeFactory Create>
PyRef CreateMapped(Tarn::Size2D size, std::int64_t color_model, std::optional<Tarn::DataType> data_type,
                   std::optional<std::int32_t> driver_type) {
  const std::uint32_t pixel_format =
      Native::PfncFormatOf(color_model, data_type.value_or(Tarn::DataTypes::kInt8BppSigned));
  return CreatePfnc<Create>(size, pixel_format, driver_type);
}

constexpr NativeFactory kConstant = &Native::Server::CreateConstantSize;
constexpr NativeFactory kVariable = &Native::Server::CreateVariableSize;

void SetUserVersion(Native::ServerBase& server, const AnyText& version) {
  server.SetUserVersion(version.text);
}

PyRef NodeMapOfServer(Self self) {
  const auto server = Extract<Native::ServerBase>(self.object);
  const auto meta = FindMeta<ServerMeta>(self.object);
  return meta ? meta->node_map : PyRef();
}

PyRef StreamOfServer(Self self) {
  const auto server = Extract<Native::ServerBase>(self.object);
  const auto meta = FindMeta<ServerMeta>(self.object);
  return meta ? meta->stream : PyRef();
}

/// By exact type: anything else starts nothing.
void Start(Native::ServerBase& server, PyObject* ip_address) {
  if (PyUnicode_CheckExact(ip_address)) {
    server.Start(FromPython<std::string>(ip_address));
  } else if (PyLong_CheckExact(ip_address)) {
    // The low 32 bits count, so that -1 is the broadcast address as in C.
    server.Start(static_cast<std::uint32_t>(FromPython<std::int64_t>(ip_address)));
  }
}

/// Waits for the library's threads, and those for the interpreter lock: it must be free meanwhile.
void Stop(Native::ServerBase& server) {
  WithoutInterpreterLock([&server] { server.Stop(); });
}

const ParamDoc kServerDataType{"data_type", "tarn.DataType", "Data type of the image to send.",
                               "tarn.DataType.Int8BppSigned"};
const ParamDoc kDriverType{"driver_type", "int", "The driver type to use (see tarn.gevserver.DriverType).",
                           "tarn.gevserver.DriverType.Auto"};

std::vector<CallDoc> NonStreamingDocs() {
  return {
      {.summary = "Creates a non-streaming GigE Vision server object.",
       .description =
           "For stream-capable variants see create_server_const_size(size, color_model, data_type, "
           "driver_type) "
           "or create_server_variable_size(max_size, color_model, data_type, driver_type). You can use this "
           "server for pure communication use cases via the GenApi (think for example of a lighting "
           "controller "
           "or motor lens).",
       .returns = {"tarn.gevserver.Server",
                   "Newly created non-streaming server object in tarn.gevserver.State.Configuration.."}}};
}

std::vector<CallDoc> ConstantPfncDocs() {
  return {{.summary = "Creates a new server object with a constant width and height.",
           .description =
               "If you wish to change the payload size (for example because you want to send chunk data), "
               "you can set it on the PayloadSizeValue node in State.Configuration.",
           .params = {kSize, kPixelFormat, kDriverType},
           .returns = {"tarn.gevserver.Server", "Newly created server object in State.Configuration."}}};
}

std::vector<CallDoc> ConstantDocs() {
  ParamDoc driver_type = kDriverType;
  driver_type.doc =
      "The driver type to use. Newly created server object in tarn.gevserver.State.Configuration state (see "
      "tarn.gevserver.DriverType).";
  return {{.summary = "Creates a new server object with a constant width and height.",
           .description =
               "Tries to map the given and to a PfncFormat. If you wish to change the payload size (for "
               "example because you want to send chunk data), you can set it on the PayloadSizeValue node "
               "in tarn.gevserver.State.Configuration state.",
           .params = {kSize, kColorModel, kServerDataType, driver_type},
           .returns = {"tarn.gevserver.Server",
                       "Newly created server object in tarn.gevserver.State.Configuration."}}};
}

std::vector<CallDoc> VariableDocs() {
  return {{.summary = "Creates a new server object with a client configurable width, height and offsets.",
           .description =
               "Tries to map the given color_model and data_type to a PfncFormat. If you wish to change "
               "the payload size (for example because you want to send chunk data), you can set it on the "
               "PayloadSizeValue node in tarn.gevserver.State.Configuration state.",
           .params = {{"max_size", "tarn.Size2D", "Maximal width and height in pixels."},
                      kColorModel,
                      kServerDataType,
                      kDriverType},
           .returns = {"tarn.gevserver.Server",
                       "Newly created server object in tarn.gevserver.State.Configuration state."}}};
}

std::vector<CallDoc> VariablePfncDocs() {
  return {{.summary = "Creates a new server object with a client configurable width, height and offsets.",
           .description =
               "If you wish to change the payload size (for example because you want to send chunk data), "
               "you can set it on the PayloadSizeValue node in tarn.gevserver.State.Configuration State.",
           .params = {{"max_size", "tarn.Size2D", "Width and height in pixels."}, kPixelFormat, kDriverType},
           .returns = {"tarn.gevserver.Server",
                       "Newly created server object in tarn.gevserver.State.Configuration."}}};
}

void AddFactories(TypeBuilder& type) {
  type.Static<Signature<&CreateNonStreaming>>("create_non_streaming", NonStreamingDocs())
      .Static<Signature<&CreatePfnc<kConstant>, "size", "pixel_format", "driver_type">>(
          "create_with_const_size_pfnc", ConstantPfncDocs())
      .Static<Signature<&CreateMapped<kConstant>, "size", "color_model", "data_type", "driver_type">>(
          "create_with_const_size", ConstantDocs())
      .Static<Signature<&CreateMapped<kVariable>, "max_size", "color_model", "data_type", "driver_type">>(
          "create_with_variable_size", VariableDocs())
      .Static<Signature<&CreatePfnc<kVariable>, "max_size", "pixel_format", "driver_type">>(
          "create_with_variable_size_pfnc", VariablePfncDocs());
}

void AddServerProperties(TypeBuilder& type) {
  type.ReadOnly<&Native::ServerBase::State>(
          "state", "Gets the current state this server is in (see tarn.gevserver.State).")
      .ReadOnly<&Native::ServerBase::DriverType>(
          "driver_type",
          "Gets the GigE Vision driver type used by this server object (see tarn.gevserver.DriverType).")
      .ReadWrite<&Native::ServerBase::UserVersion, &SetUserVersion>(
          "user_version", "Gets or sets the user defined version that is appended to the device version.",
          "This property is mandatory as soon as you change anything about the GenApi nodes! As the GenApi "
          "XML "
          "description is auto-generated the client needs a way to distinguish between different server "
          "instances "
          "with differing feature sets. If you change anything about the GenApi nodes on certain user "
          "version, you "
          "must increase the NodeMap.XmlFileVersion. This version information is appended to the TRGevServer "
          "version. The available memory for the overall information is limited by the GigE Vision standard "
          "to 32 "
          "bytes which results in up to 31 ASCII characters text (actual encoding is UTF-8) as strings must "
          "be "
          "null-terminated. Longer version information is silently cropped!")
      .ReadOnly<&Native::ServerBase::LocalEndpoint>(
          "local_endpoint", "Gets the local end point this server is bound to (see tarn.NetworkConnection).",
          "Network connection containing the current IP address and port. This value is only set if state is "
          "not "
          "tarn.gevserver.State.Configuration.")
      .ReadOnly<&Native::ServerBase::RemoteEndpoint>(
          "remote_endpoint",
          "Gets the remote end point this server is connected to (see tarn.NetworkConnection).",
          "Network connection containing the current IP address and port. Empty if not connected.This value "
          "is only "
          "set if state is tarn.gevserver.State.Connected or tarn.gevserver.State.AcquisitionEnabled.")
      .ReadOnly<&NodeMapOfServer>("node_map", "Gets this servers node map.")
      .ReadOnly<&StreamOfServer>(
          "stream", "Gets the Tarn.GevServer.Stream for sending Images or other data.",
          "The Tarn.GevServer.Stream object if this server object is streaming capable; empty hull for "
          "non-streaming "
          "server. This property is only non-empty if you created the server object via "
          "create_server_const_size(Size2D, ColorModel, DataType, DriverType) or "
          "create_server_variable_size(Size2D, ColorModel, DataType, DriverType).");
}

void AddServerMethods(TypeBuilder& type) {
  type.Method<Signature<&Start, "ip_address">>(
          "start",
          {{.summary = "Starts this server and binds it to the given ip_address.",
            .description =
                "All communication channels are bound and the GenApi XML description is generated. On "
                "success the state changes to tarn.gevserver.State.Disconnected.",
            .params = {{"ip_address", "Union[str, int]",
                        "IP address version 4 to bind to as string or unsigned integer."}}}})
      .Method<Signature<&Stop>>(
          "stop",
          {{.summary = "Stops this server.",
            .description = "Stopping the server results, depending on the current state, in a chain from "
                           "tarn.gevserver.State.AcquisitionEnabled to tarn.gevserver.State.Connected to "
                           "tarn.gevserver.State.Disconnected to tarn.gevserver.State.Configuration."}});
}

}  // namespace

template <>
void TypeDef<Server>::Init() {
  TypeBuilder type(Get(), "tarn.gevserver.Server",
                   "Tarn GigE Vision Server implements a GigE Vision camera in software.");
  AddFactories(type);
  AddServerProperties(type);
  AddServerMethods(type);
}

}  // namespace _tarn::gevserver
