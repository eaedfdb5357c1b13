/// libTRGevServer: a GigE Vision device in software.
///
/// Calling order: create a server; register its events; create, configure and add nodes; GSStartIPv4; send
/// images; GSStop; ReleaseObject. Strings are UTF-8. Texts come by two calls: with a null buffer `*size`
/// receives the bytes needed including the terminating zero; with a buffer `*size` is its size in bytes on
/// entry and what was written on return. Outputs are written on success only. IPv4 addresses are numbers in
/// host order.
///
/// Threads: any thread, at the same time on one object. No call but GSStop waits for a thread of the library.
/// Callbacks come from the library's threads, or from a caller inside GSSendImageCB; no lock is held
/// meanwhile, and they may call anything here.
#ifndef TARN_GEVSERVER_LIBRARY_TR_GEV_SERVER_H
#define TARN_GEVSERVER_LIBRARY_TR_GEV_SERVER_H

#include "gevserver/library/tr_codes.h"
#include "gevserver/library/tr_status.h"
#include "gevserver/library/tr_types.h"

TR_BEGIN_C

typedef void (*GSCallback)(void* context);

/// Creation record of a streaming server.
typedef struct GSCreationRecord {
  int32_t init_type;              ///< GSInitType
  uint32_t pixel_format;          ///< PFNC value
  const char* pixel_format_name;  ///< PFNC name of that value
  int32_t width;                  ///< pixels, at least 1
  int32_t height;                 ///< lines, at least 1
  uint8_t reserved[8];            ///< zero
  int32_t max_width;              ///< dynamic size only: the width again
  int32_t max_height;             ///< dynamic size only: the height again
} GSCreationRecord;

/// A server without a stream, holding the standard nodes; null on failure (see GSGetLastErrorString).
TR_API TR_HANDLE CreateGevServer(void);

/// A server with a stream; null on failure.
/// \param driver_type  GSDriverType
TR_API TR_HANDLE CreateGevServer2(int32_t driver_type, const GSCreationRecord* record);

/// Binds the control and stream sockets to `address` and starts answering clients.
/// Fails with TR_E_WRONG_STATE when running, TR_E_SYSTEM when a socket cannot be bound, and with the code of
/// the first node that cannot be published.
TR_API TR_STATUS GSStartIPv4(TR_HANDLE server, uint32_t address);

/// Stops and waits for the library's threads of this server, except when called from one of them. Idempotent.
/// Outstanding release callbacks have run when it returns.
TR_API TR_STATUS GSStop(TR_HANDLE server);

TR_API TR_STATUS GSDriverType(TR_HANDLE server, int32_t* driver_type);
TR_API TR_STATUS GSGetLocalIPv4(TR_HANDLE server, uint32_t* address, uint16_t* port);
TR_API TR_STATUS GSGetRemoteIPv4(TR_HANDLE server, uint32_t* address, uint16_t* port);
TR_API TR_STATUS GSGetInfoAsInteger(TR_HANDLE server, int32_t info, int64_t* value);
TR_API TR_STATUS GSSetInfoAsInteger(TR_HANDLE server, int32_t info, int64_t value);
TR_API TR_STATUS GSGetInfoAsString(TR_HANDLE server, int32_t info, char* text, size_t* size);
TR_API TR_STATUS GSSetInfoAsString(TR_HANDLE server, int32_t info, const char* text);

/// `callback(context)` at each occurrence of the GSServerEvent, until the server's last reference goes and
/// its threads have ended: `context` must be something that may be used after that.
TR_API TR_STATUS GSRegisterEvent(TR_HANDLE server, int32_t event, GSCallback callback, void* context,
                                 uint64_t* cookie);

TR_API TR_STATUS GSAddNode(TR_HANDLE server, TR_HANDLE node);
TR_API TR_STATUS GSRemoveNode(TR_HANDLE server, TR_HANDLE node);

