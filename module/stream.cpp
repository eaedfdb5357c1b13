#include <cstdint>
#include <memory>
#include <stdexcept>

#include "binding/parent_metas.h"
#include "binding/type_builder.h"
#include "gevserver/library/tr_status.h"
#include "gevserver/server_call.h"
#include "gevserver/stream_base.h"
#include "module/image_release.h"
#include "module/native_types.h"
#include "module/type_def.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;
namespace Native = Tarn::GevServer;

namespace {

using ImagePtr = std::shared_ptr<Tarn::Image>;

void SetResendBuffersCount(Native::StreamBase& stream, ExactInt count) {
  Native::CheckServerCall(Native::kServerPrefix, stream.SetResendBuffersCount(count.value));
}

/// With None for the callback the caller keeps no hold on the image, so what is sent is a copy.
TR_STATUS SendCopy(Native::StreamBase& stream, const ImagePtr& image) {
  return stream.InnerSend(image->Copy(), {});
}

TR_STATUS SendAndTell(PyObject* self, Native::StreamBase& stream, ImagePtr image, PyObject* object,
                      PyObject* callback) {
  auto release = std::make_unique<ImageRelease>(self, object, callback);
  // From the call on it belongs to the library, which may have run and freed it when the call returns. A
  // plain pointer, as a std::function then needs no memory of its own.
  ImageRelease* const raw = release.release();
  const auto released = [raw](const ImagePtr&) { ImageRelease::Run(std::unique_ptr<ImageRelease>(raw)); };
  TR_STATUS status = 0;
  try {
    status = stream.InnerSend(std::move(image), released);
  } catch (const std::exception&) {
    delete raw;
    throw;
  }
  if (status < 0) delete raw;
  return status;
}

/// With a stream that still sends earlier images.
enum class Patience { None, AMoment };

/// Arguments are judged here and not by the overload set: what is no image has its own text in every form.
TR_STATUS StatusWithCallback(PyObject* self, PyObject* object, PyObject* callback, Patience patience) {
  auto image = FromPython<ImagePtr>(object);
  const auto stream = Extract<Native::StreamBase>(self);
  const bool copy = Py_IsNone(callback);
  if (!copy && !PyCallable_Check(callback)) throw OverloadParseError();
  if (patience == Patience::None && !stream->HasPlace()) return TR_E_BUSY;
  if (copy) return SendCopy(*stream, image);
  return SendAndTell(self, *stream, std::move(image), object, callback);
}

void SendWithCallback(Self self, PyObject* image, PyObject* callback) {
  Native::StreamBase::RequireSent(StatusWithCallback(self.object, image, callback, Patience::AMoment));
}

void Send(Native::StreamBase& stream, PyObject* image) { stream.Send(FromPython<ImagePtr>(image)); }

bool TrySendWithCallback(Self self, PyObject* image, PyObject* callback) {
  return StatusWithCallback(self.object, image, callback, Patience::None) >= 0;
}

bool TrySend(Native::StreamBase& stream, PyObject* image) {
  return stream.TrySend(FromPython<ImagePtr>(image)) >= 0;
}

ParamDoc ImageReleased(const std::string& doc) {
  return {"image_released", "Optional[Callable[[tarn.Image], None]]", doc, "None"};
}

const ParamDoc kImage{"image", "tarn.Image", "An image to be sent."};

std::vector<CallDoc> SendDocs() {
  return {
      {.summary = "Sends the given image to the remote client.",
       .description =
           "The given image must fit into the payload size set at creation / State.Configuration state. "
           "If packet resend is enabled (Stream.resend_buffers_count is larger than zero), then the given "
           "must remain unchanged until ``image_released`` has been called! In case packet resend is "
           "disabled ``image_released`` will be called immediately. If no callback is given, packet "
           "resend must be disabled (Stream.resend_buffers_count is zero).",
       .params = {kImage,
                  ImageReleased("Delegate to be called when the given image is not needed anymore for packet "
                                "resend.If ``None`` is set then the image will be copied to the resend "
                                "buffer.")}}};
}

std::vector<CallDoc> TrySendDocs() {
  return {
      {.summary = "Tries to send the given image to the remote client.",
       .description =
           "If packet resend is enabled (Stream.resend_buffers_count is larger than zero), then the given "
           "image must remain unchanged until ``image_released`` has been called! In case packet resend "
           "is disabled ``image_released`` will be called immediately. If no callback is given, packet "
           "resend must be disabled (Stream.resend_buffers_count is zero).",
       .params = {kImage,
                  ImageReleased("Delegate to be called when the given image is not needed anymore for packet "
                                "resend. If ``None`` is set the image will be copied to the resend buffer.")},
       .returns = {
           "bool",
           "``True`` if successfully sent; ``False`` on any error. Parameter errors and disposed exception "
           "will still be thrown."}}};
}

}  // namespace

template <>
void TypeDef<Stream>::Init() {
  TypeBuilder(Get(), "tarn.gevserver.Stream", "The stream to send Images or other data.")
      .ReadOnly<&Native::StreamBase::IsRunning>(
          "is_running", "Gets whether this stream is running.",
          "Streaming can only be enabled by the remote client. Send is only possible as long as the stream "
          "is active "
          "(running). Note that acquisition start/stop is an asynchronous action without any means to "
          "synchronize. "
          "Use the try_send() method to avoid exceptions. ``True`` if parent's state is "
          "tarn.gevserver.State.AcquisitionEnabled; ``False`` otherwise.")
      .ReadWrite<&Native::StreamBase::ResendBuffersCount, &SetResendBuffersCount>(
          "resend_buffers_count", "Gets or sets the number of resend buffers.",
          "This number specifies for how many full frames a packet resend can be done; set to 0 if no packet "
          "resend "
          "is to be supported. This property can only be change only if the parent is in "
          "State.Configuration.")
      .Method<Signature<&SendWithCallback, "image", "callback">, Signature<&Send, "image">>("send",
                                                                                            SendDocs())
      .Method<Signature<&TrySendWithCallback, "image", "callback">, Signature<&TrySend, "image">>(
          "try_send", TrySendDocs());
}

}  // namespace _tarn::gevserver
