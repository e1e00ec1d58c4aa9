/*
 * velqora.h - the public interface of the Velqora demosaicing library.
 *
 * Valid C (C99 and later) and C++. Every function declared here is exported
 * from libvelqora.so under its plain, unmangled name. Status results are
 * signed 32-bit; nothing is logged or printed.
 *
 * Typical use:
 *     ProcessingHandle *h = NULL;
 *     vqpCreate(&h);
 *     uint64_t fmt = VQP_PIXEL_FORMAT_RGB8;
 *     vqpDemosaicSetConfig(h, &fmt);
 *     vqpDemosaicing(h, &in, VQP_METHOD_BILINEAR, &out);   // once per frame
 *     vqpRelease(&h);
 */
#ifndef VELQORA_H
#define VELQORA_H

#include <stdint.h>

#if defined(_WIN32)
#  if defined(VELQORA_BUILDING)
#    define VQP_API __declspec(dllexport)
#  elif defined(VELQORA_STATIC) /* linking the library's objects directly, not velqora.dll */
#    define VQP_API
#  else
#    define VQP_API __declspec(dllimport)
#  endif
#else
#  define VQP_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#  define VQP_EXTERN extern "C" VQP_API
#else
#  define VQP_EXTERN extern VQP_API
#endif

/* ---- Status codes --------------------------------------------------------------------------- */
#define VQP_OK                             0
#define VQP_ERR_NULL_ARGUMENT              (-111)
#define VQP_ERR_OUT_OF_MEMORY              (-117)
#define VQP_ERR_BAD_DIMENSIONS             (-104)
#define VQP_ERR_UNSUPPORTED_INPUT_FORMAT   (-102)
#define VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT  (-107)

/* ---- Pixel-format codes (PFNC) -------------------------------------------------------------- */
/* Output formats accepted by vqpDemosaicSetConfig. */
#define VQP_PIXEL_FORMAT_RGB8             0x02180014u
#define VQP_PIXEL_FORMAT_BGR8             0x02180015u /* the default */
#define VQP_PIXEL_FORMAT_RGBA8            0x02200016u
#define VQP_PIXEL_FORMAT_BGRA8            0x02200017u
#define VQP_PIXEL_FORMAT_RGB8_PLANAR      0x02180021u /* planes R, G, B */
#define VQP_PIXEL_FORMAT_BGR8_PLANAR      0x02180025u /* planes B, G, R */
#define VQP_PIXEL_FORMAT_MONO8            0x01080001u

/* Input formats accepted by vqpDemosaicing. */
#define VQP_PIXEL_FORMAT_MONO10           0x01100003u
#define VQP_PIXEL_FORMAT_MONO12           0x01100005u
#define VQP_PIXEL_FORMAT_MONO14           0x01100025u
#define VQP_PIXEL_FORMAT_MONO16           0x01100007u
#define VQP_PIXEL_FORMAT_MONO10_PACKED    0x010C0004u
#define VQP_PIXEL_FORMAT_MONO12_PACKED    0x010C0006u
#define VQP_PIXEL_FORMAT_BAYER_GR8        0x01080008u
#define VQP_PIXEL_FORMAT_BAYER_RG8        0x01080009u
#define VQP_PIXEL_FORMAT_BAYER_GB8        0x0108000Au
#define VQP_PIXEL_FORMAT_BAYER_BG8        0x0108000Bu
#define VQP_PIXEL_FORMAT_BAYER_GR10       0x0110000Cu
#define VQP_PIXEL_FORMAT_BAYER_RG10       0x0110000Du
#define VQP_PIXEL_FORMAT_BAYER_GB10       0x0110000Eu
#define VQP_PIXEL_FORMAT_BAYER_BG10       0x0110000Fu
#define VQP_PIXEL_FORMAT_BAYER_GR12       0x01100010u
#define VQP_PIXEL_FORMAT_BAYER_RG12       0x01100011u
#define VQP_PIXEL_FORMAT_BAYER_GB12       0x01100012u
#define VQP_PIXEL_FORMAT_BAYER_BG12       0x01100013u
#define VQP_PIXEL_FORMAT_BAYER_GR16       0x0110002Eu
#define VQP_PIXEL_FORMAT_BAYER_RG16       0x0110002Fu
#define VQP_PIXEL_FORMAT_BAYER_GB16       0x01100030u
#define VQP_PIXEL_FORMAT_BAYER_BG16       0x01100031u
#define VQP_PIXEL_FORMAT_BAYER_GR10_PACKED 0x010C0026u
#define VQP_PIXEL_FORMAT_BAYER_RG10_PACKED 0x010C0027u
#define VQP_PIXEL_FORMAT_BAYER_GB10_PACKED 0x010C0028u
#define VQP_PIXEL_FORMAT_BAYER_BG10_PACKED 0x010C0029u
#define VQP_PIXEL_FORMAT_BAYER_GR12_PACKED 0x010C002Au
#define VQP_PIXEL_FORMAT_BAYER_RG12_PACKED 0x010C002Bu
#define VQP_PIXEL_FORMAT_BAYER_GB12_PACKED 0x010C002Cu
#define VQP_PIXEL_FORMAT_BAYER_BG12_PACKED 0x010C002Du