/// Node by its name without namespace; the handle carries a reference that the caller owns.
TR_API TR_STATUS GSGetNode(TR_HANDLE server, const char* name, TR_HANDLE* node);
TR_API TR_STATUS GSNodeCount(TR_HANDLE server, int64_t* count);
/// Name, without namespace, of the node at `index`; two-call protocol.
TR_API TR_STATUS GSNodeList(TR_HANDLE server, int64_t index, char* name, size_t* size);

/// Sends an image; its memory is free for use on return. Only while no resend buffers are configured.
TR_API TR_STATUS GSSendImage(TR_HANDLE server, TR_HANDLE image);

/// Sends an image and calls `released(context)` once when its memory is needed no more: before the call
/// returns without resend buffers, else when the image leaves the resend store. On failure it is not called.
TR_API TR_STATUS GSSendImageCB(TR_HANDLE server, TR_HANDLE image, GSCallback released, void* context);

/// Number of images kept for packet resend, 0 (the default) to 1024. Set only while the server is not
/// started.
TR_API TR_STATUS GSGetPacketResendBuffers(TR_HANDLE server, int32_t* count);
TR_API TR_STATUS GSSetPacketResendBuffers(TR_HANDLE server, int32_t count);

/// Text of this thread's last failure; two-call protocol.
TR_API TR_STATUS GSGetLastErrorString(char* text, size_t* size);

/// Node creation: `name` without namespace prefix, `name_space` a GSNameSpace. Null on failure.
TR_API TR_HANDLE CreateGSCategoryNode(const char* name, int32_t name_space);
TR_API TR_HANDLE CreateGSIntegerNode(const char* name, int32_t name_space);
TR_API TR_HANDLE CreateGSFloatNode(const char* name, int32_t name_space);
TR_API TR_HANDLE CreateGSBooleanNode(const char* name, int32_t name_space);
TR_API TR_HANDLE CreateGSCommandNode(const char* name, int32_t name_space);
TR_API TR_HANDLE CreateGSEnumerationNode(const char* name, int32_t name_space);
TR_API TR_HANDLE CreateGSEnumEntryNode(const char* name, int32_t name_space);
TR_API TR_HANDLE CreateGSIntSwissKnifeNode(const char* name, int32_t name_space);
TR_API TR_HANDLE CreateGSStringNodeEx(const char* name, int32_t name_space);

/// Register nodes: `address` in bytes, -1 to have one assigned when the node is added to a server.
TR_API TR_HANDLE CreateGSInt32Node(const char* name, int32_t name_space, int64_t address);
TR_API TR_HANDLE CreateGSInt64Node(const char* name, int32_t name_space, int64_t address);
TR_API TR_HANDLE CreateGSFloat32Node(const char* name, int32_t name_space, int64_t address);
TR_API TR_HANDLE CreateGSFloat64Node(const char* name, int32_t name_space, int64_t address);
/// \param length  bytes, a multiple of 4, at least 4
TR_API TR_HANDLE CreateGSStringRegNode(const char* name, int32_t name_space, int64_t address, int64_t length);

TR_API TR_STATUS GSNType(TR_HANDLE node, int32_t* type);

/// One item of a node's description (GSNodeInfo). TR_E_NOT_SUPPORTED when the kind has no such item of that
/// type, TR_E_WRONG_STATE for a change while the node's server is started.
TR_API TR_STATUS GSNGetInfoAsInteger(TR_HANDLE node, int32_t info, int64_t* value);
TR_API TR_STATUS GSNSetInfoAsInteger(TR_HANDLE node, int32_t info, int64_t value);
TR_API TR_STATUS GSNGetInfoAsFloat(TR_HANDLE node, int32_t info, double* value);
TR_API TR_STATUS GSNSetInfoAsFloat(TR_HANDLE node, int32_t info, double value);
TR_API TR_STATUS GSNGetInfoAsString(TR_HANDLE node, int32_t info, char* text, size_t* size);
TR_API TR_STATUS GSNSetInfoAsString(TR_HANDLE node, int32_t info, const char* text);
/// `*related` is null when no node is set; else it carries a reference that the caller owns.
TR_API TR_STATUS GSNGetInfoAsNode(TR_HANDLE node, int32_t info, TR_HANDLE* related);
TR_API TR_STATUS GSNSetInfoAsNode(TR_HANDLE node, int32_t info, TR_HANDLE related);

