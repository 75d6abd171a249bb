#include "vexinspect/device_text.h"

#include "vexinspect/text_table.h"

namespace vexinspect {

std::string code_text(std::span<const vextools::NamedCode> names, std::optional<int64_t> code) {
    const char* name = code ? vextools::name_of(names, *code) : nullptr;
    return name != nullptr ? name : number_text(code);
}

std::string drive_kind(const Record& drive) {
    if (drive.number("media") == vextools::kMediaTape) {
        return "tape";
    }
    return code_text(vextools::kProtocolTitles, drive.number("protocol")) + " " +
           code_text(vextools::kMediaTitles, drive.number("media"));
}

std::string size_text(std::optional<int64_t> gibibytes) {
    constexpr int64_t kPerTebibyte = 1024;
    if (!gibibytes || *gibibytes == 0) {
        return "";
    }
    if (*gibibytes < kPerTebibyte) {
        return std::to_string(*gibibytes) + " GiB";
    }
    const int64_t tenths = *gibibytes * 10 / kPerTebibyte;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " TiB";
}

}  // namespace vexinspect