/* ---- Demosaic methods ----------------------------------------------------------------------- */
/* Any other value is accepted by vqpDemosaicing and writes no pixels. */
#define VQP_METHOD_NEAREST   0u
#define VQP_METHOD_BILINEAR  1u
#define VQP_METHOD_EDGE      2u

#ifdef __cplusplus
extern "C" {
#endif

/* One image. For an input frame all five fields are read; for an output frame the library reads
 * only `data` (rows packed, no padding) and on success writes height, width and pixelFormat. */
typedef struct ImageFrame {
    int32_t height;
    int32_t width;
    uint32_t pixelFormat;
    void *data;
    int32_t stride; /* bytes from one row to the next; input frames only */
} ImageFrame;

/* Grow-only heap block owned by a handle. */
typedef struct ScratchBuffer {
    uint8_t *data;
    int32_t capacity;
} ScratchBuffer;

/* Opaque; created by vqpCreate, released by vqpRelease. */
typedef struct ProcessingHandle ProcessingHandle;

#ifdef __cplusplus
}
#endif

/* ---- Handle and configuration --------------------------------------------------------------- */
VQP_EXTERN int32_t vqpCreate(ProcessingHandle **handleOut);
/* Resets a handle to its defaults. Does not free a scratch block the handle holds: it is forgotten. */
VQP_EXTERN void vqpInit(ProcessingHandle *handle);
/* Frees the handle's scratch block, joins its worker threads, frees the handle and sets *handlePtr to
 * null. -111 when handlePtr is null; 0 and nothing done when *handlePtr is already null. */
VQP_EXTERN int32_t vqpRelease(ProcessingHandle **handlePtr);
VQP_EXTERN int32_t vqpMemRealloc(ScratchBuffer *scratch, int32_t size);
VQP_EXTERN int32_t vqpDemosaicGetConfig(const ProcessingHandle *handle, uint64_t *configOut);
VQP_EXTERN int32_t vqpDemosaicSetConfig(ProcessingHandle *handle, const uint64_t *config);

/* ---- Entry point ---------------------------------------------------------------------------- */
/* Converts one frame to the configured output format.
 *
 * Buffers. Input: `height` rows, `stride` bytes apart; each row holds `width` samples of the format (one
 * byte, two bytes, or two samples in three bytes for the packed formats, whose rows are one run of
 * samples when the stride is width + width / 2). A stride below a row's bytes is the caller's error.
 * 8-bit input with a stride larger than the width is compacted in place inside the caller's buffer, which
 * must therefore also hold height x width bytes. 16-bit input may start at any address. Output:
 * height x width x 3 bytes (BGR8, RGB8, the planar formats as three planes of height x width), x 4
 * (BGRA8, RGBA8) or x 1 (Mono8); vqpOutputSize gives the count.
 *
 * Statuses, in this order: -111 null pointer; -104 a height, width or stride of 3 or less, or a 32-bit
 * height x width that is negative; -102 an input format not listed above; -117 when the scratch memory
 * cannot be had, which includes every frame whose scratch block (height x width + width + 64 bytes for
 * deep and packed input, width + 64 otherwise, counted in 64 bits) exceeds 2147483647 bytes: such frames
 * return -117 before anything is reduced or written; -107 an output format that is not accepted. Plane
 * and output offsets are counted in 64 bits. Packed input is never read past the last byte that holds a
 * sample (a trailing half pair has two bytes). */
VQP_EXTERN int32_t vqpDemosaicing(ProcessingHandle *handle, const ImageFrame *in, uint32_t method,
                                  ImageFrame *out);

/* ---- Parallel entry points ------------------------------------------------------------------ */
/* The same conversions split into horizontal bands over `threads` threads (0: one per hardware
 * thread). The output is byte for byte that of the single-threaded entry point, for every thread
 * count. The threads belong to the handle: started on first use, reused by later calls on it, joined
 * by vqpRelease (vqpInit leaves them with the handle). One handle still serves one call at a time.
 * Frames below 32768 pixels, and methods whose kernels cannot be split, run on the calling thread.
 *
 * vqpDemosaicingParallel: the checks, status codes and their order of vqpDemosaicing. */
VQP_EXTERN int32_t vqpDemosaicingParallel(ProcessingHandle *handle, const ImageFrame *in, uint32_t method,
                                          ImageFrame *out, uint32_t threads);
/* The 16-bit bilinear entry points with a handle: -111 for a null pointer (handle included), -104 for
 * a height or width of 3 or less; -117 when the handle's scratch cannot grow for the threads' rows. */
VQP_EXTERN int32_t vqpDemosaicingBilinearU16Parallel(ProcessingHandle *handle, const uint16_t *src, uint32_t height,
                                                     uint32_t width, uint16_t *dst, uint32_t threads);
