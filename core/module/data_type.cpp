#include <cstdint>

#include "binding/type_builder.h"
#include "core/module/type_def.h"
#include "core/module/value_protocol.h"

namespace tarn {
namespace {

PyRef NewDataType(NewType type, std::uint32_t descriptor) {
  return Construct(type.type, std::make_shared<Tarn::DataType>(descriptor));
}

const char* DataTypeFormat() { return "DataType(0x%03X)"; }

struct ReadyMade {
  const char* name;
  Tarn::DataType type;
};

constexpr ReadyMade kReadyMade[] = {
    {"Int8BppUnsigned", Tarn::DataTypes::kInt8BppUnsigned},
    {"Int8BppSigned", Tarn::DataTypes::kInt8BppSigned},
    {"Int10BppUnsigned", Tarn::DataTypes::kInt10BppUnsigned},
    {"Int12BppUnsigned", Tarn::DataTypes::kInt12BppUnsigned},
    {"Int14BppUnsigned", Tarn::DataTypes::kInt14BppUnsigned},
    {"Int16BppUnsigned", Tarn::DataTypes::kInt16BppUnsigned},
    {"Int16BppSigned", Tarn::DataTypes::kInt16BppSigned},
    {"Int32BppUnsigned", Tarn::DataTypes::kInt32BppUnsigned},
    {"Int32BppSigned", Tarn::DataTypes::kInt32BppSigned},
    {"Float", Tarn::DataTypes::kFloat},
    {"Double", Tarn::DataTypes::kDouble},
};

}  // namespace

template <>
void TypeDef<DataType>::Init() {
  TypeDefinition& type =
      TypeBuilder(
          Get(), "tarn.DataType", "What one sample of an image is.",
          "The low byte of the data type word is the number of bits per sample; 0x100 marks signed, 0x200 "
          "floating point samples, 0x800 is a further flag. Immutable.")
          .Constructor<Signature<&NewDataType, "descriptor">>(
              {{.summary = "Instantiates a DataType object.",
                .params = {{"descriptor", "int", "The 32-bit data type word."}}}})
          .ReadOnly<&Tarn::DataType::Descriptor>("descriptor", "Gets the data type word.")
          .ReadOnly<&Tarn::DataType::BitsPerPixel>("bits_per_pixel", "Gets the number of bits per sample.")
          .ReadOnly<&Tarn::DataType::BytesPerPixel>("bytes_per_pixel",
                                                    "Gets the number of whole bytes that hold one sample.")
          .ReadOnly<&Tarn::DataType::IsSigned>("is_signed", "Gets whether samples are signed.")
          .ReadOnly<&Tarn::DataType::IsFloat>("is_float", "Gets whether samples are floating-point numbers.")
          .Definition();
  type.compare = &Compare<Tarn::DataType, &TypeObject__DataType__>;
  type.hash = &Hash<Tarn::DataType>;
  type.represent = &Represent<Tarn::DataType, &DataTypeFormat>;
}

void AddDataTypes(PyTypeObject* type) {
  for (const ReadyMade& each : kReadyMade) {
    Checked(PyObject_SetAttrString(reinterpret_cast<PyObject*>(type), each.name, ToPython(each.type).Get()));
  }
}

}  // namespace tarn
