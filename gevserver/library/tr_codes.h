/// Numeric codes that cross the C line. The values are part of the contract.
#ifndef TARN_GEVSERVER_LIBRARY_TR_CODES_H
#define TARN_GEVSERVER_LIBRARY_TR_CODES_H

/// Server-wide information.
enum GSInfo {
  GS_INFO_XML_VERSION_MAJOR = 0,
  GS_INFO_XML_VERSION_MINOR = 1,
  GS_INFO_XML_VERSION_SUB_MINOR = 2,
  GS_INFO_SERVER_USER_VERSION = 3,
  GS_INFO_ACQUISITION_ACTIVE = 4,
};

/// Per-node information. The comment names the type: I integer, F float, S string, N node.
enum GSNodeInfo {
  GSN_INFO_NAME = 0,                  ///< S, read only: full name, with namespace prefix
  GSN_INFO_DISPLAY_NAME = 1,          ///< S: the name only when none was set
  GSN_INFO_ACCESS_MODE = 2,           ///< I, GSAccessMode: current mode; set on registers only
  GSN_INFO_MAX = 3,                   ///< I F N
  GSN_INFO_MIN = 4,                   ///< I F N
  GSN_INFO_INCREMENT = 5,             ///< I F N
  GSN_INFO_NUM_ENUM_ENTRIES = 6,      ///< I, read only
  GSN_INFO_STREAMABLE = 7,            ///< I
  GSN_INFO_CACHING_MODE = 8,          ///< I, GSCacheMode; set on registers only
  GSN_INFO_TOOL_TIP = 9,              ///< S
  GSN_INFO_DESCRIPTION = 10,          ///< S
  GSN_INFO_VISIBILITY = 11,           ///< I, GSVisibility
  GSN_INFO_POLLING_TIME = 12,         ///< I, ms, 0 when not polled
  GSN_INFO_EVENT_ID = 13,             ///< I, 0 when there is none
  GSN_INFO_NAME_SPACE = 14,           ///< I, GSNameSpace, read only
  GSN_INFO_REGISTER_LENGTH = 15,      ///< I, bytes, read only
  GSN_INFO_REGISTER_ADDRESS = 16,     ///< I, read only: current address
  GSN_INFO_REPRESENTATION = 17,       ///< I, GSRepresentation
  GSN_INFO_VALUE = 18,                ///< I F S N: the value configuration, constant or node
  GSN_INFO_ON_VALUE = 19,             ///< I N: integer for true; commands: the integer that executes
  GSN_INFO_OFF_VALUE = 20,            ///< I: integer for false
  GSN_INFO_FORMULA = 21,              ///< S
  GSN_INFO_IMPOSED_ACCESS_MODE = 22,  ///< I: GSAccessMode, or -1 when none is imposed
  GSN_INFO_IS_IMPLEMENTED = 23,       ///< I read only (the present answer), N the deciding node
  GSN_INFO_IS_AVAILABLE = 24,         ///< I read only, N
  GSN_INFO_IS_LOCKED = 25,            ///< I read only, N
  GSN_INFO_ALIAS = 26,  ///< N; S read only: the alias' full name, empty when none; I: deprecated
  GSN_INFO_SIGN = 27,   ///< I, GSNumberSign
  GSN_INFO_UNIT = 28,   ///< S; I read only: whether the node is listed in a category, as a feature
  GSN_INFO_DISPLAY_PRECISION = 29,  ///< I
  GSN_INFO_LAST = 30,               ///< closes the range
  // What an item is as an integer, where its own type is another one. All codes lie inside the range.
  GSN_INFO_IS_DEPRECATED = GSN_INFO_ALIAS,
  GSN_INFO_IS_FEATURE = GSN_INFO_UNIT,
};