VQP_EXTERN int32_t vqpDemosaicingBilinearU16PParallel(ProcessingHandle *handle, const uint16_t *src,
                                                      uint32_t height, uint32_t width, uint16_t *planeB,
                                                      uint16_t *planeG, uint16_t *planeR, uint32_t threads);
/* The 16-bit edge-directed drivers with the phase as an argument: `phase` is any unpacked Bayer
 * pixel-format code of that phase (VQP_PIXEL_FORMAT_BAYER_RG8, _RG10, _RG12, _RG16 and the same for
 * GR, GB, BG); the output equals demosaicingEdge<phase>U16 (clamped at 4095 for RGGB, 65535 for the
 * others). -111, then -104 (height or width of 3 or less), then -102 for any other phase code, then
 * -117 when the handle's scratch cannot grow for the threads' rows. */
VQP_EXTERN int32_t vqpDemosaicingEdgeU16Parallel(ProcessingHandle *handle, const uint16_t *src, uint32_t height,
                                                 uint32_t width, uint16_t *dst, uint32_t phase, uint32_t threads);

/* ---- Converters (8-bit mosaic, packed rows, to the configured output) ----------------------- */
VQP_EXTERN int32_t mono8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width,
                                uint64_t config);
VQP_EXTERN int32_t rg8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width,
                              uint64_t config, uint32_t method, uint8_t *scratchTail);
VQP_EXTERN int32_t gr8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width,
                              uint64_t config, uint32_t method, uint8_t *scratchTail);
VQP_EXTERN int32_t gb8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width,
                              uint64_t config, uint32_t method, uint8_t *scratchTail);
VQP_EXTERN int32_t bg8Convert(const uint8_t *src, uint8_t *dst, int32_t height, int32_t width,
                              uint64_t config, uint32_t method, uint8_t *scratchTail);

/* ---- Format classification and depth reduction ---------------------------------------------- */
VQP_EXTERN int32_t demosaicDataInit(const ImageFrame *in, ProcessingHandle *handle, int64_t *phaseOut,
                                    int32_t *ruleOut);
VQP_EXTERN void u16Tou8_old(const uint16_t *src, int32_t height, int32_t width, int32_t shift,
                            uint8_t *dst);
VQP_EXTERN void u16Tou8(const uint16_t *src, int32_t height, int32_t width, int32_t strideBytes,
                        int32_t shift, uint8_t *dst);
/* Packed pairs (two samples in three bytes, the first and third byte their high bytes): unpacked_old
 * reads height x width samples as one run, unpacked one run a row at strideBytes. A run with an odd
 * count ends in a half pair of two bytes: nothing past it is read, and the byte after its sample is
 * written as 0 (one byte past the last row; with an odd width, inside the next row, which overwrites it).
 * The 16-bit routines read their samples bytewise: src may be at any address. */
VQP_EXTERN void unpacked_old(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst);
VQP_EXTERN void unpacked(const uint8_t *src, int32_t height, int32_t width, int32_t strideBytes,
                         uint8_t *dst);
/* Forward byte copy; safe in place (dst == src) with strideBytes > width. */
VQP_EXTERN void u8Tou8(const uint8_t *src, int32_t height, int32_t width, int32_t strideBytes,
                       uint8_t *dst);

/* ---- Output helpers ------------------------------------------------------------------------- */
/* 3-byte pixels to 4-byte pixels, the fourth byte 0; returns src. Buffers must not overlap; src holds
 * height x width x 3 bytes, dst height x width x 4. The byte count n is height x width x 3 computed in
 * 32 bits and read as a signed number: nothing is done when n < 1, otherwise pixels are widened until n
 * source bytes have been read (ceil(n / 3) pixels). A product that wraps past 2^32 therefore converts
 * fewer pixels than the image has, never more; images of 2^31 / 3 bytes or more are not converted whole. */
VQP_EXTERN const uint8_t *bgrToBgra(const uint8_t *src, uint32_t height, uint32_t width, uint8_t *dst);
/* Re-pads packed 3-byte rows in place to a multiple of 4 bytes (zero padding); the buffer must hold
 * height x ((3 x width + 3) & ~3) bytes. The stride field is not updated. -111 for a null handle, image
 * or data; -104 for a height or width of 3 or less, or a width whose padded row exceeds 2147483647 bytes. */
VQP_EXTERN int32_t vqpBMPAdjust(ProcessingHandle *handle, ImageFrame *image);

/* ---- Nearest-neighbour kernels (8-bit, packed rows, height and width >= 4) ------------------ */
/* swapRB 0 writes B,G,R; non-zero writes R,G,B. Mono8: non-zero swaps the red and blue weights.
 * Planar kernels write red through planeR, green through planeG, blue through planeB. */
VQP_EXTERN int32_t rg8ToBgr8_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst,
                                     uint32_t swapRB);
VQP_EXTERN int32_t rg8ToBgra8_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst,
                                      uint32_t swapRB);
