#include <optional>

#include "binding/type_builder.h"
#include "core/module/type_def.h"
#include "core/module/value_protocol.h"

namespace tarn {
namespace {

PyRef NewSize(NewType type, std::optional<double> width, std::optional<double> height) {
  return Construct(type.type,
                   std::make_shared<Tarn::Size2D>(Tarn::Size2D{width.value_or(0), height.value_or(0)}));
}

PyRef NewPoint(NewType type, std::optional<double> x, std::optional<double> y) {
  return Construct(type.type, std::make_shared<Tarn::Point2D>(Tarn::Point2D{x.value_or(0), y.value_or(0)}));
}

double Width(const Tarn::Size2D& size) { return size.width; }
double Height(const Tarn::Size2D& size) { return size.height; }
void SetWidth(Tarn::Size2D& size, double width) { size.width = width; }
void SetHeight(Tarn::Size2D& size, double height) { size.height = height; }
double X(const Tarn::Point2D& point) { return point.x; }
double Y(const Tarn::Point2D& point) { return point.y; }
void SetX(Tarn::Point2D& point, double x) { point.x = x; }
void SetY(Tarn::Point2D& point, double y) { point.y = y; }

const char* SizeFormat() { return "Size2D(width=%r, height=%r)"; }
const char* PointFormat() { return "Point2D(x=%r, y=%r)"; }

}  // namespace

template <>
void TypeDef<Size2D>::Init() {
  TypeDefinition& type = TypeBuilder(Get(), "tarn.Size2D", "A size in pixels, fractions allowed.",
                                     "Iterates as (width, height).")
                             .Constructor<Signature<&NewSize, "width", "height">>(
                                 {{.summary = "Instantiates a Size2D object.",
                                   .params = {{"width", "float", "Width in pixels.", "0.0"},
                                              {"height", "float", "Height in pixels.", "0.0"}}}})
                             .ReadWrite<&Width, &SetWidth>("width", "Gets or sets the width in pixels.")
                             .ReadWrite<&Height, &SetHeight>("height", "Gets or sets the height in pixels.")
                             .Definition();
  type.compare = &Compare<Tarn::Size2D, &TypeObject__Size2D__>;
  type.iterate = &Iterate<Tarn::Size2D>;
  type.represent = &Represent<Tarn::Size2D, &SizeFormat>;
}

template <>
void TypeDef<Point2D>::Init() {
  TypeDefinition& type =
      TypeBuilder(Get(), "tarn.Point2D", "A position in pixels, fractions allowed.", "Iterates as (x, y).")
          .Constructor<Signature<&NewPoint, "x", "y">>(
              {{.summary = "Instantiates a Point2D object.",
                .params = {{"x", "float", "Distance from the left in pixels.", "0.0"},
                           {"y", "float", "Distance from the top in pixels.", "0.0"}}}})
          .ReadWrite<&X, &SetX>("x", "Gets or sets the distance from the left in pixels.")
          .ReadWrite<&Y, &SetY>("y", "Gets or sets the distance from the top in pixels.")
          .Definition();
  type.compare = &Compare<Tarn::Point2D, &TypeObject__Point2D__>;
  type.iterate = &Iterate<Tarn::Point2D>;
  type.represent = &Represent<Tarn::Point2D, &PointFormat>;
}

}  // namespace tarn
