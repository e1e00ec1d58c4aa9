// Velqora for .NET: demosaicing of raw machine-vision camera frames through the native library
// (velqora.dll on Windows, libvelqora.so on Linux, found by the one name "velqora").
//
// One source file, .NET Standard 2.0 (runs on .NET Framework 4.6.1+, .NET 6+ and Mono); no unsafe code.
//
//     using (var d = new Velqora.Demosaicer()) {
//         d.OutputFormat = Velqora.PixelFormat.Bgr8;
//         byte[] rgb = new byte[Velqora.Demosaicer.OutputSize(height, width, d.OutputFormat)];
//         d.Demosaic(raw, 0, height, width, stride, Velqora.PixelFormat.BayerRG12Packed,
//                    Velqora.DemosaicMethod.Bilinear, rgb, 0);
//     }
//
// A Demosaicer serves one call at a time (its scratch memory is reused by every call); use one per
// thread, or spread one frame over several cores with the `threads` argument.
using System;
using System.Runtime.InteropServices;

namespace Velqora
{
    /// <summary>Pixel-format codes (PFNC) the library reads and writes.</summary>
    public enum PixelFormat : uint
    {
        // Output formats (Demosaicer.OutputFormat); Mono8 is an input format too.
        Rgb8 = 0x02180014,
        Bgr8 = 0x02180015,
        Rgba8 = 0x02200016,
        Bgra8 = 0x02200017,
        Rgb8Planar = 0x02180021,
        Bgr8Planar = 0x02180025,
        Mono8 = 0x01080001,
        // Input formats.
        Mono10 = 0x01100003,
        Mono12 = 0x01100005,
        Mono14 = 0x01100025,
        Mono16 = 0x01100007,
        Mono10Packed = 0x010C0004,
        Mono12Packed = 0x010C0006,
        BayerGR8 = 0x01080008,
        BayerRG8 = 0x01080009,
        BayerGB8 = 0x0108000A,
        BayerBG8 = 0x0108000B,
        BayerGR10 = 0x0110000C,
        BayerRG10 = 0x0110000D,
        BayerGB10 = 0x0110000E,
        BayerBG10 = 0x0110000F,
        BayerGR12 = 0x01100010,
        BayerRG12 = 0x01100011,
        BayerGB12 = 0x01100012,
        BayerBG12 = 0x01100013,
        BayerGR16 = 0x0110002E,
        BayerRG16 = 0x0110002F,
        BayerGB16 = 0x01100030,
        BayerBG16 = 0x01100031,
        BayerGR10Packed = 0x010C0026,
        BayerRG10Packed = 0x010C0027,
        BayerGB10Packed = 0x010C0028,
        BayerBG10Packed = 0x010C0029,
        BayerGR14 = 0x01100109, // full depth only (Demosaic16)
        BayerRG14 = 0x0110010A,
        BayerGB14 = 0x0110010B,
        BayerBG14 = 0x0110010C,
        BayerGR12Packed = 0x010C002A,
        BayerRG12Packed = 0x010C002B,
        BayerGB12Packed = 0x010C002C,
        BayerBG12Packed = 0x010C002D,
        // Output formats of Demosaic16 (Demosaicer.OutputFormat16): 16-bit samples.
        Bgr16 = 0x0230004B,
        Rgb16 = 0x02300033,
        Rgb16Planar = 0x02300024,
        Bgr16Planar = 0x82300024,
    }

    /// <summary>Interpolation methods. Any other value is accepted and writes no pixels.</summary>
    public enum DemosaicMethod : uint
    {
        Nearest = 0,
        Bilinear = 1,
        Edge = 2,
    }

    /// <summary>Automatic white balance (GenICam's BalanceWhiteAuto).</summary>
    public enum BalanceWhiteAuto : uint
    {
        Off = 0,
        Once = 1,       // grey world on the next frame, then Off with those gains
        Continuous = 2, // each frame uses the gains measured on the frames before it
    }