/// Which relations of a node a list call works on.
enum GSNodeList {
  GSN_LIST_CHILD = 0,        ///< category: its nodes; enumeration: its entries; swiss knife: its variables
  GSN_LIST_SELECTED = 1,     ///< nodes selected by this node
  GSN_LIST_INVALIDATOR = 2,  ///< nodes whose change invalidates this one
  GSN_LIST_ADDRESSES = 3,    ///< nodes whose values add to a register's address
};

enum GSDriverType { GS_DRIVER_AUTO = -1, GS_DRIVER_SOCKET = 0, GS_DRIVER_FILTER = 1 };

enum GSInitType { GS_INIT_FIXED_SIZE = 1, GS_INIT_DYNAMIC_SIZE = 2 };

enum GSServerEvent {
  GS_EVENT_CONNECTED = 0,
  GS_EVENT_DISCONNECTED = 1,
  GS_EVENT_ACQUISITION_START = 2,
  GS_EVENT_ACQUISITION_STOP = 3,
  GS_EVENT_IMAGE_SNAPPED = 4,
};

enum GSNodeEvent { GSN_EVENT_READ = 0, GSN_EVENT_WRITE = 1 };

enum GSNodeType {
  GSN_TYPE_INVALID = -1,
  GSN_TYPE_UNKNOWN = 0,
  GSN_TYPE_CATEGORY = 1,
  GSN_TYPE_INT_REG = 2,
  GSN_TYPE_STRING_REG = 3,
  GSN_TYPE_INTEGER = 4,
  GSN_TYPE_BOOLEAN = 5,
  GSN_TYPE_COMMAND = 6,
  GSN_TYPE_ENUMERATION = 7,
  GSN_TYPE_ENUM_ENTRY = 8,
  GSN_TYPE_INT_SWISS_KNIFE = 9,
  GSN_TYPE_STRING = 10,
  GSN_TYPE_FLOAT = 11,
  GSN_TYPE_FLOAT_REG = 12,
};

enum GSNameSpace { GS_NAMESPACE_STANDARD = 0, GS_NAMESPACE_CUSTOM = 1, GS_NAMESPACE_PRIVATE = 2 };

enum GSNumberSign { GS_UNSIGNED = 0, GS_SIGNED = 1 };

enum GSPayloadType { GS_PAYLOAD_IMAGE = 1, GS_PAYLOAD_FILE = 2, GS_PAYLOAD_CHUNK_IMAGE = 0x4001 };

enum GSAccessMode {
  GS_ACCESS_NOT_IMPLEMENTED = 0,
  GS_ACCESS_NOT_AVAILABLE = 1,
  GS_ACCESS_READ_ONLY = 2,
  GS_ACCESS_WRITE_ONLY = 3,
  GS_ACCESS_READ_WRITE = 4,
};

enum GSCacheMode { GS_CACHE_NO_CACHE = 0, GS_CACHE_WRITE_THROUGH = 1, GS_CACHE_WRITE_AROUND = 2 };

enum GSVisibility {
  GS_VISIBILITY_BEGINNER = 0,
  GS_VISIBILITY_EXPERT = 1,
  GS_VISIBILITY_GURU = 2,
  GS_VISIBILITY_INVISIBLE = 3,
};

enum GSRepresentation {
  GS_REPRESENTATION_LINEAR = 0,
  GS_REPRESENTATION_LOGARITHMIC = 1,
  GS_REPRESENTATION_BOOLEAN = 2,
  GS_REPRESENTATION_PURE_NUMBER = 3,
  GS_REPRESENTATION_HEX_NUMBER = 4,
  GS_REPRESENTATION_IPV4_ADDRESS = 5,
  GS_REPRESENTATION_MAC_ADDRESS = 6,
};

/// Bits of a data type word: what one sample of an image plane is.
enum TRDataType {
  TR_DATATYPE_BITS_MASK = 0x0FF,  ///< bits per sample
  TR_DATATYPE_SIGNED = 0x100,
  TR_DATATYPE_FLOAT = 0x200,
  TR_DATATYPE_FLAG = 0x800,  ///< a further flag; such types have no stream format
};

#endif
