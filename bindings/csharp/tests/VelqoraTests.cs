// Tests of the C# binding against the native library: every conversion that the C program
// tests/reference_conversions wrote into a directory (inputs, outputs and how it called the library) is
// made again through the binding, from arrays at offsets, 16-bit arrays and native buffers, and must give
// the same status and bytes and leave the bytes around the output alone; then every error path of the binding.
//
// Usage: mono VelqoraTests.exe REFERENCE_DIRECTORY    (prints "N passed, N failed"; exit 1 on a failure)
using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Runtime.InteropServices;
using System.Threading;
using Velqora;

internal static class VelqoraTests
{
    private static int passed, failed;

    private static void Expect(bool ok, string what)
    {
        if (ok) ++passed;
        else { ++failed; Console.WriteLine("FAILED: " + what); }
    }

    // `call` must throw a T; a VelqoraException must carry `status` with the library's name and message for it.
    private static void Throws<T>(string what, Action call, int status = 0, string name = null) where T : Exception
    {
        try { call(); Expect(false, what + ": no " + typeof(T).Name); }
        catch (Exception e)
        {
            var v = e as VelqoraException;
            Expect(e is T && (v == null || v.Status == status && v.StatusName == name && v.StatusMessage.Length > 0 &&
                              v.Message.Contains(name)), what + ": " + e.GetType().Name + ": " + e.Message);
        }
    }

    private const byte Fill = 0xA5; // what the C program put in every output buffer before the call
    private const int Guard = 16;   // bytes of Fill either side of the output, which must stay as they are

    // Fills `output` with Fill, runs `call` on it, and compares the status and every byte of `output` with
    // the reference output between its guards.
    private static void Compare(string[] c, byte[] reference, string form, Array output, Action<Array> call)
    {
        int size = Buffer.ByteLength(output), status = 0;
        var expected = Enumerable.Repeat(Fill, size).ToArray();
        Buffer.BlockCopy(expected, 0, output, 0, size);
        Buffer.BlockCopy(reference, 0, expected, Guard, reference.Length);
        try { call(output); }
        catch (VelqoraException e) { status = e.Status; }
        var got = new byte[size];
        Buffer.BlockCopy(output, 0, got, 0, size);
        int at = Enumerable.Range(0, size).Where(i => got[i] != expected[i]).DefaultIfEmpty(-1).First();
        Expect(status == int.Parse(c[9]) && at < 0,
               string.Join(" ", c) + " " + form + ": status " + status + (at < 0 ? "" : ", byte " + (at - Guard) + " differs"));
    }