VQP_EXTERN int32_t rg8ToBgr8P_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *planeR,
                                      uint8_t *planeG, uint8_t *planeB);
VQP_EXTERN int32_t rg8ToMono8_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst,
                                      uint32_t swapRB);
VQP_EXTERN int32_t gb8ToBgr8_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst,
                                     uint32_t swapRB);
VQP_EXTERN int32_t gb8ToBgra8_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst,
                                      uint32_t swapRB);
VQP_EXTERN int32_t gb8ToBgr8P_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *planeR,
                                      uint8_t *planeG, uint8_t *planeB);
VQP_EXTERN int32_t gb8ToMono8_nearest(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst,
                                      uint32_t swapRB);

/* ---- Bilinear kernels (8-bit) -------------------------------------------------------------- */
/* Packed rows, height and width >= 4. Each phase has its own BGR8 and BGRA8 driver writing B,G,R[,0];
 * the driver of the opposite phase (rg8 <-> bg8, gb8 <-> gr8) run on the same frame writes R,G,B[,0].
 * Planar and Mono8 drivers take the frame's own colours: planeR receives red, weights are {red, green,
 * blue} and are only read; luma = (wR*R + wG*G + wB*B + 128) >> 8 on the interpolated values. BGGR and
 * GBRG frames are served by the rg8 and gr8 planar and Mono8 drivers with planes or weights reversed. */
VQP_EXTERN int32_t rg8ToBgr8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst);
VQP_EXTERN int32_t bg8ToBgr8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst);
VQP_EXTERN int32_t gb8ToBgr8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst);
VQP_EXTERN int32_t gr8ToBgr8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst);
VQP_EXTERN int32_t rg8ToBgra8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst);
VQP_EXTERN int32_t bg8ToBgra8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst);
VQP_EXTERN int32_t gb8ToBgra8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst);
VQP_EXTERN int32_t gr8ToBgra8_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *dst);
VQP_EXTERN int32_t rg8ToBgr8P_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *planeR,
                                       uint8_t *planeG, uint8_t *planeB);
VQP_EXTERN int32_t gr8ToBgr8P_bilinear(const uint8_t *src, int32_t height, int32_t width, uint8_t *planeR,
                                       uint8_t *planeG, uint8_t *planeB);
VQP_EXTERN int32_t rg8ToMono8_bilinear(const uint8_t *src, int32_t height, int32_t width, const uint32_t *weights,
                                       uint8_t *dst);
VQP_EXTERN int32_t gr8ToMono8_bilinear(const uint8_t *src, int32_t height, int32_t width, const uint32_t *weights,
                                       uint8_t *dst);

/* ---- Edge-directed kernels (8-bit) ---------------------------------------------------------- */
/* Green is interpolated at every red and blue site along the direction of the smaller gradient (ties
 * go vertical), then red and blue from colour differences. Packed rows, h and w at least 4; every
 * driver returns 0. swapRB 0 writes B,G,R; non-zero writes R,G,B; for Mono8 it exchanges the red and
 * blue weights (77, 150, 29). Planar drivers write red through rPlane, green through gPlane, blue
 * through bPlane.
 * Work line: the 3- and 4-byte drivers use the last w bytes of dst; the planar and Mono8 drivers use
 * greenLine, at least w bytes, whose contents are overwritten. The 4-byte drivers never write the
 * fourth byte of a pixel: fourth bytes that fall in the last w bytes of dst are left holding work-line
 * values (estimated greens of the rows above the last two or three), all others keep what the caller
 * put there.
 * GBRG frames (and GRBG, through the same drivers) of height 4: rows 0 to 3 follow the same rules as
 * every other frame, with the neighbours outside the frame left out: the red sites of row 1 and the
 * blue sites of row 2 take the single vertical difference towards the far row that exists (row 3,
 * row 0), the red sites of row 3 the bottom-edge form with the green above, and the red and blue of
 * row 3 come from row 3 and row 2 alone. Nothing outside the frame is read; the work line is left
 * holding the estimates of rows 1 and 2. */
VQP_EXTERN int64_t rg8ToBgr8_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *dst, uint32_t swapRB);
VQP_EXTERN int64_t gb8ToBgr8_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *dst, uint32_t swapRB);
VQP_EXTERN int64_t rg8ToBgra8_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *dst, uint32_t swapRB);
VQP_EXTERN int64_t gb8ToBgra8_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *dst, uint32_t swapRB);
VQP_EXTERN int64_t rg8ToBgr8P_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *rPlane, uint8_t *gPlane,
                                   uint8_t *bPlane, uint8_t *greenLine);
VQP_EXTERN int64_t gb8ToBgr8P_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *rPlane, uint8_t *gPlane,
                                   uint8_t *bPlane, uint8_t *greenLine);
VQP_EXTERN int64_t rg8ToMono8_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *dst, uint32_t swapRB,
                                   uint8_t *greenLine);
