// velqora-convert's development options: parsing and their settings on a handle.
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "tool.h"
#include "velqora.h"

namespace vqtool {

namespace {

[[noreturn]] void bad(const std::string &option, const std::string &what, const std::string &value) {
    throw Failure(kExitUsage, option + ": expected " + what + ", got '" + value + "' (see --help)");
}

// Comma-separated finite numbers.
std::vector<float> numbers(const std::string &option, const std::string &what, const std::string &value) {
    std::vector<float> out;
    size_t at = 0;
    while (at <= value.size()) {
        const size_t comma = std::min(value.find(',', at), value.size());
        const std::string item = value.substr(at, comma - at);
        char *end = nullptr;
        errno = 0;
        const float v = std::strtof(item.c_str(), &end);
        if (item.empty() || *end != '\0' || errno != 0 || !std::isfinite(v)) bad(option, what, value);
        out.push_back(v);
        at = comma + 1;
    }
    return out;
}

} // namespace

void parseDevelopOption(const std::string &option, const std::string &value, DevelopOptions &d) {
    d.any = true;
    if (option == "--black") {
        const std::string what = "1 or 4 non-negative numbers, comma-separated";
        const std::vector<float> v = numbers(option, what, value);
        if (v.size() != 1 && v.size() != 4) bad(option, what, value);
        for (int i = 0; i < 4; ++i) d.blackLevels[i] = v[v.size() == 1 ? 0 : i];
        for (float b : d.blackLevels)
            if (b < 0) bad(option, what, value);
        d.black = true;
    } else if (option == "--white") {
        const std::vector<float> v = numbers(option, "a positive number", value);
        if (v.size() != 1 || !(v[0] > 0)) bad(option, "a positive number", value);
        d.whiteLevel = v[0], d.white = true;
    } else if (option == "--balance") {
        if (value == "auto") {
            d.autoBalance = true, d.balance = false;
            return;
        }
        const std::string what = "three non-negative gains R,G,B or 'auto'";
        const std::vector<float> v = numbers(option, what, value);
        if (v.size() != 3) bad(option, what, value);
        for (int i = 0; i < 3; ++i) {
            if (v[i] < 0) bad(option, what, value);
            d.gains[i] = v[i];
        }
        d.balance = true, d.autoBalance = false;
    } else if (option == "--matrix") {
        const std::string what = "nine numbers, comma-separated, row-major";
        const std::vector<float> v = numbers(option, what, value);
        if (v.size() != 9) bad(option, what, value);
        for (int i = 0; i < 9; ++i) d.matrixValues[i] = v[i];
        d.matrix = true;
    } else { // --transfer
        d.transfer = true;
        if (value == "linear") {
            d.curve = VQP_TRANSFER_LINEAR;
        } else if (value == "srgb" || value == "sRGB") {
            d.curve = VQP_TRANSFER_SRGB;
        } else {
            const std::string what = "linear, srgb or a gamma from 0 to 10 (e.g. 2.2)";
            const std::vector<float> v = numbers(option, what, value);
            if (v.size() != 1 || !(v[0] > 0 && v[0] <= 10)) bad(option, what, value);
            d.curve = VQP_TRANSFER_GAMMA, d.gamma = v[0];
        }
    }
}

void applyDevelop(const DevelopOptions &d, ProcessingHandle *handle) {
    const auto check = [](int32_t status, const char *option) {
        if (status == VQP_ERR_BAD_PARAMETER)
            throw Failure(kExitUsage, std::string(option) + ": the library refused the value " + statusTag(status) +
                                          (std::string(option) == "--black" || std::string(option) == "--white"
                                               ? ": black levels (--black) must lie below the white level (--white)"
                                               : ""));
        if (status != VQP_OK) throw Failure(kExitLibrary, std::string(option) + ": " + statusTag(status));
    };
    check(vqpSetWhiteLevel(handle, 0), "--white");
    check(vqpSetBlackLevel(handle, d.blackLevels), "--black");
    check(vqpSetWhiteLevel(handle, d.whiteLevel), "--white");
    check(vqpSetBalanceRatio(handle, d.gains), "--balance");
    if (d.autoBalance) check(vqpSetBalanceWhiteAuto(handle, VQP_BALANCE_WHITE_AUTO_ONCE), "--balance");
    check(vqpSetColorTransformation(handle, d.matrixValues), "--matrix");
    check(vqpSetTransfer(handle, d.curve, d.gamma), "--transfer");
}

} // namespace vqtool