    // One reference conversion through every form that takes it: byte[] input at an offset (which must be
    // left as it was), ushort[] input at an offset for formats of 16-bit samples, native buffers.
    private static void Conversion(Demosaicer d, string dir, string[] c)
    {
        byte[] input = File.ReadAllBytes(Path.Combine(dir, c[0] + ".in"));
        byte[] reference = File.ReadAllBytes(Path.Combine(dir, c[0] + ".out"));
        var f = (PixelFormat)uint.Parse(c[2]);
        var m = (DemosaicMethod)uint.Parse(c[6]);
        int h = int.Parse(c[3]), w = int.Parse(c[4]), s = int.Parse(c[5]), t = c[1] == "demosaic" ? 1 : int.Parse(c[8]);
        ulong config = ulong.Parse(c[7]);
        bool full = c[1] == "full16" || c[1] == "develop16", develop = c[1].StartsWith("develop");
        // Before each call: Once measures one frame and returns to Off.
        Action settings = () => { if (develop) DevelopSettings(d, c[1] == "develop-once"); };
        if (full)
        {
            d.OutputFormat16 = (PixelFormat)(uint)config;
            d.FullRange16 = (config >> 32) != 0;
        }
        else d.OutputFormat = (PixelFormat)(uint)config;
        int size = reference.Length + 2 * Guard;
        Func<Array> output = () => full ? (Array)new ushort[size / 2] : new byte[size];

        var bytes = new byte[7 + input.Length];
        Buffer.BlockCopy(input, 0, bytes, 7, input.Length);
        Compare(c, reference, "byte[]", output(), o =>
        {
            settings();
            if (develop && full) d.Develop16(bytes, 7, h, w, s, f, m, (ushort[])o, Guard / 2, t);
            else if (develop) d.Develop(bytes, 7, h, w, s, f, m, (byte[])o, Guard, t);
            else if (full) d.Demosaic16(bytes, 7, h, w, s, f, m, (ushort[])o, Guard / 2, t);
            else d.Demosaic(bytes, 7, h, w, s, f, m, (byte[])o, Guard, t);
        });
        Expect(bytes.Skip(7).SequenceEqual(input), string.Join(" ", c) + ": the input was written");
        Expect(d.BalanceWhiteAuto == BalanceWhiteAuto.Off, string.Join(" ", c) + ": automatic balance still on");

        if (((uint)f >> 16 & 0xFF) == 16 && c[9] == "0")
        {
            var samples = new ushort[3 + input.Length / 2];
            Buffer.BlockCopy(input, 0, samples, 6, input.Length);
            Compare(c, reference, "ushort[]", output(), o =>
            {
                settings();
                if (develop && full) d.Develop16(samples, 3, h, w, s, f, m, (ushort[])o, Guard / 2, t);
                else if (develop) d.Develop(samples, 3, h, w, s, f, m, (byte[])o, Guard, t);
                else if (full) d.Demosaic16(samples, 3, h, w, s, f, m, (ushort[])o, Guard / 2, t);
                else d.Demosaic(samples, 3, h, w, s, f, m, (byte[])o, Guard, t);
            });
        }

        IntPtr src = Marshal.AllocHGlobal(input.Length), dst = Marshal.AllocHGlobal(size);
        Marshal.Copy(input, 0, src, input.Length);
        Compare(c, reference, "IntPtr", new byte[size], o =>
        {
            Marshal.Copy((byte[])o, 0, dst, size);
            settings();
            try
            {
                if (develop && full) d.Develop16(src, input.Length, h, w, s, f, m, dst + Guard, reference.Length, t);
                else if (develop) d.Develop(src, input.Length, h, w, s, f, m, dst + Guard, reference.Length, t);
                else if (full) d.Demosaic16(src, input.Length, h, w, s, f, m, dst + Guard, reference.Length, t);
                else d.Demosaic(src, input.Length, h, w, s, f, m, dst + Guard, reference.Length, t);
            }
            finally { Marshal.Copy(dst, (byte[])o, 0, size); }
        });
        Marshal.FreeHGlobal(src);
        Marshal.FreeHGlobal(dst);
    }

    // The settings tests/reference_conversions gives every development case, with automatic balance Once or Off.
    private static void DevelopSettings(Demosaicer d, bool once = false)
    {
        d.SetBlackLevel(new float[] { 64, 70, 70, 80 });
        d.BalanceRatio = new float[] { 1.8f, 1.0f, 1.4f };
        d.SetColorTransformation(new float[] { 1.6f, -0.4f, -0.2f, -0.3f, 1.5f, -0.2f, 0.1f, -0.5f, 1.4f });
        d.SetTransfer(Transfer.Srgb);
        if (once) d.BalanceWhiteAuto = BalanceWhiteAuto.Once;
    }