/// The node's current value. Setting is possible in every state; limits and increment are checked.
TR_API TR_STATUS GSNGetAsInteger(TR_HANDLE node, int64_t* value);
TR_API TR_STATUS GSNSetAsInteger(TR_HANDLE node, int64_t value);
TR_API TR_STATUS GSNGetAsFloat(TR_HANDLE node, double* value);
TR_API TR_STATUS GSNSetAsFloat(TR_HANDLE node, double value);
TR_API TR_STATUS GSNGetAsBoolean(TR_HANDLE node, bool* value);
/// On a command, true executes it.
TR_API TR_STATUS GSNSetAsBoolean(TR_HANDLE node, bool value);
TR_API TR_STATUS GSNGetAsString(TR_HANDLE node, char* text, size_t* size);
TR_API TR_STATUS GSNSetAsString(TR_HANDLE node, const char* text);

TR_API TR_STATUS GSNListCount(TR_HANDLE node, int32_t list, int64_t* count);
/// The related node at `index`: its name in this relation (a swiss knife's variable name, else the name
/// without namespace; two-call protocol), and, when `related` is not null, its handle with a reference for
/// the caller.
TR_API TR_STATUS GSNListEx(TR_HANDLE node, int32_t list, int64_t index, char* name, size_t* size,
                           TR_HANDLE* related);
TR_API TR_STATUS GSNGetNode(TR_HANDLE node, int32_t list, const char* name, TR_HANDLE* related);
TR_API TR_STATUS GSNAddNode(TR_HANDLE node, int32_t list, TR_HANDLE related);
/// As GSNAddNode, placed in front of `before` in the list; `before` null: at the end.
TR_API TR_STATUS GSNAddNodeEx(TR_HANDLE node, int32_t list, TR_HANDLE related, TR_HANDLE before);
/// TR_E_NOT_FOUND when `related` is not in the list.
TR_API TR_STATUS GSNRemoveNode(TR_HANDLE node, int32_t list, TR_HANDLE related);

/// `callback(context)` at every access of a client to the node (GSNodeEvent): before a read is answered,
/// after a written value was stored. After GSNUnregisterEvent no new call starts; one may still be running,
/// so `context` must be something that may be used after that.
TR_API TR_STATUS GSNRegisterEventWithStatus(TR_HANDLE node, int32_t event, GSCallback callback, void* context,
                                            uint64_t* cookie);
TR_API TR_STATUS GSNUnregisterEvent(TR_HANDLE node, int32_t event, uint64_t cookie);
/// Whether the callback of a registration is called; at first it is. One that is not called costs clients nothing,
/// so who registers for all nodes, and seldom has anything to do, says so here. An extension of this library: who
/// uses it does without where it is missing.
/// TR_E_NOT_FOUND when there is no such registration.
TR_API TR_STATUS GSNSetEventActive(TR_HANDLE node, int32_t event, uint64_t cookie, bool active);

/// Whether GSSendImage and GSSendImageCB would find a place for an image now; they wait up to 5 ms for one and then
/// fail with TR_E_BUSY. Without a client that takes images there is a place. An extension of this library: who uses it
/// does without where it is missing.
TR_API TR_STATUS GSHasImagePlace(TR_HANDLE server, bool* has_place);

/// The machine's IPv4 interfaces at the moment of the call; null on failure.
TR_API TR_HANDLE CreateInterfaceList(void);
TR_API uint64_t ILCount(TR_HANDLE list);
TR_API TR_STATUS ILIPv4Address(TR_HANDLE list, uint64_t index, uint32_t* address);
TR_API TR_STATUS ILIPv4SubnetMask(TR_HANDLE list, uint64_t index, uint32_t* mask);

TR_END_C

#endif
