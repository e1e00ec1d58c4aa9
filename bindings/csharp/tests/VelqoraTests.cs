// Tests of the C# binding against the native library: every conversion that the C program
// tests/reference_conversions wrote into a directory (inputs, outputs and how it called the library) is
// made again through the binding, from arrays at offsets, 16-bit arrays and native buffers, and must give
// the same bytes and leave the bytes around the output alone; then every error path of the binding.
//
// Usage: mono VelqoraTests.exe REFERENCE_DIRECTORY    (prints "N passed, N failed"; exit 1 on a failure)
using System;
using System.Collections.Generic;
using System.IO;
using System.Runtime.InteropServices;
using Velqora;

internal static class VelqoraTests
{
    private static int passed, failed;

    private static void Expect(bool ok, string what)
    {
        if (ok) { ++passed; return; }
        ++failed;
        Console.WriteLine("FAILED: " + what);
    }

    private static void Throws<T>(string what, Action call, Func<T, bool> check = null) where T : Exception
    {
        try
        {
            call();
            Expect(false, what + ": no " + typeof(T).Name);
        }
        catch (T e)
        {
            Expect(check == null || check(e), what + ": " + e.Message);
        }
        catch (Exception e)
        {
            Expect(false, what + ": " + e.GetType().Name + " instead of " + typeof(T).Name + ": " + e.Message);
        }
    }

    private static Func<VelqoraException, bool> Status(int status, string name) =>
        e => e.Status == status && e.StatusName == name && e.StatusMessage.Length > 0 && e.Message.Contains(name);

    private sealed class Case
    {
        public string Id, Entry;
        public uint InputFormat, Method;
        public ulong Config;
        public int Height, Width, Stride, Threads, Status;
        public byte[] Input, Output;
        public override string ToString() =>
            "case " + Id + " (" + (PixelFormat)InputFormat + " " + Height + "x" + Width + " stride " + Stride + ", " +
            (DemosaicMethod)Method + " to " + (PixelFormat)(uint)Config + ((Config >> 32) != 0 ? " full range" : "") +
            ", threads " + Threads + ")";
    }

    private static List<Case> Read(string dir)
    {
        var cases = new List<Case>();
        foreach (string line in File.ReadAllLines(Path.Combine(dir, "manifest.txt")))
        {
            string[] f = line.Split(' ');
            cases.Add(new Case
            {
                Id = f[0], Entry = f[1], InputFormat = uint.Parse(f[2]), Height = int.Parse(f[3]), Width = int.Parse(f[4]),
                Stride = int.Parse(f[5]), Method = uint.Parse(f[6]), Config = ulong.Parse(f[7]),
                Threads = int.Parse(f[8]), Status = int.Parse(f[9]),
                Input = File.ReadAllBytes(Path.Combine(dir, f[0] + ".in")),
                Output = File.ReadAllBytes(Path.Combine(dir, f[0] + ".out")),
            });
        }
        return cases;
    }

    private const byte Fill = 0xA5; // what the C program put in every output buffer before the call
    private const int Guard = 16;

    // Runs `call` and compares with the reference: the status, then the output bytes (read by `output`
    // after the call, with Guard bytes on either side) and the guards.
    private static void Compare(Case c, string form, Func<byte[]> output, Action call)
    {
        try
        {
            call();
            Expect(c.Status == 0, c + " " + form + ": succeeded, the library returned " + c.Status);
        }
        catch (VelqoraException e)
        {
            Expect(e.Status == c.Status, c + " " + form + ": " + e.Message);
        }
        byte[] got = output();
        int at = -1;
        for (int i = 0; i < c.Output.Length && at < 0; ++i)
            if (got[Guard + i] != c.Output[i]) at = i;
        Expect(at < 0, c + " " + form + ": first differing output byte " + at);
        bool guards = true;
        for (int i = 0; i < Guard; ++i)
            guards &= got[i] == Fill && got[Guard + c.Output.Length + i] == Fill;
        Expect(guards, c + " " + form + ": bytes around the output were written");
    }

