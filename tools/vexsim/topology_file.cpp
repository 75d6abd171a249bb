#include "vexsim/topology_file.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace vexsim {

using vextools::JsonValue;

namespace {

using vextools::find_member;

// What a field holds; fallback if it is not there.
uint64_t number_of(const JsonValue& object, const char* name, uint64_t fallback) {
    const JsonValue* member = find_member(object, name);
    return member == nullptr ? fallback : member->number;
}

uint64_t controller_slot(const JsonValue& drive) {
    return number_of(drive, "controllerSlot", number_of(drive, "slot", UINT64_MAX));
}

JsonValue* find_bay(JsonValue& topology, uint8_t bay) {
    JsonValue* bays = find_member(topology, "bays");
    if (bays == nullptr) {
        return nullptr;
    }
    const auto found = std::ranges::find_if(bays->items, [&](const JsonValue& item) {
        return number_of(item, "bayId", UINT64_MAX) == bay;
    });
    return found == bays->items.end() ? nullptr : &*found;
}

JsonValue make(JsonValue::Kind kind, uint64_t number, bool boolean) {
    JsonValue value;
    value.kind = kind;
    value.number = number;
    value.boolean = boolean;
    return value;
}

JsonValue& drive_list(JsonValue& bay) {
    if (find_member(bay, "drives") == nullptr) {
        bay.members.push_back({"drives", make(JsonValue::Kind::Array, 0, false)});
    }
    return *find_member(bay, "drives");
}

}  // namespace

TopologyFile::TopologyFile(std::string path, JsonValue topology)
    : path_(std::move(path)), topology_(std::move(topology)) {}

void TopologyFile::write() const {
    const std::string fresh = path_ + ".new";
    const std::string text = vextools::to_json_text(topology_);
    std::FILE* file = std::fopen(fresh.c_str(), "we");
    bool written = file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size();
    written = (file != nullptr && std::fclose(file) == 0) && written;
    if (!written || std::rename(fresh.c_str(), path_.c_str()) != 0) {
        throw std::runtime_error(path_ + ": " + std::strerror(errno));
    }
}

bool TopologyFile::set_present(uint8_t bay, uint8_t slot, bool present) {
    JsonValue* found = find_bay(topology_, bay);
    if (found == nullptr) {
        return false;
    }
    std::vector<JsonValue>& drives = drive_list(*found).items;
    auto drive = std::ranges::find(drives, slot, &controller_slot);
    if (drive == drives.end()) {
        drive = drives.insert(drives.end(), make(JsonValue::Kind::Object, 0, false));
        drive->members.push_back({"slot", make(JsonValue::Kind::Number, slot, false)});
    }
    std::erase_if(drive->members, [](const vexplatform::JsonMember& member) {
        return member.name == "state" || member.name == "present";
    });
    drive->members.push_back({"present", make(JsonValue::Kind::Bool, 0, present)});
    return true;
}

}  // namespace vexsim
