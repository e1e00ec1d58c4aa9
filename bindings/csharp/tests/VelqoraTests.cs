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
    private static int passed, failed, skipped;

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
        public uint InputFormat, Method, OutputFormat;
        public int Height, Width, Stride, Threads, Status;
        public byte[] Input, Output;
        public override string ToString() =>
            "case " + Id + " (" + (PixelFormat)InputFormat + " " + Height + "x" + Width + " stride " + Stride + ", " +
            (DemosaicMethod)Method + " to " + (PixelFormat)OutputFormat + ", threads " + Threads + ")";
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
                Stride = int.Parse(f[5]), Method = uint.Parse(f[6]), OutputFormat = uint.Parse(f[7]),
                Threads = int.Parse(f[8]), Status = int.Parse(f[9]),
                Input = File.ReadAllBytes(Path.Combine(dir, f[0] + ".in")),
                Output = File.ReadAllBytes(Path.Combine(dir, f[0] + ".out")),
            });
        }
        return cases;
    }

    private const byte Fill = 0xA5; // what the C program put in every output buffer before the call
    private const int Guard = 16;

    // Runs `call` and compares with the reference: the status, then the output bytes and the guards.
    private static void Compare(Case c, string form, byte[] output, int offset, Action call)
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
        int at = -1;
        for (int i = 0; i < c.Output.Length && at < 0; ++i)
            if (output[offset + i] != c.Output[i]) at = i;
        Expect(at < 0, c + " " + form + ": first differing output byte " + at);
        bool guards = true;
        for (int i = 0; i < Guard; ++i)
            guards &= output[offset - 1 - i] == Fill && output[offset + c.Output.Length + i] == Fill;
        Expect(guards, c + " " + form + ": bytes around the output were written");
    }

    private static byte[] Filled(int n)
    {
        var b = new byte[n];
        for (int i = 0; i < n; ++i) b[i] = Fill;
        return b;
    }

    private static void Conversions(Demosaicer d, List<Case> cases)
    {
        int count = 0;
        foreach (Case c in cases)
        {
            if (c.Entry != "demosaic" && c.Entry != "parallel") continue; // the 16-bit family has no wrapper
            ++count;
            d.OutputFormat = (PixelFormat)c.OutputFormat;
            var format = (PixelFormat)c.InputFormat;
            var method = (DemosaicMethod)c.Method;
            int threads = c.Entry == "parallel" ? c.Threads : 1;

            // byte[] at an offset, which the call must leave as it was.
            const int inOffset = 7;
            var input = new byte[inOffset + c.Input.Length + 3];
            Buffer.BlockCopy(c.Input, 0, input, inOffset, c.Input.Length);
            byte[] output = Filled(c.Output.Length + 2 * Guard);
            Compare(c, "byte[]", output, Guard, () =>
                d.Demosaic(input, inOffset, c.Height, c.Width, c.Stride, format, method, output, Guard, threads));
            bool kept = true;
            for (int i = 0; i < c.Input.Length; ++i) kept &= input[inOffset + i] == c.Input[i];
            Expect(kept, c + ": the input was written");

            // Native buffers.
            IntPtr src = Marshal.AllocHGlobal(c.Input.Length), dst = Marshal.AllocHGlobal(c.Output.Length + 2 * Guard);
            try
            {
                Marshal.Copy(c.Input, 0, src, c.Input.Length);
                Marshal.Copy(Filled(c.Output.Length + 2 * Guard), 0, dst, c.Output.Length + 2 * Guard);
                byte[] back = new byte[c.Output.Length + 2 * Guard];
                Compare(c, "IntPtr", back, Guard, () =>
                {
                    try
                    {
                        d.Demosaic(src, c.Input.Length, c.Height, c.Width, c.Stride, format, method,
                                   dst + Guard, c.Output.Length, threads);
                    }
                    finally
                    {
                        Marshal.Copy(dst, back, 0, back.Length);
                    }
                });
            }
            finally
            {
                Marshal.FreeHGlobal(src);
                Marshal.FreeHGlobal(dst);
            }

            // ushort[] samples at an offset, for the formats with 16-bit samples.
            if (((c.InputFormat >> 16) & 0xFF) == 16 && c.Input.Length % 2 == 0 && c.Status == 0)
            {
                const int sampleOffset = 3;
                var samples = new ushort[sampleOffset + c.Input.Length / 2];
                Buffer.BlockCopy(c.Input, 0, samples, 2 * sampleOffset, c.Input.Length);
                byte[] out16 = Filled(c.Output.Length + 2 * Guard);
                Compare(c, "ushort[]", out16, Guard, () =>
                    d.Demosaic(samples, sampleOffset, c.Height, c.Width, c.Stride, format, method, out16, Guard, threads));
            }
        }
        Expect(count > 150, "the references hold " + count + " conversions");
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
        try
        {
            string level = Demosaicer.VectorLevel;
            Expect(Array.IndexOf(new[] { "scalar", "avx2", "avx512", "neon" }, level) >= 0, "VectorLevel " + level);
            Console.WriteLine("library " + Demosaicer.Version + ", vector level " + level);
        }
        catch (EntryPointNotFoundException)
        {
            ++skipped; // a library older than vqpVectorLevel
            Console.WriteLine("library " + Demosaicer.Version + " has no vqpVectorLevel: VectorLevel not tested");
        }

        using (var d = new Demosaicer())
        {
            Conversions(d, Read(args[0]));
            Errors(d);
        }
        Lifetime();

        Console.WriteLine(passed + " passed, " + failed + " failed" + (skipped > 0 ? ", " + skipped + " skipped" : ""));
        return failed == 0 ? 0 : 1;
    }
}