    private static byte[] Filled(int n)
    {
        var b = new byte[n];
        for (int i = 0; i < n; ++i) b[i] = Fill;
        return b;
    }

    private static byte[] Bytes(ushort[] samples)
    {
        var b = new byte[2 * samples.Length];
        Buffer.BlockCopy(samples, 0, b, 0, b.Length);
        return b;
    }

    private static ushort[] FilledSamples(int n)
    {
        var s = new ushort[n];
        for (int i = 0; i < n; ++i) s[i] = Fill * 0x101;
        return s;
    }

    // The three forms of one call: arrays at offsets (the byte[] input always, the ushort[] input for 16-bit
    // samples), then native buffers. `bytesOut`: the output as ushort[] (Demosaic16) rather than byte[].
    private delegate void ArrayCall(byte[] input, int inOffset, ushort[] samples, int sampleOffset, byte[] output,
                                    ushort[] output16, int outOffset);
    private delegate void PointerCall(IntPtr input, long inputBytes, IntPtr output, long outputBytes);

    private static void Forms(Case c, bool samplesOut, ArrayCall arrays, PointerCall pointers)
    {
        // byte[] at an offset, which the call must leave as it was.
        const int inOffset = 7;
        var input = new byte[inOffset + c.Input.Length + 3];
        Buffer.BlockCopy(c.Input, 0, input, inOffset, c.Input.Length);
        int outOffset = samplesOut ? Guard / 2 : Guard;
        byte[] output = samplesOut ? null : Filled(c.Output.Length + 2 * Guard);
        ushort[] output16 = samplesOut ? FilledSamples(c.Output.Length / 2 + Guard) : null;
        Compare(c, "byte[]", () => samplesOut ? Bytes(output16) : output,
                () => arrays(input, inOffset, null, 0, output, output16, outOffset));
        bool kept = true;
        for (int i = 0; i < c.Input.Length; ++i) kept &= input[inOffset + i] == c.Input[i];
        Expect(kept, c + ": the input was written");

        // ushort[] samples at an offset, for the formats with 16-bit samples.
        if (((c.InputFormat >> 16) & 0xFF) == 16 && c.Input.Length % 2 == 0 && c.Status == 0)
        {
            const int sampleOffset = 3;
            var samples = new ushort[sampleOffset + c.Input.Length / 2];
            Buffer.BlockCopy(c.Input, 0, samples, 2 * sampleOffset, c.Input.Length);
            output = samplesOut ? null : Filled(c.Output.Length + 2 * Guard);
            output16 = samplesOut ? FilledSamples(c.Output.Length / 2 + Guard) : null;
            Compare(c, "ushort[]", () => samplesOut ? Bytes(output16) : output,
                    () => arrays(null, 0, samples, sampleOffset, output, output16, outOffset));
        }

        // Native buffers.
        IntPtr src = Marshal.AllocHGlobal(c.Input.Length), dst = Marshal.AllocHGlobal(c.Output.Length + 2 * Guard);
        try
        {
            Marshal.Copy(c.Input, 0, src, c.Input.Length);
            Marshal.Copy(Filled(c.Output.Length + 2 * Guard), 0, dst, c.Output.Length + 2 * Guard);
            byte[] back = new byte[c.Output.Length + 2 * Guard];
            Compare(c, "IntPtr", () => { Marshal.Copy(dst, back, 0, back.Length); return back; },
                    () => pointers(src, c.Input.Length, dst + Guard, c.Output.Length));
        }
        finally
        {
            Marshal.FreeHGlobal(src);
            Marshal.FreeHGlobal(dst);
        }
    }