VQP_EXTERN int64_t gb8ToMono8_edge(const uint8_t *src, uint32_t h, uint32_t w, uint8_t *dst, uint32_t swapRB,
                                   uint8_t *greenLine);

/* ---- 16-bit demosaic ------------------------------------------------------------------------ */
/* Bayer RGGB 16-bit samples (rows packed) to 16-bit colour by bilinear interpolation; no clamping
 * is needed (every value is a sample or a truncated mean). Interleaved output is three samples per
 * pixel, B,G,R (order flag 1 in the pieces: R,G,B); planar output is three planes of height x width.
 * The vqp entry points check pointers (-111) and then sizes (height or width <= 3: -104).
 * Buffers: src holds height x width samples, rows packed; interleaved output 3 x height x width samples,
 * each plane height x width. Any address will do (samples are read and written bytewise). Column offsets
 * are counted in 64 bits, so every width the caller's memory can hold is converted whole. */
VQP_EXTERN int32_t vqpDemosaicingBilinearU16(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst);
VQP_EXTERN int32_t vqpDemosaicingBilinearU16P(const uint16_t *src, uint32_t height, uint32_t width,
                                              uint16_t *planeB, uint16_t *planeG, uint16_t *planeR);
/* Drivers and region pieces (no checks; height and width >= 4). The body returns
 * (first row left << 32) | first column left for the last-rows and last-columns pieces. */
VQP_EXTERN int32_t demosaicingBilinearRGGBU16(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst);
VQP_EXTERN int32_t demosaicingBilinearRGGBU16P(const uint16_t *src, uint32_t height, uint32_t width,
                                               uint16_t *planeB, uint16_t *planeG, uint16_t *planeR);
VQP_EXTERN void bilinearFirstRowsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t width, uint32_t order);
VQP_EXTERN void bilinearFirstColsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                         uint32_t order);
VQP_EXTERN uint64_t bilinearBodyRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                        uint32_t order);
VQP_EXTERN void bilinearLastRowsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                        int32_t firstRowLeft, uint32_t order);
VQP_EXTERN void bilinearLastColsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                        int32_t firstColumnLeft, uint32_t order);
VQP_EXTERN void bilinearFirstRowsRGGBU16P(const uint16_t *src, uint16_t *planeB, uint16_t *planeG,
                                          uint16_t *planeR, uint32_t width);
VQP_EXTERN void bilinearFirstColsRGGBU16P(const uint16_t *src, uint16_t *planeB, uint16_t *planeG,
                                          uint16_t *planeR, uint32_t height, uint32_t width);
VQP_EXTERN uint64_t bilinearBodyRGGBU16P(const uint16_t *src, uint16_t *planeB, uint16_t *planeG,
                                         uint16_t *planeR, uint32_t height, uint32_t width);
VQP_EXTERN void bilinearLastRowsRGGBU16P(const uint16_t *src, uint16_t *planeB, uint16_t *planeG,
                                         uint16_t *planeR, uint32_t height, uint32_t width, int32_t firstRowLeft);
VQP_EXTERN void bilinearLastColsRGGBU16P(const uint16_t *src, uint16_t *planeB, uint16_t *planeG,
                                         uint16_t *planeR, uint32_t height, uint32_t width,
                                         int32_t firstColumnLeft);

/* 16-bit Bayer to interleaved 16-bit B,G,R by edge-directed interpolation. Every interpolated value
 * is clamped to [0, maximum]: 4095 in the RGGB driver, 65535 in the other three; native samples are
 * copied. The drivers check nothing (height and width >= 4) and return 0. */
VQP_EXTERN int32_t demosaicingEdgeRGGBU16(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst);
VQP_EXTERN int32_t demosaicingEdgeGRBGU16(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst);
VQP_EXTERN int32_t demosaicingEdgeGBRGU16(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst);
VQP_EXTERN int32_t demosaicingEdgeBGGRU16(const uint16_t *src, uint32_t height, uint32_t width, uint16_t *dst);
/* Interior kernel, red site at (row 0, startColumn) of the rows it is given; reads two rows above and
 * three below. Returns (rows covered << 32) | first column not centred on; 0 when rows < 2. */
VQP_EXTERN uint64_t edgeSecRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t rows, uint32_t width,
                                   int32_t startColumn, int32_t maximum);
/* Border pieces. First rows: rows 0-1 (RGGB variant) or 0-2 (GBRG variant; it reads rows 0-4, so
 * called alone it needs a frame at least 5 high; the drivers also serve 4-high frames);
 * first columns: the columns left of startColumn 2 (RGGB) or 3 (GRBG) from row 2 down; last rows:
 * from firstRowLeft to the bottom; last columns: from firstColumnLeft to the right edge, row 2 down. */
VQP_EXTERN void edgeFirstRowsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t width, int32_t startColumn,
                                     int32_t maximum);
VQP_EXTERN void edgeFirstRowsGBRGU16(const uint16_t *src, uint16_t *dst, uint32_t width, int32_t startColumn,
                                     int32_t maximum);