    /// <summary>The transfer curve applied last by Develop and Develop16.</summary>
    public enum Transfer : uint
    {
        Linear = 0,
        Srgb = 1,  // IEC 61966-2-1
        Gamma = 2, // encoded = linear^(1/gamma)
    }

    /// <summary>A status the library returned (or would return: the binding reports some before the call).</summary>
    public class VelqoraException : Exception
    {
        public const int NullArgument = -111;
        public const int OutOfMemory = -117;
        public const int BadDimensions = -104;
        public const int UnsupportedInputFormat = -102;
        public const int UnsupportedOutputFormat = -107;
        public const int BadParameter = -120;

        /// <summary>The status code, as the C header defines it (VQP_ERR_...).</summary>
        public int Status { get; }
        /// <summary>The status's name from vqpStatusName, for example "VQP_ERR_BAD_DIMENSIONS".</summary>
        public string StatusName { get; }
        /// <summary>The library's short message for the status (vqpStatusMessage).</summary>
        public string StatusMessage { get; }

        public VelqoraException(int status, string function)
            : this(status, function, Native.String(Native.vqpStatusName(status)), Native.String(Native.vqpStatusMessage(status)))
        {
        }

        private VelqoraException(int status, string function, string name, string message)
            : base(function + ": " + name + " (" + status + "): " + message)
        {
            Status = status;
            StatusName = name;
            StatusMessage = message;
        }
    }

    /// <summary>The native handle, released by vqpRelease exactly once: by Dispose, or by the finalizer
    /// when the owner was never disposed.</summary>
    public sealed class ProcessingHandle : SafeHandle
    {
        private ProcessingHandle() : base(IntPtr.Zero, true) { }

        public override bool IsInvalid => handle == IntPtr.Zero;

        protected override bool ReleaseHandle()
        {
            IntPtr h = handle;
            return Native.vqpRelease(ref h) == 0;
        }
    }

    /// <summary>One handle of the library: its output format and its scratch memory, kept between frames.</summary>
    public sealed class Demosaicer : IDisposable
    {
        private readonly ProcessingHandle handle;

        public Demosaicer()
        {
            int status = Native.vqpCreate(out handle);
            if (status != 0)
            {
                handle?.SetHandleAsInvalid();
                throw new VelqoraException(status, "vqpCreate");
            }
        }

        /// <summary>The library's version, "major.minor.patch".</summary>
        public static string Version => Native.String(Native.vqpVersionString());

        /// <summary>The vector level the library chose for this machine: "scalar", "avx2", "avx512" or "neon".</summary>
        public static string VectorLevel => Native.String(Native.vqpVectorLevel());

        /// <summary>Bytes of output for a frame of this size in an output format; 0 for a size or format the
        /// library refuses.</summary>
        public static long OutputSize(int height, int width, PixelFormat format) =>
            (long)Native.vqpOutputSize(height, width, (ulong)format);

        /// <summary>The output format written by Demosaic (BGR8 at first). Setting one the library does not
        /// write throws VelqoraException with UnsupportedOutputFormat and keeps the old one.</summary>
        public PixelFormat OutputFormat
        {
            get
            {
                Check(Native.vqpDemosaicGetConfig(Handle(), out ulong config), "vqpDemosaicGetConfig");
                return (PixelFormat)(uint)config;
            }
            set
            {
                ulong config = (ulong)value;
                Check(Native.vqpDemosaicSetConfig(Handle(), ref config), "vqpDemosaicSetConfig");
            }
        }

        /// <summary>The output format written by Demosaic16: Bgr16 (at first), Rgb16 or either planar form.</summary>
        public PixelFormat OutputFormat16
        {
            get => (PixelFormat)(uint)Config16();
            set => Config16((ulong)value | (Config16() & FullRangeBit));
        }

        /// <summary>Whether Demosaic16 scales every sample from the input's depth to the full 16 bits (a
        /// 12-bit 4095 becomes 65535); otherwise samples keep the input's depth.</summary>
        public bool FullRange16
        {
            get => (Config16() & FullRangeBit) != 0;
            set => Config16((Config16() & ~FullRangeBit) | (value ? FullRangeBit : 0));
        }

