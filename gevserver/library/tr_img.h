/// libTRCImg: images as rectangles of samples in planes.
///
/// Threads: any thread; an image's description never changes after creation, its samples are the users'
/// affair.
#ifndef TARN_GEVSERVER_LIBRARY_TR_IMG_H
#define TARN_GEVSERVER_LIBRARY_TR_IMG_H

#include "gevserver/library/tr_types.h"

TR_BEGIN_C

/// One row of the virtual pixel access table: the sample at (x, y) of a plane lies at
/// `base + table[x].x_offset + table[y].y_offset`. The table has max(width, height) rows.
typedef struct TRVpaEntry {
  ptrdiff_t x_offset;
  ptrdiff_t y_offset;
} TRVpaEntry;

/// Where one plane lies in memory.
typedef struct TRPlaneLayout {
  void* base;             ///< sample (0, 0)
  ptrdiff_t x_increment;  ///< bytes from a sample to its right neighbour; may be negative
  ptrdiff_t y_increment;  ///< bytes from a sample to the one below; may be negative
} TRPlaneLayout;

/// Called once when the last reference to an image over caller memory goes, on that thread.
typedef void (*TRImageReleased)(void* context);

/// New zero-filled image, samples interleaved (rows of pixels, planes innermost), rows without padding.
/// \param width,height,planes  at least 1;
/// \param data_type  see TRDataType, 1 to 64 bits
TR_API TR_STATUS CreateImage(int64_t width, int64_t height, int64_t planes, uint32_t data_type,
                             TR_HANDLE* image);

/// Image over caller memory, which stays valid until `released` is called (null: forever).
/// \param layouts  `planes` entries. On failure `released` is not called.
TR_API TR_STATUS CreateImageFromPointer(int64_t width, int64_t height, int64_t planes, uint32_t data_type,
                                        const TRPlaneLayout* layouts, TRImageReleased released, void* context,
                                        TR_HANDLE* image);

/// One image made of all planes of `count` images of equal size, in order; keeps them alive.
TR_API TR_STATUS CreateConcatenatedImage(const TR_HANDLE* images, int64_t count, TR_HANDLE* image);

/// The payload of an image in a packed pixel format: 8-bit samples in one plane, a row for each line, or all
/// in one row where lines end inside a byte. Owns its memory.
/// \param image         unsigned integers of 8 or 16 bits at any steps in memory, a plane for each sample of a
///                      pixel
/// \param pixel_format  PFNC value of a format whose name ends in `p`, `p32` or `Packed`
TR_API TR_STATUS CreatePackedImage(TR_HANDLE image, uint32_t pixel_format, TR_HANDLE* packed);

/// Size in pixels; number of planes; data type word of a plane. 0 for a bad handle or plane.
TR_API int64_t ImageWidth(TR_HANDLE image);
TR_API int64_t ImageHeight(TR_HANDLE image);
TR_API int64_t ImageDimension(TR_HANDLE image);
TR_API uint32_t ImageDatatype(TR_HANDLE image, int64_t plane);

/// Base address and increments in bytes of a plane. False for a bad handle or plane (all layouts here are
/// linear).
TR_API bool GetLinearAccess(TR_HANDLE image, int64_t plane, void** base, ptrdiff_t* x_increment,
                            ptrdiff_t* y_increment);

/// Base address and table of a plane, valid while the image lives. Made at the first call for an image.
TR_API TR_STATUS GetImageVPA(TR_HANDLE image, int64_t plane, void** base, const TRVpaEntry** table);

TR_END_C

#endif
