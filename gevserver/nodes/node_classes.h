#pragma once

/// Every node class, with the type that its nodes have in the library and the call that creates one.

#include "gevserver/library/tr_gev_server.h"
#include "gevserver/nodes/boolean_node.h"
#include "gevserver/nodes/category_node.h"
#include "gevserver/nodes/command_node.h"
#include "gevserver/nodes/enumeration_node.h"
#include "gevserver/nodes/float_node.h"
#include "gevserver/nodes/int_swiss_knife_node.h"
#include "gevserver/nodes/integer_node.h"
#include "gevserver/nodes/register_nodes.h"
#include "gevserver/nodes/string_node.h"

/// Nodes without a register.
#define TARN_PLAIN_NODES(T)                                                 \
  T(CategoryNode, GSN_TYPE_CATEGORY, CreateGSCategoryNode)                  \
  T(IntegerNode, GSN_TYPE_INTEGER, CreateGSIntegerNode)                     \
  T(BooleanNode, GSN_TYPE_BOOLEAN, CreateGSBooleanNode)                     \
  T(CommandNode, GSN_TYPE_COMMAND, CreateGSCommandNode)                     \
  T(EnumerationNode, GSN_TYPE_ENUMERATION, CreateGSEnumerationNode)         \
  T(EnumEntryNode, GSN_TYPE_ENUM_ENTRY, CreateGSEnumEntryNode)              \
  T(IntSwissKnifeNode, GSN_TYPE_INT_SWISS_KNIFE, CreateGSIntSwissKnifeNode) \
  T(StringNode, GSN_TYPE_STRING, CreateGSStringNodeEx)                      \
  T(FloatNode, GSN_TYPE_FLOAT, CreateGSFloatNode)

/// Registers of one length in bytes. Those of another length have the class that these derive from.
#define TARN_NUMBER_REGISTERS(T)                                \
  T(Int32RegNode, GSN_TYPE_INT_REG, 4, CreateGSInt32Node)       \
  T(Int64RegNode, GSN_TYPE_INT_REG, 8, CreateGSInt64Node)       \
  T(Float32RegNode, GSN_TYPE_FLOAT_REG, 4, CreateGSFloat32Node) \
  T(Float64RegNode, GSN_TYPE_FLOAT_REG, 8, CreateGSFloat64Node)