        private const ulong FullRangeBit = 0x100000000;

        private ulong Config16()
        {
            Check(Native.vqpDemosaicGetConfig16(Handle(), out ulong config), "vqpDemosaicGetConfig16");
            return config;
        }

        private void Config16(ulong config)
        {
            Check(Native.vqpDemosaicSetConfig16(Handle(), ref config), "vqpDemosaicSetConfig16");
        }

        public void Dispose()
        {
            handle.Dispose();
        }

        // ---- Raw to picture: the settings of Develop and Develop16, kept by the handle. A refused value
        // (NaN, infinity, a negative level or gain, black at or above white, a gamma outside (0, 10]) throws
        // VelqoraException with BadParameter and changes nothing.

        /// <summary>One black level for every site of the 2x2 pattern, in the input's sample units.</summary>
        public void SetBlackLevel(float level) => SetBlackLevel(new[] { level, level, level, level });

        /// <summary>Black levels of the sites (row 0 col 0, row 0 col 1, row 1 col 0, row 1 col 1).</summary>
        public void SetBlackLevel(float[] levels)
        {
            if (levels == null) throw new ArgumentNullException(nameof(levels));
            if (levels.Length != 4) throw new ArgumentException("four black levels, one a site", nameof(levels));
            Check(Native.vqpSetBlackLevel(Handle(), levels), "vqpSetBlackLevel");
        }

        /// <summary>The sample value that is full scale; 0 (the default) means the input depth's maximum.</summary>
        public void SetWhiteLevel(float white) => Check(Native.vqpSetWhiteLevel(Handle(), white), "vqpSetWhiteLevel");

        /// <summary>Red, green and blue gains in use (GenICam's BalanceRatio): those set, or the last found
        /// automatically. Setting them turns BalanceWhiteAuto off.</summary>
        public float[] BalanceRatio
        {
            get
            {
                var ratio = new float[3];
                Check(Native.vqpGetBalanceRatio(Handle(), ratio), "vqpGetBalanceRatio");
                return ratio;
            }
            set
            {
                if (value == null) throw new ArgumentNullException(nameof(value));
                if (value.Length != 3) throw new ArgumentException("three gains: red, green, blue", nameof(value));
                Check(Native.vqpSetBalanceRatio(Handle(), value), "vqpSetBalanceRatio");
            }
        }

        /// <summary>Automatic white balance; Once reads back Off after the frame it measured.</summary>
        public BalanceWhiteAuto BalanceWhiteAuto
        {
            get
            {
                Check(Native.vqpGetBalanceWhiteAuto(Handle(), out uint mode), "vqpGetBalanceWhiteAuto");
                return (BalanceWhiteAuto)mode;
            }
            set => Check(Native.vqpSetBalanceWhiteAuto(Handle(), (uint)value), "vqpSetBalanceWhiteAuto");
        }

        /// <summary>Row-major 3x3 matrix from balanced camera R, G, B to output R, G, B; null for the identity.</summary>
        public void SetColorTransformation(float[] matrix)
        {
            if (matrix != null && matrix.Length != 9) throw new ArgumentException("nine numbers, row-major", nameof(matrix));
            Check(Native.vqpSetColorTransformation(Handle(), matrix), "vqpSetColorTransformation");
        }

        /// <summary>The transfer curve; `gamma` is read for Transfer.Gamma only.</summary>
        public void SetTransfer(Transfer curve, float gamma = 2.2f) =>
            Check(Native.vqpSetTransfer(Handle(), (uint)curve, gamma), "vqpSetTransfer");