    private static void Conversions(Demosaicer d, List<Case> cases)
    {
        int count = 0;
        foreach (Case c in cases)
        {
            var format = (PixelFormat)c.InputFormat;
            var method = (DemosaicMethod)c.Method;
            if (c.Entry == "demosaic" || c.Entry == "parallel")
            {
                d.OutputFormat = (PixelFormat)(uint)c.Config;
                int threads = c.Entry == "parallel" ? c.Threads : 1;
                Forms(c, false,
                      (input, inOffset, samples, sampleOffset, output, output16, outOffset) =>
                      {
                          if (samples == null)
                              d.Demosaic(input, inOffset, c.Height, c.Width, c.Stride, format, method, output, outOffset, threads);
                          else
                              d.Demosaic(samples, sampleOffset, c.Height, c.Width, c.Stride, format, method, output, outOffset, threads);
                      },
                      (src, srcBytes, dst, dstBytes) =>
                          d.Demosaic(src, srcBytes, c.Height, c.Width, c.Stride, format, method, dst, dstBytes, threads));
            }
            else if (c.Entry == "full16")
            {
                d.OutputFormat16 = (PixelFormat)(uint)c.Config;
                d.FullRange16 = (c.Config >> 32) != 0;
                Forms(c, true,
                      (input, inOffset, samples, sampleOffset, output, output16, outOffset) =>
                      {
                          if (samples == null)
                              d.Demosaic16(input, inOffset, c.Height, c.Width, c.Stride, format, method, output16, outOffset, c.Threads);
                          else
                              d.Demosaic16(samples, sampleOffset, c.Height, c.Width, c.Stride, format, method, output16, outOffset, c.Threads);
                      },
                      (src, srcBytes, dst, dstBytes) =>
                          d.Demosaic16(src, srcBytes, c.Height, c.Width, c.Stride, format, method, dst, dstBytes, c.Threads));
            }
            else
            {
                continue; // the other 16-bit entry points have no wrapper
            }
            ++count;
        }
        Expect(count > 220, "the references hold " + count + " conversions");
    }

