// Stands in for the 16-bit mode when the tool is configured without it (VELQORA_TOOL_U16=OFF).
#include "tool.h"

namespace vqtool {

bool u16ModeBuilt() { return false; }

void convertU16(const LoadedInput &, Method, const std::string &, FileKind) {
    throw Failure(kExitUsage, "this velqora-convert was built without the 16-bit mode: configure with "
                              "-DVELQORA_TOOL_U16=ON");
}

} // namespace vqtool