        /// <summary>
        /// Develops one frame (black level, white level, white balance, the demosaic, the colour matrix and
        /// the transfer curve in one pass, at full depth) into OutputFormat. Every input format of Demosaic
        /// and Demosaic16 is taken, mono included. Arguments as in Demosaic; the input is only read.
        /// </summary>
        public void Develop(byte[] input, int inputOffset, int height, int width, int stride, PixelFormat inputFormat,
                            DemosaicMethod method, byte[] output, int outputOffset, int threads = 1) =>
            Arrays(false, input, inputOffset, 1, height, width, stride, inputFormat, method, output, outputOffset, threads, true);

        /// <summary>As the byte[] form, from 16-bit samples; `inputOffset` counts samples, `stride` bytes.</summary>
        public void Develop(ushort[] input, int inputOffset, int height, int width, int stride, PixelFormat inputFormat,
                            DemosaicMethod method, byte[] output, int outputOffset, int threads = 1) =>
            Arrays(false, input, inputOffset, 2, height, width, stride, inputFormat, method, output, outputOffset, threads, true);

        /// <summary>As the byte[] form, on native buffers of the given sizes in bytes.</summary>
        public void Develop(IntPtr input, long inputBytes, int height, int width, int stride, PixelFormat inputFormat,
                            DemosaicMethod method, IntPtr output, long outputBytes, int threads = 1) =>
            Buffers(false, input, inputBytes, height, width, stride, inputFormat, method, output, outputBytes, threads, true);

        /// <summary>Develops one frame into OutputFormat16, samples always 0 .. 65535 (FullRange16 changes
        /// nothing here). Arguments as in Demosaic16.</summary>
        public void Develop16(byte[] input, int inputOffset, int height, int width, int stride, PixelFormat inputFormat,
                              DemosaicMethod method, ushort[] output, int outputOffset, int threads = 1) =>
            Arrays(true, input, inputOffset, 1, height, width, stride, inputFormat, method, output, outputOffset, threads, true);

        /// <summary>As the byte[] form, from 16-bit samples.</summary>
        public void Develop16(ushort[] input, int inputOffset, int height, int width, int stride, PixelFormat inputFormat,
                              DemosaicMethod method, ushort[] output, int outputOffset, int threads = 1) =>
            Arrays(true, input, inputOffset, 2, height, width, stride, inputFormat, method, output, outputOffset, threads, true);

        /// <summary>As the byte[] form, on native buffers of the given sizes in bytes.</summary>
        public void Develop16(IntPtr input, long inputBytes, int height, int width, int stride, PixelFormat inputFormat,
                              DemosaicMethod method, IntPtr output, long outputBytes, int threads = 1) =>
            Buffers(true, input, inputBytes, height, width, stride, inputFormat, method, output, outputBytes, threads, true);

        /// <summary>
        /// Converts one frame from a byte array into a byte array in OutputFormat. `stride` is the distance
        /// in bytes between rows of the input (rows of 8-bit samples, 16-bit samples or packed pairs); the
        /// output rows are packed (OutputSize bytes from outputOffset). The input is only read (padded
        /// 8-bit rows, which the C library compacts in place, are copied first). `threads` above 1 (or 0:
        /// one per hardware thread) splits the frame over that many threads of this Demosaicer.
        /// </summary>
        public void Demosaic(byte[] input, int inputOffset, int height, int width, int stride, PixelFormat inputFormat,
                             DemosaicMethod method, byte[] output, int outputOffset, int threads = 1) =>
            Arrays(false, input, inputOffset, 1, height, width, stride, inputFormat, method, output, outputOffset, threads);

        /// <summary>As the byte[] form, from 16-bit samples (Mono10 to Mono16, BayerXX10 to BayerXX16).
        /// `inputOffset` counts samples; `stride` counts bytes, as everywhere in the library.</summary>
        public void Demosaic(ushort[] input, int inputOffset, int height, int width, int stride, PixelFormat inputFormat,
                             DemosaicMethod method, byte[] output, int outputOffset, int threads = 1) =>
            Arrays(false, input, inputOffset, 2, height, width, stride, inputFormat, method, output, outputOffset, threads);