VQP_EXTERN void edgeFirstColsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                     int32_t maximum);
VQP_EXTERN void edgeFirstColsGRBGU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                     int32_t maximum);
VQP_EXTERN void edgeLastRowsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                    int32_t firstRowLeft, int32_t startColumn, int32_t maximum);
VQP_EXTERN void edgeLastColsRGGBU16(const uint16_t *src, uint16_t *dst, uint32_t height, uint32_t width,
                                    int32_t firstColumnLeft, int32_t maximum);

/* ---- Full-depth demosaic ---------------------------------------------------------------------- */
/* Bayer input of more than 8 bits to 16-bit colour in one call, every phase, depth and packing. */

/* The PFNC Bayer 14-bit codes; vqpDemosaicing16 takes them (vqpDemosaicing does not). */
#define VQP_PIXEL_FORMAT_BAYER_GR14       0x01100109u
#define VQP_PIXEL_FORMAT_BAYER_RG14       0x0110010Au
#define VQP_PIXEL_FORMAT_BAYER_GB14       0x0110010Bu
#define VQP_PIXEL_FORMAT_BAYER_BG14       0x0110010Cu

/* Output formats of vqpDemosaicing16, set with vqpDemosaicSetConfig16. Samples are 16-bit in the
 * machine's byte order, rows packed: 3 samples a pixel, or three planes of height x width samples one
 * after the other. */
#define VQP_PIXEL_FORMAT_BGR16            0x0230004Bu /* B, G, R; the default */
#define VQP_PIXEL_FORMAT_RGB16            0x02300033u /* R, G, B */
#define VQP_PIXEL_FORMAT_RGB16_PLANAR     0x02300024u /* planes R, G, B */
#define VQP_PIXEL_FORMAT_BGR16_PLANAR     0x82300024u /* planes B, G, R (this library's own code: the
                                                         PFNC custom bit on RGB16_Planar) */
/* Or'ed into the configuration: every output sample scaled from the input's depth to the full 16 bits
 * by repeating its top bits, v << (16 - d) | v >> (2d - 16), so that 0 stays 0 and the depth's maximum
 * becomes 65535 (what 16-bit PNG and most viewers expect). Without it samples keep the input's depth:
 * a 12-bit frame gives 0 .. 4095. */
#define VQP_OUTPUT16_FULL_RANGE           0x100000000ull

/* The 16-bit output configuration of a handle, kept apart from the 8-bit one and set the same way: one
 * of the four formats above, optionally with VQP_OUTPUT16_FULL_RANGE. -111 for a null pointer; -107
 * (configuration unchanged) for any other value. vqpCreate and vqpInit set VQP_PIXEL_FORMAT_BGR16. */
VQP_EXTERN int32_t vqpDemosaicSetConfig16(ProcessingHandle *handle, const uint64_t *config);
VQP_EXTERN int32_t vqpDemosaicGetConfig16(const ProcessingHandle *handle, uint64_t *configOut);

/* Converts one Bayer frame of 10, 12, 14 or 16 bits without reducing its depth.
 *
 * Input: BayerXX10, 12, 14 and 16 (16-bit little-endian containers, any stride and any address) and
 * BayerXX10Packed, 12Packed (two samples in three bytes, the first and third byte the samples' high
 * bits, the middle byte their low bits, the first sample's in its low nibble; rows are one run of
 * samples when the stride is width + width / 2, else each row its own run, a trailing half pair of two
 * bytes). Bits of a 16-bit container above the format's depth are ignored (as the 8-bit path's
 * reduction does), so no output sample exceeds the depth's maximum. Mono and 8-bit formats give -102.
 * Output: `out->data` holds height x width x 3 samples in the configured layout.
 *
 * Methods (as vqpDemosaicing; any other value writes no pixels and succeeds):
 * - VQP_METHOD_NEAREST: the rule of the 8-bit nearest-neighbour method on full samples.
 * - VQP_METHOD_BILINEAR: every missing value is the truncating mean of the nearest samples of its
 *   colour (four, or two); neighbours outside the frame are left out, except that green at a red or
 *   blue site on the frame's edge, with three green neighbours, counts the one facing the missing one
 *   twice, and a corner's single diagonal is copied. RGGB frames give exactly vqpDemosaicingBilinearU16
 *   and vqpDemosaicingBilinearU16P; the other phases follow the same rule.
 * - VQP_METHOD_EDGE: the rules of the edge-directed drivers (demosaicingEdge<phase>U16, including the
 *   blue of an RGGB frame's top-left pixel, taken from unclamped green estimates), with every
 *   interpolated value clamped to [0, the depth's maximum]: 1023, 4095, 16383 or 65535. So GRBG, GBRG
 *   and BGGR frames of 16 bits give exactly their drivers, and RGGB frames of 12 bits the RGGB driver;
 *   RGGB frames of 14 and 16 bits keep their full range.
 * Which channel order or plane order is written changes no value.
 *
 * Statuses, in this order: -111 a null handle, record or data pointer; -104 a height, stride or width
 * of 3 or less, or a 32-bit height x width that is negative; -102 an input format not listed above;
 * -117 scratch memory (a copy of the frame at 2 bytes a sample unless the input is 16-bit with a stride
 * of 2 x width, 6 bytes a pixel more for edge-directed planar output, a few rows per thread; every
 * block above 2147483647 bytes is refused); -107 cannot occur, the configuration being checked when
 * it is set. A stride below a row's bytes is the caller's error, as in vqpDemosaicing. On success the output
 * record receives height, width and the low 32 bits of the configuration.
 * `threads` as in vqpDemosaicingParallel (0: one per hardware thread); the bytes written are the same
 * for every thread count. The input is never written. */