    // The settings: refused values throw BadParameter and change nothing (the frame develops to the same
    // bytes); Develop refuses a black level at or above the input depth's white; the getters read back.
    private static void Settings()
    {
        const int h = 64, w = 96;
        var raw = new ushort[h * w];
        var rng = new Random(5);
        for (int i = 0; i < raw.Length; ++i) raw[i] = (ushort)rng.Next(4096);
        using (var d = new Demosaicer())
        {
            Func<byte[]> develop = () =>
            {
                var bgr = new byte[h * w * 3];
                d.Develop(raw, 0, h, w, 2 * w, PixelFormat.BayerRG12, DemosaicMethod.Bilinear, bgr, 0);
                return bgr;
            };
            DevelopSettings(d);
            d.SetWhiteLevel(4000);
            d.SetTransfer(Transfer.Gamma, 1.8f);
            byte[] before = develop();
            var refused = new Dictionary<string, Action>
            {
                { "black NaN", () => d.SetBlackLevel(float.NaN) },
                { "black -1", () => d.SetBlackLevel(new float[] { 0, 0, -1, 0 }) },
                { "black at white", () => d.SetBlackLevel(4000) },
                { "white below black", () => d.SetWhiteLevel(50) },
                { "white infinite", () => d.SetWhiteLevel(float.PositiveInfinity) },
                { "gain infinite", () => d.BalanceRatio = new[] { 1, float.PositiveInfinity, 1 } },
                { "gain -1", () => d.BalanceRatio = new[] { 1, 1, -1f } },
                { "matrix NaN", () => d.SetColorTransformation(new[] { 1, 0, 0, 0, float.NaN, 0, 0, 0, 1f }) },
                { "gamma 0", () => d.SetTransfer(Transfer.Gamma, 0) },
                { "gamma 10.5", () => d.SetTransfer(Transfer.Gamma, 10.5f) },
                { "curve 3", () => d.SetTransfer((Transfer)3) },
                { "mode 7", () => d.BalanceWhiteAuto = (BalanceWhiteAuto)7 },
            };
            foreach (var r in refused)
                Throws<VelqoraException>(r.Key, r.Value, VelqoraException.BadParameter, "VQP_ERR_BAD_PARAMETER");
            Throws<ArgumentException>("three black levels", () => d.SetBlackLevel(new float[3]));
            Throws<ArgumentException>("eight matrix entries", () => d.SetColorTransformation(new float[8]));
            Throws<ArgumentNullException>("null gains", () => d.BalanceRatio = null);
            Expect(d.BalanceRatio.SequenceEqual(new[] { 1.8f, 1.0f, 1.4f }), "gains kept after refusals");
            Expect(d.BalanceWhiteAuto == BalanceWhiteAuto.Off, "balance off after setting gains");
            Expect(develop().SequenceEqual(before), "refused settings changed the developed frame");
            // 300 is above 8-bit white (255): refused by the call, not by the setter.
            d.SetWhiteLevel(0);
            d.SetBlackLevel(300);
            Throws<VelqoraException>("Develop: black above 8-bit white", () => d.Develop(new byte[h * w], 0, h, w, w,
                                     PixelFormat.BayerRG8, DemosaicMethod.Bilinear, new byte[h * w * 3], 0),
                                     VelqoraException.BadParameter, "VQP_ERR_BAD_PARAMETER");
        }
    }