        /// <summary>As the byte[] form, on native buffers (a camera SDK's frame, say): `inputBytes` and
        /// `outputBytes` are the bytes that may be used from each pointer, which the call checks.</summary>
        public void Demosaic(IntPtr input, long inputBytes, int height, int width, int stride, PixelFormat inputFormat,
                             DemosaicMethod method, IntPtr output, long outputBytes, int threads = 1) =>
            Buffers(false, input, inputBytes, height, width, stride, inputFormat, method, output, outputBytes, threads);

        /// <summary>
        /// Converts one Bayer frame of 10 to 16 bits (unpacked or packed) without reducing its depth, into
        /// 16-bit samples in OutputFormat16 (3 a pixel, rows packed, from outputOffset counted in samples).
        /// Offsets, strides and threads as in Demosaic; the input is only read.
        /// </summary>
        public void Demosaic16(byte[] input, int inputOffset, int height, int width, int stride, PixelFormat inputFormat,
                               DemosaicMethod method, ushort[] output, int outputOffset, int threads = 1) =>
            Arrays(true, input, inputOffset, 1, height, width, stride, inputFormat, method, output, outputOffset, threads);

        /// <summary>As the byte[] form, from 16-bit samples; `inputOffset` counts samples, `stride` bytes.</summary>
        public void Demosaic16(ushort[] input, int inputOffset, int height, int width, int stride, PixelFormat inputFormat,
                               DemosaicMethod method, ushort[] output, int outputOffset, int threads = 1) =>
            Arrays(true, input, inputOffset, 2, height, width, stride, inputFormat, method, output, outputOffset, threads);

        /// <summary>As the byte[] form, on native buffers of the given sizes in bytes.</summary>
        public void Demosaic16(IntPtr input, long inputBytes, int height, int width, int stride, PixelFormat inputFormat,
                               DemosaicMethod method, IntPtr output, long outputBytes, int threads = 1) =>
            Buffers(true, input, inputBytes, height, width, stride, inputFormat, method, output, outputBytes, threads);

        // The array forms: `full` for Demosaic16 (ushort[] output) rather than Demosaic (byte[] output);
        // `sampleBytes` 2 for ushort[] input, 1 for byte[]. Both arrays and their offsets are checked before
        // either is pinned, so a refused argument leaves nothing pinned.
        private void Arrays(bool full, Array input, int inputOffset, int sampleBytes, int height, int width, int stride,
                            PixelFormat inputFormat, DemosaicMethod method, Array output, int outputOffset, int threads,
                            bool develop = false)
        {
            if (input == null) throw new ArgumentNullException(nameof(input));
            if (output == null) throw new ArgumentNullException(nameof(output));
            if (inputOffset < 0 || inputOffset > input.Length) throw new ArgumentOutOfRangeException(nameof(inputOffset));
            if (outputOffset < 0 || outputOffset > output.Length) throw new ArgumentOutOfRangeException(nameof(outputOffset));
            if (sampleBytes == 2 && SampleBits(inputFormat) != 16)
                throw new ArgumentException(inputFormat + " has no 16-bit samples: pass its bytes as byte[]", nameof(inputFormat));
            Run(full, Pinned.Of(input, inputOffset, sampleBytes), height, width, stride, inputFormat, method,
                Pinned.Of(output, outputOffset, full ? 2 : 1), threads, develop);
        }

        // The native-buffer forms, `full` as for Arrays.
        private void Buffers(bool full, IntPtr input, long inputBytes, int height, int width, int stride,
                             PixelFormat inputFormat, DemosaicMethod method, IntPtr output, long outputBytes, int threads,
                             bool develop = false)
        {
            if (input == IntPtr.Zero) throw new ArgumentNullException(nameof(input));
            if (output == IntPtr.Zero) throw new ArgumentNullException(nameof(output));
            if (inputBytes < 0) throw new ArgumentOutOfRangeException(nameof(inputBytes));
            if (outputBytes < 0) throw new ArgumentOutOfRangeException(nameof(outputBytes));
            Run(full, new Pinned(input, inputBytes), height, width, stride, inputFormat, method,
                new Pinned(output, outputBytes), threads, develop);
        }