    private static void Errors(Demosaicer d)
    {
        d.OutputFormat = PixelFormat.Bgr8;
        var raw = new byte[64 * 48];
        var rgb = new byte[64 * 48 * 3];
        var fmt = PixelFormat.BayerRG8;
        var m = DemosaicMethod.Bilinear;

        Throws<ArgumentNullException>("null input", () => d.Demosaic((byte[])null, 0, 48, 64, 64, fmt, m, rgb, 0));
        Throws<ArgumentNullException>("null output", () => d.Demosaic(raw, 0, 48, 64, 64, fmt, m, null, 0));
        Throws<ArgumentNullException>("null ushort[] input", () => d.Demosaic((ushort[])null, 0, 48, 64, 128, PixelFormat.Mono12, m, rgb, 0));
        Throws<ArgumentNullException>("zero IntPtr", () => d.Demosaic(IntPtr.Zero, 0, 48, 64, 64, fmt, m, IntPtr.Zero, 0));
        Throws<ArgumentOutOfRangeException>("negative input offset", () => d.Demosaic(raw, -1, 48, 64, 64, fmt, m, rgb, 0));
        Throws<ArgumentOutOfRangeException>("output offset past the end", () => d.Demosaic(raw, 0, 48, 64, 64, fmt, m, rgb, rgb.Length + 1));
        Throws<ArgumentOutOfRangeException>("stride below a row", () => d.Demosaic(raw, 0, 48, 64, 63, fmt, m, rgb, 0));
        Throws<ArgumentOutOfRangeException>("packed stride below a row", () => d.Demosaic(raw, 0, 8, 64, 95, PixelFormat.BayerRG12Packed, m, rgb, 0));
        Throws<ArgumentException>("input too small at its offset", () => d.Demosaic(raw, 1, 48, 64, 64, fmt, m, rgb, 0));
        Throws<ArgumentException>("16-bit input too small", () => d.Demosaic(raw, 0, 48, 64, 128, PixelFormat.BayerGB16, m, rgb, 0));
        Throws<ArgumentException>("output too small", () => d.Demosaic(raw, 0, 48, 64, 64, fmt, m, rgb, 1));
        Throws<ArgumentException>("BGRA output in a BGR buffer", () => { d.OutputFormat = PixelFormat.Bgra8; d.Demosaic(raw, 0, 48, 64, 64, fmt, m, rgb, 0); });
        d.OutputFormat = PixelFormat.Bgr8;
        Throws<ArgumentException>("ushort[] with 8-bit samples", () => d.Demosaic(new ushort[64 * 48], 0, 48, 64, 64, fmt, m, rgb, 0));
        Throws<ArgumentOutOfRangeException>("negative threads", () => d.Demosaic(raw, 0, 48, 64, 64, fmt, m, rgb, 0, -1));
        Throws<ArgumentOutOfRangeException>("negative IntPtr size", () =>
        {
            var pin = GCHandle.Alloc(raw, GCHandleType.Pinned);
            try { d.Demosaic(pin.AddrOfPinnedObject(), -1, 48, 64, 64, fmt, m, pin.AddrOfPinnedObject(), 10); }
            finally { pin.Free(); }
        });

        // The library's statuses, with its names and messages.
        Throws<VelqoraException>("empty arrays: null data", () => d.Demosaic(new byte[0], 0, 3, 3, 3, fmt, m, new byte[0], 0),
            Status(VelqoraException.NullArgument, "VQP_ERR_NULL_ARGUMENT"));
        Throws<VelqoraException>("width 3", () => d.Demosaic(raw, 0, 48, 3, 64, fmt, m, rgb, 0),
            Status(VelqoraException.BadDimensions, "VQP_ERR_BAD_DIMENSIONS"));
        Throws<VelqoraException>("stride 3", () => d.Demosaic(raw, 0, 48, 64, 3, fmt, m, rgb, 0),
            Status(VelqoraException.BadDimensions, "VQP_ERR_BAD_DIMENSIONS"));
        Throws<VelqoraException>("unknown input format", () => d.Demosaic(raw, 0, 48, 64, 64, (PixelFormat)0x01080002, m, rgb, 0),
            Status(VelqoraException.UnsupportedInputFormat, "VQP_ERR_UNSUPPORTED_INPUT_FORMAT"));
        Throws<VelqoraException>("unknown output format", () => d.OutputFormat = (PixelFormat)0x02180023,
            Status(VelqoraException.UnsupportedOutputFormat, "VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT"));
        Expect(d.OutputFormat == PixelFormat.Bgr8, "a refused output format keeps the old one");
        Throws<VelqoraException>("upper bits of the output format", () => d.OutputFormat = (PixelFormat)0x82180015,
            Status(VelqoraException.UnsupportedOutputFormat, "VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT"));

        // The full-depth entry point: its own configuration, its own checks.
        var out16 = new ushort[64 * 48 * 3];
        d.OutputFormat16 = PixelFormat.Rgb16Planar;
        d.FullRange16 = true;
        Expect(d.OutputFormat16 == PixelFormat.Rgb16Planar && d.FullRange16 && d.OutputFormat == PixelFormat.Bgr8,
               "16-bit layout and range are kept apart from each other and from the 8-bit format");
        d.FullRange16 = false;
        Expect(d.OutputFormat16 == PixelFormat.Rgb16Planar && !d.FullRange16, "clearing the range keeps the layout");
        Throws<VelqoraException>("8-bit output format for Demosaic16", () => d.OutputFormat16 = PixelFormat.Bgr8,
            Status(VelqoraException.UnsupportedOutputFormat, "VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT"));
        Throws<VelqoraException>("8-bit input to Demosaic16", () => d.Demosaic16(raw, 0, 48, 64, 64, fmt, m, out16, 0),
            Status(VelqoraException.UnsupportedInputFormat, "VQP_ERR_UNSUPPORTED_INPUT_FORMAT"));
        Throws<ArgumentException>("Demosaic16 output too small", () =>
            d.Demosaic16(new ushort[64 * 48], 0, 48, 64, 128, PixelFormat.BayerRG12, m, out16, 1));
        Throws<ArgumentOutOfRangeException>("Demosaic16 stride below a row", () =>
            d.Demosaic16(new ushort[64 * 48], 0, 48, 64, 127, PixelFormat.BayerRG12, m, out16, 0));
        Throws<ArgumentNullException>("Demosaic16 null output", () =>
            d.Demosaic16(new ushort[64 * 48], 0, 48, 64, 128, PixelFormat.BayerRG12, m, null, 0));
        Throws<ArgumentException>("Demosaic16 ushort[] with packed samples", () =>
            d.Demosaic16(new ushort[64 * 48], 0, 48, 64, 96, PixelFormat.BayerRG12Packed, m, out16, 0));

        // Frames the binding refuses before the call, and scratch the library cannot have: native buffers
        // that claim more than they hold (nothing is read or written on these paths).
        IntPtr small = Marshal.AllocHGlobal(64);
        try
        {
            Throws<VelqoraException>("46341 x 46341 pixels", () =>
                d.Demosaic(small, long.MaxValue, 46341, 46341, 46341, fmt, m, small, long.MaxValue),
                Status(VelqoraException.BadDimensions, "VQP_ERR_BAD_DIMENSIONS"));
            Throws<VelqoraException>("scratch over 2 GiB", () =>
                d.Demosaic(small, long.MaxValue, 46341, 46340, 2 * 46340, PixelFormat.Mono10, m, small, long.MaxValue),
                Status(VelqoraException.OutOfMemory, "VQP_ERR_OUT_OF_MEMORY"));
        }
        finally
        {
            Marshal.FreeHGlobal(small);
        }
    }

