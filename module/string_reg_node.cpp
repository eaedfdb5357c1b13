#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "gevserver/nodes/register_nodes.h"
#include "module/register_node_members.h"

namespace _tarn::gevserver {

using namespace Tarn::Binding;
using Native = Tarn::GevServer::StringRegNode;

namespace {

using NewNode = std::shared_ptr<Native>;

NewNode CreateWithAll(const std::string& name, std::int32_t name_space, std::int64_t address,
                      std::int64_t length) {
  return Native::Create(name, length, name_space, address);
}

NewNode CreateWithSpace(const std::string& name, std::int32_t name_space, std::int64_t length) {
  return Native::Create(name, length, name_space);
}

NewNode CreateWithAddress(const std::string& name, std::int64_t address, std::int64_t length) {
  return Native::Create(name, length, std::nullopt, address);
}

NewNode CreateWithLength(const std::string& name, std::int64_t length) {
  return Native::Create(name, length);
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
  AddRegisterMembers<Native>(type);
  type.ReadWrite<&Native::Value, &Native::SetValue>(
      "value", "Gets or sets the value of this node.",
      "A text that is longer than the register is refused. Possible in every tarn.gevserver.State.");
}

}  // namespace _tarn::gevserver