        // The common path of both entry points: the checks the binding can make, then the library's own.
        // `full`: vqpDemosaicing16 into OutputFormat16; otherwise vqpDemosaicing into OutputFormat (or
        // vqpDemosaicingParallel with threads other than 1); `develop`: vqpDevelop16 or vqpDevelop.
        private void Run(bool full, Pinned input, int height, int width, int stride, PixelFormat inputFormat,
                         DemosaicMethod method, Pinned output, int threads, bool develop)
        {
            using (input)
            using (output)
            {
                string name = develop ? (full ? "vqpDevelop16" : "vqpDevelop") : full ? "vqpDemosaicing16" : "vqpDemosaicing";
                if (threads < 0) throw new ArgumentOutOfRangeException(nameof(threads));
                ProcessingHandle h = Handle();
                // Sizes of 3 or less (and strides) are the library's to refuse, before it reads anything.
                if (height > 3 && width > 3 && stride > 3)
                {
                    if ((long)height * width > int.MaxValue)
                        throw new VelqoraException(VelqoraException.BadDimensions, name);
                    int bits = SampleBits(inputFormat);
                    if (bits != 0)
                    {
                        long row = bits == 8 ? width : bits == 16 ? 2L * width : (3L * width + 1) / 2;
                        if (stride < row)
                            throw new ArgumentOutOfRangeException(nameof(stride), "a row of " + inputFormat + " holds " + row + " bytes");
                        long need = (long)(height - 1) * stride + row;
                        if (input.Bytes < need)
                            throw new ArgumentException("the input holds " + input.Bytes + " bytes, the frame " + need, nameof(input));
                    }
                    long outNeed = OutputSize(height, width, full ? OutputFormat16 : OutputFormat);
                    if (output.Bytes < outNeed)
                        throw new ArgumentException("the output holds " + output.Bytes + " bytes, the frame needs " + outNeed, nameof(output));
                }
                // The library compacts padded 8-bit rows in place; the caller's buffer is left as it was by
                // handing it packed rows of a copy instead.
                Pinned packed = default(Pinned);
                if (!full && !develop && height > 3 && width > 3 && stride > width && SampleBits(inputFormat) == 8)
                {
                    var rows = new byte[(long)height * width];
                    for (int y = 0; y < height; ++y)
                        Marshal.Copy(new IntPtr(input.Address.ToInt64() + (long)y * stride), rows, y * width, width);
                    packed = Pinned.Of(rows, 0, 1);
                    stride = width;
                }
                using (packed)
                {
                    IntPtr data = packed.Address != IntPtr.Zero ? packed.Address : input.Address;
                    var fin = new ImageFrame { height = height, width = width, pixelFormat = (uint)inputFormat, data = data, stride = stride };
                    var fout = new ImageFrame { data = output.Address };
                    Check(develop ? (full ? Native.vqpDevelop16(h, ref fin, (uint)method, ref fout, (uint)threads)
                                          : Native.vqpDevelop(h, ref fin, (uint)method, ref fout, (uint)threads))
                          : full ? Native.vqpDemosaicing16(h, ref fin, (uint)method, ref fout, (uint)threads)
                          : threads == 1 ? Native.vqpDemosaicing(h, ref fin, (uint)method, ref fout)
                          : Native.vqpDemosaicingParallel(h, ref fin, (uint)method, ref fout, (uint)threads), name);
                }
            }
        }

        // Bits of one input sample as the library stores it: 8, 16, 12 for packed pairs; 0 for a code the
        // library does not read (it answers UnsupportedInputFormat before touching the buffer).
        private static int SampleBits(PixelFormat format)
        {
            if (!Enum.IsDefined(typeof(PixelFormat), format)) return 0;
            int bits = (int)(((uint)format >> 16) & 0xFF);
            return bits == 8 || bits == 16 || bits == 12 ? bits : 0;
        }

