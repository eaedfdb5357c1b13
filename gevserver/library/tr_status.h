/// The failure codes that the libraries produce: a name and a line of meaning for each.
///
/// The kind in brackets is what the object model makes of the code: (argument) invalid argument, (range) out
/// of range, (domain) domain error, (overflow) overflow error, (memory) allocation failure, (other) an
/// exception that carries the code.
#ifndef TARN_GEVSERVER_LIBRARY_TR_STATUS_H
#define TARN_GEVSERVER_LIBRARY_TR_STATUS_H

#include "gevserver/library/tr_types.h"

/// 0x80000000 plus a small number, written without a cast so that C and C++ both take it.
#define TR_FAILURE(number) (INT32_MIN + (number))

enum {
  TR_OK = 0,
};

#define TR_E_FAILED TR_FAILURE(0x01)            ///< (other) no more precise code fits
#define TR_E_INVALID_ARGUMENT TR_FAILURE(0x02)  ///< (argument) an argument makes no sense
#define TR_E_INVALID_HANDLE TR_FAILURE(0x03)  ///< (other) null, stale, or a handle of another kind of object
#define TR_E_INTERNAL TR_FAILURE(0x04)        ///< (other) a bug in the library, or a failure without a kind
#define TR_E_NO_MEMORY TR_FAILURE(0x05)       ///< (memory) out of memory
#define TR_E_OUT_OF_RANGE TR_FAILURE(0x06)    ///< (range) a value lies outside its limits
#define TR_E_WRONG_STATE TR_FAILURE(0x07)     ///< (domain) not possible in the server's present state
#define TR_E_NOT_FOUND TR_FAILURE(0x08)       ///< (range) no such node, entry, index or name
#define TR_E_BUSY TR_FAILURE(0x0B)            ///< (other) cannot be done just now, try again
#define TR_E_SYSTEM TR_FAILURE(0x0C)  ///< (other) the operating system refused; the text names the reason
#define TR_E_BUFFER_TOO_SMALL TR_FAILURE(0x0D)  ///< (range) a text does not fit the caller's buffer
#define TR_E_ACCESS TR_FAILURE(0x12)  ///< (domain) the node is not readable, or not writable, at present
#define TR_E_NOT_SUPPORTED TR_FAILURE(0x13)  ///< (domain) nodes of this kind have no such item
#define TR_E_NO_VALUE TR_FAILURE(0x16)   ///< (domain) the value cannot be computed (division by zero, ...)
#define TR_E_NO_STREAM TR_FAILURE(0x18)  ///< (domain) the server has no stream, or nobody receives it
#define TR_E_EXISTS TR_FAILURE(0x22)     ///< (argument) there is one already
#define TR_E_INCREMENT TR_FAILURE(0x23)  ///< (argument) a value is off its increment
#define TR_E_FORMULA TR_FAILURE(0x24)    ///< (argument) a formula is malformed or names an unknown variable
#define TR_E_TEXT TR_FAILURE(0x25)       ///< (argument) a text cannot be read as a value, or is no UTF-8
#define TR_E_NAME TR_FAILURE(0x26)       ///< (argument) a name that GenApi does not allow
#define TR_E_CYCLE TR_FAILURE(0x28)      ///< (argument) a link would close a circle
#define TR_E_ADDRESS TR_FAILURE(0x29)    ///< (argument) a register address is taken, reserved or misaligned
#define TR_E_OVERFLOW TR_FAILURE(0x2B)   ///< (overflow) a number does not fit

#endif