    private static void Lifetime()
    {
        var d = new Demosaicer();
        d.Dispose();
        d.Dispose(); // a second Dispose does nothing
        Throws<ObjectDisposedException>("Demosaic after Dispose", () =>
            d.Demosaic(new byte[64], 0, 8, 8, 8, PixelFormat.BayerRG8, DemosaicMethod.Nearest, new byte[192], 0));
        Throws<ObjectDisposedException>("OutputFormat after Dispose", () => { var f = d.OutputFormat; });

        // Handles never disposed are released by their finalizers; a release that ran twice, or on a handle
        // in use, would crash or corrupt the heap here.
        var raw = new byte[64 * 64];
        var rgb = new byte[64 * 64 * 3];
        for (int i = 0; i < 200; ++i)
        {
            var forgotten = new Demosaicer();
            forgotten.Demosaic(raw, 0, 64, 64, 64, PixelFormat.BayerGB8, DemosaicMethod.Edge, rgb, 0);
        }
        GC.Collect();
        GC.WaitForPendingFinalizers();
        GC.Collect();
        using (var fresh = new Demosaicer())
            Expect(fresh.OutputFormat == PixelFormat.Bgr8, "a fresh handle writes BGR8");
    }

    private static int Main(string[] args)
    {
        if (args.Length != 1)
        {
            Console.Error.WriteLine("usage: VelqoraTests.exe REFERENCE_DIRECTORY");
            return 2;
        }
        string version = File.ReadAllText(Path.Combine(args[0], "version.txt")).Trim();
        Expect(Demosaicer.Version == version, "Version " + Demosaicer.Version + ", the C program saw " + version);
        string level = Demosaicer.VectorLevel;
        Expect(Array.IndexOf(new[] { "scalar", "avx2", "avx512", "neon" }, level) >= 0, "VectorLevel " + level);
        Console.WriteLine("library " + Demosaicer.Version + ", vector level " + level);

        using (var d = new Demosaicer())
        {
            Conversions(d, Read(args[0]));
            Errors(d);
        }
        Lifetime();

        Console.WriteLine(passed + " passed, " + failed + " failed");
        return failed == 0 ? 0 : 1;
    }
}