        private ProcessingHandle Handle()
        {
            if (handle.IsClosed) throw new ObjectDisposedException(nameof(Demosaicer));
            return handle;
        }

        private static void Check(int status, string function)
        {
            if (status != 0) throw new VelqoraException(status, function);
        }

        // A buffer held in place for one call: a pinned array from an offset, or a native pointer.
        private struct Pinned : IDisposable
        {
            private GCHandle pin;
            public readonly IntPtr Address;
            public readonly long Bytes;

            public Pinned(IntPtr address, long bytes)
            {
                pin = default(GCHandle);
                Address = address;
                Bytes = bytes;
            }

            // `offset` is within the array (the caller checked it).
            public static Pinned Of(Array array, int offset, int elementBytes)
            {
                var pin = GCHandle.Alloc(array, GCHandleType.Pinned);
                // An empty array holds no storage: the library gets a null pointer (NullArgument).
                IntPtr start = array.Length == 0
                    ? IntPtr.Zero
                    : new IntPtr(pin.AddrOfPinnedObject().ToInt64() + (long)offset * elementBytes);
                return new Pinned(start, (long)(array.Length - offset) * elementBytes) { pin = pin };
            }

            public void Dispose()
            {
                if (pin.IsAllocated) pin.Free();
            }
        }
    }

    // The C record of one image: int32 height, int32 width, uint32 pixelFormat, pointer data, int32 stride,
    // in that order with the C compiler's alignment (the pointer at offset 16 on 64-bit platforms).
    [StructLayout(LayoutKind.Sequential)]
    internal struct ImageFrame
    {
        public int height;
        public int width;
        public uint pixelFormat;
        public IntPtr data;
        public int stride;
    }

    internal static class Native
    {
        // "velqora": velqora.dll on Windows, libvelqora.so on Linux (the runtimes add prefix and suffix).
        private const string Library = "velqora";

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpCreate(out ProcessingHandle handleOut);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpRelease(ref IntPtr handlePtr);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpDemosaicGetConfig(ProcessingHandle handle, out ulong configOut);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpDemosaicSetConfig(ProcessingHandle handle, ref ulong config);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpDemosaicing(ProcessingHandle handle, ref ImageFrame input, uint method, ref ImageFrame output);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpDemosaicingParallel(ProcessingHandle handle, ref ImageFrame input, uint method,
                                                          ref ImageFrame output, uint threads);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpDemosaicSetConfig16(ProcessingHandle handle, ref ulong config);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpDemosaicGetConfig16(ProcessingHandle handle, out ulong configOut);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpDemosaicing16(ProcessingHandle handle, ref ImageFrame input, uint method,
                                                    ref ImageFrame output, uint threads);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern ulong vqpOutputSize(int height, int width, ulong pixelFormat);
        // Development settings (float arrays are passed as pointers to their first element; null is null).
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpSetBlackLevel(ProcessingHandle handle, float[] black);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpSetWhiteLevel(ProcessingHandle handle, float white);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpSetBalanceRatio(ProcessingHandle handle, float[] ratio);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpGetBalanceRatio(ProcessingHandle handle, [Out] float[] ratio);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpSetBalanceWhiteAuto(ProcessingHandle handle, uint mode);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpGetBalanceWhiteAuto(ProcessingHandle handle, out uint mode);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpSetColorTransformation(ProcessingHandle handle, float[] matrix);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpSetTransfer(ProcessingHandle handle, uint curve, float gamma);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpDevelop(ProcessingHandle handle, ref ImageFrame input, uint method,
                                              ref ImageFrame output, uint threads);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern int vqpDevelop16(ProcessingHandle handle, ref ImageFrame input, uint method,
                                                ref ImageFrame output, uint threads);
        // Constant strings of the library: returned as pointers, never freed by the marshaller.
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr vqpVersionString();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr vqpVectorLevel();
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr vqpStatusName(int status);
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        internal static extern IntPtr vqpStatusMessage(int status);

        internal static string String(IntPtr constant) => Marshal.PtrToStringAnsi(constant);
    }
}
