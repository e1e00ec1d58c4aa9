// Pixel-format names and codes as camera SDKs print them, and the sizes of frames in files.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string>

#include "tool.h"
#include "velqora.h"

namespace vqtool {
namespace {

struct InputEntry {
    const char *name;
    uint32_t code;
};

constexpr InputEntry kInputs[] = {
    {"Mono8", 0x01080001u},           {"Mono10", 0x01100003u},          {"Mono12", 0x01100005u},
    {"Mono14", 0x01100025u},          {"Mono16", 0x01100007u},          {"Mono10Packed", 0x010C0004u},
    {"Mono12Packed", 0x010C0006u},    {"BayerGR8", 0x01080008u},        {"BayerRG8", 0x01080009u},
    {"BayerGB8", 0x0108000Au},        {"BayerBG8", 0x0108000Bu},        {"BayerGR10", 0x0110000Cu},
    {"BayerRG10", 0x0110000Du},       {"BayerGB10", 0x0110000Eu},       {"BayerBG10", 0x0110000Fu},
    {"BayerGR12", 0x01100010u},       {"BayerRG12", 0x01100011u},       {"BayerGB12", 0x01100012u},
    {"BayerBG12", 0x01100013u},       {"BayerGR16", 0x0110002Eu},       {"BayerRG16", 0x0110002Fu},
    {"BayerGB16", 0x01100030u},       {"BayerBG16", 0x01100031u},       {"BayerGR10Packed", 0x010C0026u},
    {"BayerRG10Packed", 0x010C0027u}, {"BayerGB10Packed", 0x010C0028u}, {"BayerBG10Packed", 0x010C0029u},
    {"BayerGR12Packed", 0x010C002Au}, {"BayerRG12Packed", 0x010C002Bu}, {"BayerGB12Packed", 0x010C002Cu},
    {"BayerBG12Packed", 0x010C002Du}, {"BayerGR14", 0x01100109u},       {"BayerRG14", 0x0110010Au},
    {"BayerGB14", 0x0110010Bu},       {"BayerBG14", 0x0110010Cu},
};

constexpr OutputFormat kOutputs[] = {
    {VQP_PIXEL_FORMAT_BGR8, "BGR8", 3, false},
    {VQP_PIXEL_FORMAT_RGB8, "RGB8", 3, false},
    {VQP_PIXEL_FORMAT_BGRA8, "BGRA8", 4, false},
    {VQP_PIXEL_FORMAT_RGBA8, "RGBA8", 4, false},
    {VQP_PIXEL_FORMAT_RGB8_PLANAR, "RGB8_Planar", 3, true},
    {VQP_PIXEL_FORMAT_BGR8_PLANAR, "BGR8_Planar", 3, true},
    {VQP_PIXEL_FORMAT_MONO8, "Mono8", 1, false},
};

bool sameName(const std::string &a, const char *b) {
    const std::string bs(b);
    return a.size() == bs.size() && std::equal(a.begin(), a.end(), bs.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

// "0x1080009" or "0X01080009": returns false when the text is not a hex number that fits 32 bits.
bool parseHex(const std::string &text, uint32_t &value) {
    if (text.size() < 3 || text.size() > 10 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X')) return false;
    uint32_t v = 0;
    for (size_t i = 2; i < text.size(); ++i) {
        const char c = text[i];
        if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
        v = (v << 4) | uint32_t(std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : std::tolower(c) - 'a' + 10);
    }
    value = v;
    return true;
}

std::string hex(uint32_t code) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08X", code);
    return buf;
}

} // namespace

std::string statusTag(int32_t status) {
    const char *name = "unknown status";
    switch (status) {
    case VQP_OK: name = "VQP_OK"; break;
    case VQP_ERR_NULL_ARGUMENT: name = "VQP_ERR_NULL_ARGUMENT"; break;
    case VQP_ERR_OUT_OF_MEMORY: name = "VQP_ERR_OUT_OF_MEMORY"; break;
    case VQP_ERR_BAD_DIMENSIONS: name = "VQP_ERR_BAD_DIMENSIONS"; break;
    case VQP_ERR_UNSUPPORTED_INPUT_FORMAT: name = "VQP_ERR_UNSUPPORTED_INPUT_FORMAT"; break;
    case VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT: name = "VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT"; break;
    case VQP_ERR_BAD_PARAMETER: name = "VQP_ERR_BAD_PARAMETER"; break;
    }
    return "(status " + std::to_string(status) + " " + name + ")";
}

InputFormat parseInputFormat(const std::string &text) {
    InputFormat f;
    uint32_t code = 0;
    const bool isHex = parseHex(text, code);
    for (const InputEntry &e : kInputs) {
        if (isHex ? e.code == code : sameName(text, e.name)) {
            f.code = e.code;
            f.name = e.name;
            f.known = true;
            break;
        }
    }
    if (!f.known) {
        if (!isHex)
            throw Failure(kExitUsage, "unknown input format '" + text +
                                          "': give a PFNC name such as BayerRG12Packed or a hex code such as "
                                          "0x010C002B (--list-formats shows them all) " +
                                          statusTag(VQP_ERR_UNSUPPORTED_INPUT_FORMAT));
        // A code the table does not name: the library's own classification decides.
        ImageFrame probe{4, 4, code, nullptr, 4};
        int64_t phase = 0;
        int32_t rule = 0;
        const int32_t status = demosaicDataInit(&probe, nullptr, &phase, &rule);
        if (status != VQP_OK)
            throw Failure(kExitUsage, "input format " + hex(code) +
                                          " is not one the library accepts: pick one listed by --list-formats " +
                                          statusTag(status));
        f.code = code;
        f.name = hex(code);
        f.packed = rule < 0;
        f.bits = rule > 0 ? 8 + rule : (rule < 0 ? 12 : 8);
        return f;
    }
    const std::string &n = f.name;
    f.packed = n.find("Packed") != std::string::npos;
    f.bits = std::atoi(n.c_str() + (n.rfind("Mono", 0) == 0 ? 4 : 7));
    if (n.rfind("Bayer", 0) == 0) {
        f.phase[0] = n[5];
        f.phase[1] = n[6];
    }
    return f;
}

uint64_t rowBytes(const InputFormat &f, uint64_t width) {
    if (f.packed) return (width * 3 + 1) / 2;
    return width * (f.bits > 8 ? 2 : 1);
}

uint64_t defaultStride(const InputFormat &f, uint64_t width) {
    if (f.packed) return width + width / 2;
    return rowBytes(f, width);
}

uint64_t frameBytes(const InputFormat &f, uint64_t height, uint64_t width, uint64_t stride) {
    if (height == 0) return 0;
    if (f.packed && stride == defaultStride(f, width)) return (height * width * 3 + 1) / 2; // one stream
    return stride * (height - 1) + rowBytes(f, width);
}

OutputFormat parseOutputFormat(const std::string &text) {
    uint32_t code = 0;
    const bool isHex = parseHex(text, code);
    for (const OutputFormat &o : kOutputs)
        if (isHex ? o.code == code : sameName(text, o.name)) return o;
    throw Failure(kExitUsage, "unknown output format '" + text + "': use one of " + outputFormatNames() +
                                  " (and -o FILE for the output file) " +
                                  statusTag(VQP_ERR_UNSUPPORTED_OUTPUT_FORMAT));
}

const OutputFormat &outputFormatByCode(uint32_t code) {
    for (const OutputFormat &o : kOutputs)
        if (o.code == code) return o;
    return kOutputs[0];
}

std::string outputFormatNames() {
    std::string s;
    for (const OutputFormat &o : kOutputs) s += (s.empty() ? "" : ", ") + std::string(o.name);
    return s;
}

void listFormats(std::FILE *out) {
    std::fprintf(out, "Input formats (--format NAME or hex code):\n");
    for (const InputEntry &e : kInputs) std::fprintf(out, "  %-16s %s\n", e.name, hex(e.code).c_str());
    std::fprintf(out, "Output formats (--output NAME):\n");
    for (const OutputFormat &o : kOutputs) std::fprintf(out, "  %-16s %s\n", o.name, hex(o.code).c_str());
}

const char *methodName(Method m) {
    switch (m) {
    case Method::Nearest: return "nearest";
    case Method::Bilinear: return "bilinear";
    case Method::Edge: return "edge";
    }
    return "?";
}

} // namespace vqtool