VQP_EXTERN int32_t vqpDemosaicing16(ProcessingHandle *handle, const ImageFrame *in, uint32_t method,
                                    ImageFrame *out, uint32_t threads);

/* ---- Raw to picture ------------------------------------------------------------------------- */
/* vqpDevelop and vqpDevelop16 turn a raw frame into a picture in one pass: black level, white level,
 * white balance, the method's demosaic, a 3x3 colour matrix and a transfer curve. The settings live on
 * the handle; vqpCreate and vqpInit make them neutral (black 0, white the depth's maximum, gains 1, 1, 1,
 * automatic balance off, the identity matrix, the linear curve).
 *
 * The rule, per sample, at the input's full depth (a 12-bit sample keeps its 12 bits):
 *   n = clamp((s - black[site]) / (white - black[site]), 0, 1)
 *   b = min(n x gain[colour of the site], 1)          a clipped highlight stays white
 *   (r, g, b) = the method's demosaic of the mosaic b   carried as 16-bit samples, round(b x 65535)
 *   c = clamp(M (r, g, b), 0, 1)
 *   e = transfer(c); output round(e x 255) (vqpDevelop) or round(e x 65535) (vqpDevelop16).
 * Mono8 output is the luma of the encoded 8-bit values, (77 R + 150 G + 29 B + 128) >> 8, the weights
 * of vqpDemosaicing's Mono8 output. Mono input takes black, white and the curve; gains and matrix do not
 * apply to it (grey stays grey) and the method is not consulted, as in vqpDemosaicing.
 * Precision: 8-bit output of nearest and bilinear is within 1 of the rule evaluated in double precision
 * (means exact) for nearly every sample and within 3 for all, for the sRGB curve and gammas up to 3;
 * steeper gammas amplify the 16-bit quantisation of values within a few 1/65535 of black. 16-bit output:
 * the value before the curve is within (1 + the sum of the magnitudes of M's row) steps of 1/65535 of
 * the rule, within 2 (1 + the sum of the magnitudes of M's row) steps of 1/65535 for bilinear (means
 * truncated at 16 bits); the curve then maps it as it is (a steep curve near black magnifies that step).
 * vqpDevelop evaluates the curve on c in single precision as a cubic per octave of c, within 0.15 of a
 * level of the curve (the linear and sRGB curves, gammas from about 0.5 to 2.5); other gammas, and
 * vqpDevelop16, round c to 16 bits and look the curve up in a table.
 * Neutral settings on 8-bit input give exactly the bytes of vqpDemosaicingParallel (padded rows are
 * compacted into a copy: the input is never written); every other case follows the rule above.
 * The fourth byte of BGRA8 and RGBA8 output is 0. Every vector level and thread count writes the same
 * bytes. */
#define VQP_ERR_BAD_PARAMETER              (-120)

#define VQP_BALANCE_WHITE_AUTO_OFF         0u
#define VQP_BALANCE_WHITE_AUTO_ONCE        1u
#define VQP_BALANCE_WHITE_AUTO_CONTINUOUS  2u

#define VQP_TRANSFER_LINEAR                0u /* e = c */
#define VQP_TRANSFER_SRGB                  1u /* IEC 61966-2-1: 12.92 c up to 0.0031308, else 1.055 c^(1/2.4) - 0.055 */
#define VQP_TRANSFER_GAMMA                 2u /* e = c^(1 / gamma) */

/* Setters: -111 for a null handle or a null array where one is required; -120 (VQP_ERR_BAD_PARAMETER)
 * for a NaN, an infinity, a negative level or gain, a black level at or above a white level that is
 * set (not 0), an unknown mode or curve, a gamma outside (0, 10]. A refused call changes nothing. */
/* One black level per site of the 2x2 pattern: (row 0, col 0), (row 0, col 1), (row 1, col 0),
 * (row 1, col 1) of the frame as given, in the input's sample units (0 .. 4095 for 12 bits). */
