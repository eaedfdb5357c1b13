#pragma once

/// Converters of the core module's values: sizes, points, data types, versions, connections, cookies, images.
///
/// The other module of a process may have made the wrapper, so a core object is known by its Python type and
/// its holder cast without a run-time check; dynamic casts would not agree between the two.

#include <Python.h>

#include <cstdint>
#include <memory>

#include "binding/convert.h"
#include "binding/core_types.h"
#include "binding/wrapper.h"
#include "core/data_type.h"
#include "core/gen_api_version.h"
#include "core/image.h"
#include "core/network_connection.h"
#include "core/size_and_point.h"

namespace Tarn {

/// Names one registration of a listener.
struct EventCookie {
  std::int64_t id = 0;

  friend bool operator==(const EventCookie&, const EventCookie&) = default;
};

}  // namespace Tarn

namespace Tarn::Binding {

/// What Held says of plain value records.
template <class T>
struct HeldValue {
  using Root = T;
  static constexpr bool kValue = true;
};

template <>
struct Held<Size2D> : HeldValue<Size2D> {};
template <>
struct Held<Point2D> : HeldValue<Point2D> {};
template <>
struct Held<DataType> : HeldValue<DataType> {};
template <>
struct Held<GenApiVersion> : HeldValue<GenApiVersion> {};
template <>
struct Held<NetworkConnection> : HeldValue<NetworkConnection> {};
template <>
struct Held<EventCookie> : HeldValue<EventCookie> {};

/// Converts by copy, both ways.
template <class T, PyTypeObject* (*Type)(), const char* Name>
struct CoreValueConverter {
  static T FromPython(PyObject* object) {
    RequireInstance(object, Type(), Name);
    return *Extract<T>(object);
  }
  static PyRef ToPython(const T& value) { return Bind(Type(), std::make_shared<T>(value)); }
};

namespace CoreNames {
inline constexpr char kSize2D[] = "tarn.Size2D";
inline constexpr char kPoint2D[] = "tarn.Point2D";
inline constexpr char kDataType[] = "tarn.DataType";
inline constexpr char kGenApiVersion[] = "tarn.GenApiVersion";
inline constexpr char kNetworkConnection[] = "tarn.NetworkConnection";
inline constexpr char kEventCookie[] = "tarn.EventCookie";
}  // namespace CoreNames

template <>
struct Converter<Size2D> : CoreValueConverter<Size2D, &tarn::TypeObject__Size2D__, CoreNames::kSize2D> {};
template <>
struct Converter<Point2D> : CoreValueConverter<Point2D, &tarn::TypeObject__Point2D__, CoreNames::kPoint2D> {};
template <>
struct Converter<DataType>
    : CoreValueConverter<DataType, &tarn::TypeObject__DataType__, CoreNames::kDataType> {};
template <>
struct Converter<GenApiVersion>
    : CoreValueConverter<GenApiVersion, &tarn::TypeObject__GenApiVersion__, CoreNames::kGenApiVersion> {};
template <>
struct Converter<NetworkConnection>
    : CoreValueConverter<NetworkConnection, &tarn::TypeObject__NetworkConnection__,
                         CoreNames::kNetworkConnection> {};
template <>
struct Converter<EventCookie>
    : CoreValueConverter<EventCookie, &tarn::TypeObject__EventCookie__, CoreNames::kEventCookie> {};

/// Images are shared, not copied. All image types derive from tarn.Image.
template <>
struct Converter<std::shared_ptr<Image>> {
  static std::shared_ptr<Image> FromPython(PyObject* object) {
    RequireInstance(object, tarn::TypeObject__Image__(), "tarn.Image");
    return Extract<Image>(object);
  }
  static PyRef ToPython(const std::shared_ptr<Image>& image) {
    return Bind(tarn::TypeObject__Image__(), image);
  }
};

}  // namespace Tarn::Binding
