#include "vexsim/alert_parser.h"

#include "rt_dup.h"
#include "vexsim/server_parser.h"

namespace vexsim {

using vextools::JsonReader;

namespace {

constexpr size_t kMaxPayload = 1024;  // chosen: four times an endpoint table

constexpr size_t kMaxMessageId = 63;      // the event log takes no longer ones
constexpr size_t kPackedArguments = 200;  // likewise, with a terminator each

AlertMessage read_message(const JsonReader& field) {
    AlertMessage message;
    message.id = field["id"].text(kMaxMessageId);
    if (field["severity"].exists()) {
        message.severity =
            static_cast<uint32_t>(field["severity"].code(vextools::kSeverities, 1, 3));
    }
    size_t packed = 0;
    for (const JsonReader& item : field["args"].items()) {
        message.arguments.push_back(item.text(kPackedArguments - 1));
        packed += message.arguments.back().size() + 1;
    }
    if (message.arguments.size() > RT_MESSAGE_ARGUMENTS || packed > kPackedArguments) {
        field["args"].fail(
            "expected at most 5 arguments, with 200 bytes and a terminator each in all");
    }
    return message;
}

}  // namespace

AlertParser::AlertParser(const Scenario& scenario) {
    for (const Controller& controller : scenario.controllers) {
        add_controller(controller);
    }
    for (const NvmeDrive& drive : scenario.nvme) {
        add(drive.fqdd, drive.eid, RT_OBJ_PHYSICAL_DISK, 0);
    }
    for (const SsdCard& card : scenario.cards) {
        add(card.fqdd, card.eid, RT_OBJ_ADAPTER, card.eid);
    }
}

void AlertParser::add(const std::string& fqdd, uint8_t eid, uint32_t type, uint32_t key) {
    devices_[fqdd] = {.fqdd = fqdd, .eid = eid, .type = type, .key = key};
}

void AlertParser::add_controller(const Controller& controller) {
    const uint8_t eid = controller.eid;
    add(controller.fqdd, eid, RT_OBJ_ADAPTER, eid);
    if (controller.battery) {
        add(controller.battery->fqdd, eid, RT_OBJ_BATTERY, 0);
    }
    for (const Enclosure& enclosure : controller.enclosures) {
        add(enclosure.fqdd, eid, enclosure.backplane ? RT_OBJ_BACKPLANE : RT_OBJ_ENCLOSURE,
            enclosure.key);
    }
    for (const Drive& drive : controller.drives) {
        add(drive.fqdd, eid, RT_OBJ_PHYSICAL_DISK, drive.key);
    }
    for (const VirtualDisk& disk : controller.virtual_disks) {
        add(disk.fqdd, eid, RT_OBJ_VIRTUAL_DISK, disk.key);
    }
}

const CachedDevice& AlertParser::device(const JsonReader& field) const {
    const auto found = devices_.find(field.text(kMaxFqdd));
    if (found == devices_.end()) {
        field.fail("expected the FQDD of a device of this scenario");
    }
    return found->second;
}

AlertAction AlertParser::read_callback(const JsonReader& field) const {
    const JsonReader type = field.is_object() ? field["type"] : field;
    CallbackStep step{.type = static_cast<uint32_t>(type.code(kCallbacks, 0, kMaxCallback)),
                      .payload = {}};
    if (field.is_object()) {
        field.expect_object({"type", "payload"});
        for (const JsonReader& item : field["payload"].items()) {
            step.payload.push_back(static_cast<uint8_t>(item.integer(0, 0xFF)));
        }
    }
    if (step.payload.size() > kMaxPayload) {
        field["payload"].fail("expected at most 1024 bytes");
    }
    return step;
}

AlertAction AlertParser::read_event(const JsonReader& field) const {
    field.expect_object({"device", "type", "held", "alert"});
    EventStep step;
    step.device = device(field["device"]);
    step.event = static_cast<uint32_t>(
        field["type"].exists() ? field["type"].code(kEvents, 0, 0xFFFF) : kChangedEvent);
    step.held = field["held"].boolean_or(false);
    if (field["alert"].exists()) {
        field["alert"].expect_object({"id", "severity", "args"});
        step.alert = read_message(field["alert"]);
    }
    return step;
}

AlertAction AlertParser::read_alert(const JsonReader& field) const {
    field.expect_object({"device", "id", "severity", "args"});
    return AlertStep{.fqdd = field["device"].text(kMaxFqdd), .alert = read_message(field)};
}

AlertAction AlertParser::read_purge(const JsonReader& field) const {
    if (field.is_text()) {
        return PurgeStep{.device = device(field)};
    }
    field.expect_object({"device", "command"});
    return PurgeStep{.device = device(field["device"]),
                     .command = static_cast<int32_t>(field["command"].integer_or(0, 0, INT32_MAX))};
}

AlertAction AlertParser::read_drain(const JsonReader& field) const {
    if (field.is_text() && field.value().text == "all") {
        return DrainStep{};
    }
    return DrainStep{device(field)};
}

AlertAction AlertParser::read_phase(const JsonReader& field) const {
    std::string expected = "expected one of:";
    for (const vextools::AlertPhase& phase : vextools::kAlertPhases) {
        if (field.is_text() && field.value().text == phase.name) {
            return PhaseStep{phase};
        }
        expected += std::string(" ") + phase.name;
    }
    field.fail(expected);
}

AlertAction AlertParser::read_reset(const JsonReader& field) const {
    const CachedDevice& controller = device(field);
    if (controller.type != RT_OBJ_ADAPTER) {
        field.fail("expected the FQDD of a controller");
    }
    return ResetStep{controller};
}

}  // namespace vexsim