VQP_EXTERN int32_t vqpSetBlackLevel(ProcessingHandle *handle, const float black[4]);
/* The sample value that is full scale; 0 (the default) means the input depth's maximum. */
VQP_EXTERN int32_t vqpSetWhiteLevel(ProcessingHandle *handle, float white);
/* Red, green and blue gains (GenICam's BalanceRatio). Setting them turns automatic balance off. */
VQP_EXTERN int32_t vqpSetBalanceRatio(ProcessingHandle *handle, const float ratio[3]);
/* The gains in use: those set, or the last found automatically. */
VQP_EXTERN int32_t vqpGetBalanceRatio(const ProcessingHandle *handle, float ratio[3]);
/* Automatic white balance, grey world over the 2x2 cells (of every eighth row of cells: rows 0 and 1, 16
 * and 17, ...) none of whose samples is at or above 98% of full scale (after black) and whose mean green
 * is above 2%: green 1, red sum(green) / sum(red), blue
 * sum(green) / sum(blue), each clamped to [1/8, 8]; a frame without such a cell keeps the gains.
 * ONCE: found on the frame being developed and used for it; the mode then returns to OFF, the gains kept.
 * CONTINUOUS: the first frame measures itself as ONCE does; each later frame uses the gains of the frames
 * before it, measured during their pass, half-way smoothed towards each new measurement (a steady scene
 * is within 1% of ONCE's gains after 7 frames). The same gains for every thread count. Bayer input only. */
VQP_EXTERN int32_t vqpSetBalanceWhiteAuto(ProcessingHandle *handle, uint32_t mode);
VQP_EXTERN int32_t vqpGetBalanceWhiteAuto(const ProcessingHandle *handle, uint32_t *mode);
/* Row-major 3x3 from balanced camera R, G, B to output R, G, B; null restores the identity. */
VQP_EXTERN int32_t vqpSetColorTransformation(ProcessingHandle *handle, const float matrix[9]);
/* VQP_TRANSFER_LINEAR, _SRGB or _GAMMA; `gamma` is read for VQP_TRANSFER_GAMMA only. */
VQP_EXTERN int32_t vqpSetTransfer(ProcessingHandle *handle, uint32_t curve, float gamma);

/* Develops one frame into the handle's 8-bit output format (vqpDemosaicSetConfig; every format of
 * vqpDemosaicing), or with vqpDevelop16 into its 16-bit format (vqpDemosaicSetConfig16; every format of
 * vqpDemosaicing16), always scaled 0 .. 65535 (VQP_OUTPUT16_FULL_RANGE changes nothing here).
 * Input: every format of vqpDemosaicing or vqpDemosaicing16, mono included, any stride; read only.
 * Methods as vqpDemosaicing16 (any other value writes no pixels and succeeds; mono input ignores it).
 * Statuses, in this order: -111 a null handle, record or data pointer; -104 a height, stride or width of
 * 3 or less, or a 32-bit height x width that is negative; -102 an input format not listed; -120 a black
 * level at or above the white level in force for the input's depth; -117 memory. `threads` as in
 * vqpDemosaicingParallel. On success the output record receives height, width and the low 32 bits of the
 * configuration. */
VQP_EXTERN int32_t vqpDevelop(ProcessingHandle *handle, const ImageFrame *in, uint32_t method, ImageFrame *out,
                              uint32_t threads);
VQP_EXTERN int32_t vqpDevelop16(ProcessingHandle *handle, const ImageFrame *in, uint32_t method, ImageFrame *out,
                                uint32_t threads);

/* ---- Version, status names, output sizes ---------------------------------------------------- */
/* The version of this header; vqpVersion() gives the loaded library's, as (major << 16) | (minor << 8)
 * | patch, and vqpVersionString() as "major.minor.patch". */
#define VQP_VERSION_MAJOR 0
#define VQP_VERSION_MINOR 2
#define VQP_VERSION_PATCH 0
#define VQP_VERSION_STRING "0.2.0"
VQP_EXTERN uint32_t vqpVersion(void);
VQP_EXTERN const char *vqpVersionString(void);
/* The vector level the conversions of this process run at: "scalar", "avx2", "avx512" or "neon" (a
 * constant string). The library picks the best level the processor has and the operating system has
 * enabled, once per process, on the first call that needs it; every level gives the same bytes. */
VQP_EXTERN const char *vqpVectorLevel(void);
/* The name of a status code ("VQP_ERR_BAD_DIMENSIONS") and a short message for it; constant strings.
 * A code the library never returns gives "VQP_ERR_UNKNOWN" and "not a status code of this library". */
VQP_EXTERN const char *vqpStatusName(int32_t status);
VQP_EXTERN const char *vqpStatusMessage(int32_t status);
/* Bytes the output buffer of vqpDemosaicing needs for a frame of this size in output format
 * `pixelFormat`: 3, 4 or 1 bytes a pixel, or three planes; for the 16-bit formats of vqpDemosaicing16
 * (with or without VQP_OUTPUT16_FULL_RANGE), 6 bytes a pixel. 0 for a format the library does not write
 * and for sizes it refuses (height or width of 3 or less, more than 2147483647 pixels). */
VQP_EXTERN uint64_t vqpOutputSize(int32_t height, int32_t width, uint64_t pixelFormat);

#endif /* VELQORA_H */