    private static void Errors(Demosaicer d)
    {
        d.OutputFormat = PixelFormat.Bgr8;
        var raw = new byte[64 * 48];
        var rgb = new byte[64 * 48 * 3];
        var raw16 = new ushort[64 * 48];
        var out16 = new ushort[64 * 48 * 3];
        PixelFormat fmt = PixelFormat.BayerRG8, rg12 = PixelFormat.BayerRG12, rg12p = PixelFormat.BayerRG12Packed;
        var m = DemosaicMethod.Bilinear;
        IntPtr small = Marshal.AllocHGlobal(64);
        long huge = long.MaxValue;

        // Arguments the binding refuses before the call.
        Throws<ArgumentNullException>("null input", () => d.Demosaic((byte[])null, 0, 48, 64, 64, fmt, m, rgb, 0));
        Throws<ArgumentNullException>("Demosaic16 null output", () => d.Demosaic16(raw16, 0, 48, 64, 128, rg12, m, null, 0));
        Throws<ArgumentNullException>("zero IntPtr", () => d.Demosaic(IntPtr.Zero, 0, 48, 64, 64, fmt, m, IntPtr.Zero, 0));
        Throws<ArgumentOutOfRangeException>("negative IntPtr size", () => d.Demosaic(small, -1, 48, 64, 64, fmt, m, small, 10));
        Throws<ArgumentOutOfRangeException>("negative input offset", () => d.Demosaic(raw, -1, 48, 64, 64, fmt, m, rgb, 0));
        Throws<ArgumentOutOfRangeException>("output offset past the end", () => d.Demosaic(raw, 0, 48, 64, 64, fmt, m, rgb, rgb.Length + 1));
        Throws<ArgumentOutOfRangeException>("negative threads", () => d.Demosaic(raw, 0, 48, 64, 64, fmt, m, rgb, 0, -1));
        Throws<ArgumentOutOfRangeException>("stride below a row", () => d.Demosaic(raw, 0, 48, 64, 63, fmt, m, rgb, 0));
        Throws<ArgumentOutOfRangeException>("packed stride below a row", () => d.Demosaic(raw, 0, 8, 64, 95, rg12p, m, rgb, 0));
        Throws<ArgumentOutOfRangeException>("16-bit stride below a row", () => d.Demosaic16(raw16, 0, 48, 64, 127, rg12, m, out16, 0));
        Throws<ArgumentException>("input too small at its offset", () => d.Demosaic(raw, 1, 48, 64, 64, fmt, m, rgb, 0));
        Throws<ArgumentException>("16-bit input too small", () => d.Demosaic(raw, 0, 48, 64, 128, PixelFormat.BayerGB16, m, rgb, 0));
        Throws<ArgumentException>("output too small at its offset", () => d.Demosaic16(raw16, 0, 48, 64, 128, rg12, m, out16, 1));
        d.OutputFormat = PixelFormat.Bgra8;
        Throws<ArgumentException>("BGRA output in a BGR buffer", () => d.Demosaic(raw, 0, 48, 64, 64, fmt, m, rgb, 0));
        d.OutputFormat = PixelFormat.Bgr8;
        Throws<ArgumentException>("ushort[] with packed samples", () => d.Demosaic16(raw16, 0, 48, 64, 96, rg12p, m, out16, 0));

        // Statuses with the library's names and messages. Native buffers that claim more than they hold reach
        // refusals that read and write nothing.
        Throws<VelqoraException>("46341 x 46341 pixels", () => d.Demosaic(small, huge, 46341, 46341, 46341, fmt, m, small, huge),
                                 VelqoraException.BadDimensions, "VQP_ERR_BAD_DIMENSIONS");
        Throws<VelqoraException>("scratch over 2 GiB", () => d.Demosaic(small, huge, 46341, 46340, 92680, PixelFormat.Mono10, m, small, huge),
                                 VelqoraException.OutOfMemory, "VQP_ERR_OUT_OF_MEMORY");
        Throws<VelqoraException>("empty arrays: null data", () => d.Demosaic(new byte[0], 0, 3, 3, 3, fmt, m, new byte[0], 0),
                                 VelqoraException.NullArgument, "VQP_ERR_NULL_ARGUMENT");
        Throws<VelqoraException>("stride 3", () => d.Demosaic(raw, 0, 48, 64, 3, fmt, m, rgb, 0),
                                 VelqoraException.BadDimensions, "VQP_ERR_BAD_DIMENSIONS");
        Throws<VelqoraException>("unknown input format", () => d.Demosaic(raw, 0, 48, 64, 64, (PixelFormat)0x01080002, m, rgb, 0),
                                 VelqoraException.UnsupportedInputFormat, "VQP_ERR_UNSUPPORTED_INPUT_FORMAT");
        Throws<VelqoraException>("8-bit input to Demosaic16", () => d.Demosaic16(raw, 0, 48, 64, 64, fmt, m, out16, 0),
                                 VelqoraException.UnsupportedInputFormat, "VQP_ERR_UNSUPPORTED_INPUT_FORMAT");
        Throws<VelqoraException>("unknown output format", () => d.OutputFormat = (PixelFormat)0x02180023,
                                 VelqoraException.UnsupportedOutputFormat, "VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT");
        Throws<VelqoraException>("8-bit output format for Demosaic16", () => d.OutputFormat16 = PixelFormat.Bgr8,
                                 VelqoraException.UnsupportedOutputFormat, "VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT");
        Marshal.FreeHGlobal(small);

        // The refused output format kept the old one; the 16-bit layout and range are kept apart from each other
        // and from the 8-bit format.
        d.FullRange16 = true;
        d.OutputFormat16 = PixelFormat.Rgb16Planar;
        Expect(d.OutputFormat == PixelFormat.Bgr8 && d.OutputFormat16 == PixelFormat.Rgb16Planar && d.FullRange16,
               "setting the 16-bit layout kept the range and the 8-bit format");
        d.FullRange16 = false;
        Expect(d.OutputFormat16 == PixelFormat.Rgb16Planar && !d.FullRange16, "clearing the range kept the layout");

        // A refused call leaves nothing pinned: the arrays it was given can be collected. (Made on a thread of
        // their own, whose stack holds no stray reference once it has ended.)
        var arrays = new List<WeakReference>();
        var thread = new Thread(() =>
        {
            for (int i = 0; i < 3; ++i)
            {
                var a = new byte[64 * 48];
                var o = new byte[64 * 48 * 3];
                arrays.Add(new WeakReference(a));
                arrays.Add(new WeakReference(o));
                try
                {
                    if (i == 0) d.Demosaic(a, 0, 48, 64, 64, fmt, m, o, o.Length + 1); // refused before pinning
                    else if (i == 1) d.Demosaic(a, 0, 48, 64, 64, fmt, m, o, 0, -1);   // refused once pinned
                    else d.Demosaic(a, 0, 48, 64, 3, fmt, m, o, 0);                    // refused by the library
                }
                catch (ArgumentException) { }
                catch (VelqoraException) { }
            }
        });
        thread.Start();
        thread.Join();
        GC.Collect();
        GC.WaitForPendingFinalizers();
        GC.Collect();
        Expect(arrays.Count(r => r.IsAlive) == 0, arrays.Count(r => r.IsAlive) + " arrays of refused calls left pinned");
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
            new Demosaicer().Demosaic(raw, 0, 64, 64, 64, PixelFormat.BayerGB8, DemosaicMethod.Edge, rgb, 0);
        GC.Collect();
        GC.WaitForPendingFinalizers();
        GC.Collect();
        using (var fresh = new Demosaicer())
            Expect(fresh.OutputFormat == PixelFormat.Bgr8, "a fresh handle writes BGR8");
    }

    private static int Main(string[] args)
    {
        string dir = args[0];
        string version = File.ReadAllText(Path.Combine(dir, "version.txt"));
        Expect(Demosaicer.Version == version, "Version " + Demosaicer.Version + ", the C program saw " + version);
        string level = Demosaicer.VectorLevel;
        Expect(new[] { "scalar", "avx2", "avx512", "neon" }.Contains(level), "VectorLevel " + level);
        Console.WriteLine("library " + Demosaicer.Version + ", vector level " + level);

        using (var d = new Demosaicer())
        {
            // The other 16-bit entry points have no wrapper.
            var cases = File.ReadAllLines(Path.Combine(dir, "manifest.txt")).Select(l => l.Split(' '))
                            .Where(c => c[1] == "demosaic" || c[1] == "parallel" || c[1] == "full16" ||
                                        c[1].StartsWith("develop")).ToList();
            Expect(cases.Count > 220, "the references hold " + cases.Count + " conversions");
            foreach (string[] c in cases) Conversion(d, dir, c);
            Errors(d);
        }
        Lifetime();
        Settings();

        Console.WriteLine(passed + " passed, " + failed + " failed");
        return failed == 0 ? 0 : 1;
    }
}
