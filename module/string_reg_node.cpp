#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "gevserver/nodes/register_nodes.h"
#include "module/register_node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;
using StringReg = Tarn::GevServer::StringRegNode;

namespace {

using NewStringReg = std::shared_ptr<StringReg>;

NewStringReg CreateWithAll(const std::string& name, std::int32_t name_space, std::int64_t address,
                           std::int64_t length) {
  return StringReg::Create(name, length, name_space, address);
}

NewStringReg CreateWithSpace(const std::string& name, std::int32_t name_space, std::int64_t length) {
  return StringReg::Create(name, length, name_space);
}

NewStringReg CreateWithAddress(const std::string& name, std::int64_t address, std::int64_t length) {
  return StringReg::Create(name, length, std::nullopt, address);
}

NewStringReg CreateWithLength(const std::string& name, std::int64_t length) {
  return StringReg::Create(name, length);
}

CallDoc Form(std::vector<ParamDoc> params) {
  params.push_back({"length", "int", "Length of the string in bytes. Must be a multiple of four."});
  return CreateDoc("tarn.gevserver.StringRegNode", std::move(params),
                   "The node needs at least the name and length to be created. In that case, "
                   "tarn.gevserver.NameSpace.Custom and auto address will be applied.");
}

}  // namespace

template <>
void TypeDef<StringRegNode>::Init() {
  TypeBuilder type(Get(), "tarn.gevserver.StringRegNode", "Represents a text register.");
  type.Base(TypeObject__StringNode__());
  type.Static<Signature<&CreateWithAll, "name", "nameSpace", "address", "length">,
              Signature<&CreateWithSpace, "name", "nameSpace", "length">,
              Signature<&CreateWithAddress, "name", "address", "length">,
              Signature<&CreateWithLength, "name", "length">>(
      "create", {Form({NameSpaceParam(), AddressParam("")}), Form({NameSpaceParam()}),
                 Form({AddressParam("")}), Form({})});
  AddRegisterMembers<StringReg>(type);
  type.ReadWrite<&StringReg::Value, &StringReg::SetValue>(
      "value", "Gets or sets the value of this node.",
      "A text that is longer than the register is refused. Possible in every tarn.gevserver.State.");
}

}  // namespace _tarn::gevserver
