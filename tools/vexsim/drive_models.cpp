#include "vexsim/drive_models.h"

#include <cmath>

#include "support/codes.h"

namespace vexsim {

using vextools::JsonReader;

namespace {

constexpr size_t kMaxName = 100;           // chosen: fits every table of names
constexpr int kMaxDegrees = 254;           // the published byte keeps 255 for "none"
constexpr double kMaxGigabytes = 1e9;      // chosen: far beyond what the published word can say
constexpr double kBytesPerGigabyte = 1e9;  // as drives are sold

template <typename Number>
Number read_number(const JsonReader& field, Number fallback, int64_t high) {
    return static_cast<Number>(field.integer_or(static_cast<int64_t>(fallback), 0, high));
}

template <typename Number>
Number read_code(const JsonReader& field, Number fallback,
                 std::span<const vextools::NamedCode> names, int64_t high) {
    return field.exists() ? static_cast<Number>(field.code(names, 0, high)) : fallback;
}

}  // namespace

Temperature read_temperature(const JsonReader& field) {
    if (!field.exists()) {
        return {};
    }
    if (!field.is_object()) {
        return {.base = static_cast<int>(field.integer(0, kMaxDegrees))};
    }
    field.expect_object({"base", "jitter"});
    return {.base = static_cast<int>(field["base"].integer(0, kMaxDegrees)),
            .jitter = static_cast<int>(field["jitter"].integer_or(0, 0, kMaxDegrees))};
}

DriveModels::DriveModels(const JsonReader& templates) {
    if (!templates.exists()) {
        return;
    }
    for (const std::string& name : templates.member_names()) {
        models_[name] = apply(templates[name], find(templates[name]["use"]));
    }
}

DriveModel DriveModels::read(const JsonReader& object) const {
    DriveModel model = find(object["use"]);
    if (object["with"].exists()) {
        if (object["with"]["use"].exists()) {
            object["with"]["use"].fail("belongs beside \"with\"");
        }
        model = apply(object["with"], model);
    }
    return model;
}

// Templates use earlier ones only, so that none can use itself.
DriveModel DriveModels::find(const JsonReader& use) const {
    if (!use.exists()) {
        return {};
    }
    const auto found = models_.find(use.text(kMaxName));
    if (found == models_.end()) {
        use.fail("expected the name of a template that stands above");
    }
    return found->second;
}

DriveModel DriveModels::apply(const JsonReader& changes, DriveModel model) const {
    changes.expect_object({"use", "name", "protocol", "media", "formFactor", "rpm", "sizeGB",
                           "state", "hotSpare", "impedance", "temperature", "referenceTemperature",
                           "criticalTemperature"});
    model.name = changes["name"].text_or(model.name, kMaxName);
    model.protocol = read_code(changes["protocol"], model.protocol, vextools::kProtocols, 0xFFFF);
    model.media = read_code(changes["media"], model.media, vextools::kMedia, 0xFF);
    model.form_factor =
        read_code(changes["formFactor"], model.form_factor, vextools::kFormFactors, 0xFF);
    model.rpm = read_number(changes["rpm"], model.rpm, 0xFFFF);
    if (changes["sizeGB"].exists()) {
        const double gigabytes = changes["sizeGB"].number(0, kMaxGigabytes);
        model.size = static_cast<uint64_t>(std::llround(gigabytes * kBytesPerGigabyte));
    }
    model.state = read_code(changes["state"], model.state, vextools::kDriveStates, 0xFFFFFFFF);
    model.hot_spare = read_number(changes["hotSpare"], model.hot_spare, 0xFF);
    model.impedance = read_number(changes["impedance"], model.impedance, 0xFF);
    model.reference_temperature =
        read_number(changes["referenceTemperature"], model.reference_temperature, kMaxDegrees);
    model.critical_temperature =
        read_number(changes["criticalTemperature"], model.critical_temperature, kMaxDegrees);
    if (changes["temperature"].exists()) {
        model.temperature = read_temperature(changes["temperature"]);
    }
    return model;
}

}  // namespace vexsim
