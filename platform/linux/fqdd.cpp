#include "platform/fqdd.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

namespace {

constexpr size_t kMaxFqddLength = 255;    // chosen: twice the longest that an alert can carry
constexpr size_t kMaxNumberDigits = 5;    // chosen: numbers of devices are at most 16 bits
constexpr size_t kMaxFriendlyName = 256;  // three parts of at most 60 characters fit

/* Where a part may stand: each part of an FQDD is of a later place than the part before it. */
enum class Place { Device = 1, Enclosure, Host };

/*
 * One form of one part of an FQDD (the parts are separated by colons). '#' in the pattern stands
 * for a decimal number, '#' in the name for the number of that position. The joiner stands before
 * the name when another part precedes. The first pattern that fits is taken.
 */
struct PartForm {
    Place place;
    const char* pattern;
    const char* joiner;
    const char* name;
};

// Names show every number that tells two devices apart, so that two FQDDs never get one name. A
// controller's last number is its function, which is 1 on every card with a single one, and the
// connector of an internal backplane is 0.
constexpr PartForm kForms[] = {
    {Place::Device, "Disk.Bay.#", "", "Disk #"},
    {Place::Device, "Disk.Direct.#-#", "", "Direct-Attached Disk # on Connector #"},
    {Place::Device, "Disk.Direct.#", "", "Direct-Attached Disk #"},
    {Place::Device, "Disk.Virtual.#", "", "Virtual Disk #"},
    {Place::Device, "Battery.Integrated.#", "", "Battery #"},
    {Place::Device, "Tape.Bay.#", "", "Tape Drive #"},
    {Place::Device, "Tape.Direct.#-#", "", "Direct-Attached Tape Drive # on Connector #"},
    {Place::Device, "Tape.Direct.#", "", "Direct-Attached Tape Drive #"},
    {Place::Enclosure, "Enclosure.Internal.0-#", " in ", "Backplane #"},
    {Place::Enclosure, "Enclosure.Internal.#-#", " in ", "Backplane on Connector #, Number #"},
    {Place::Enclosure, "Enclosure.External.#-#", " in ", "Enclosure on Connector #, Number #"},
    {Place::Host, "PCIeExtender.Slot.#", " on ", "PCIe Extender in Slot #"},
};

/* Kinds of controllers and cards; each kind is built into the board or sits in a slot. */
struct HostKind {
    const char* kind;
    const char* name;
};

constexpr HostKind kHosts[] = {
    {"RAID", "RAID Controller"},      {"NonRAID", "Storage Adapter"},
    {"TAVI", "TAVI Boot Controller"}, {"ROR", "ROR Boot Controller"},
    {"PCIeSSD", "PCIe SSD"},
};

/* What follows a host's kind; '*' in the name stands for the name of the kind. */
constexpr PartForm kHostForms[] = {
    {Place::Host, ".Slot.#-1", " on ", "* in Slot #"},
    {Place::Host, ".Slot.#-#", " on ", "* in Slot #, Function #"},
    {Place::Host, ".SL.#-1", " on ", "* in SL #"},
    {Place::Host, ".SL.#-#", " on ", "* in SL #, Function #"},
    {Place::Host, ".Integrated.#-1", " on ", "Integrated * #"},
    {Place::Host, ".Integrated.#-#", " on ", "Integrated * #, Function #"},
};

/* The numbers of one part as they are written in it, without leading zeros. */
struct Numbers {
    std::array<std::string_view, 2> text;
    size_t count = 0;
};

/*
 * Takes a number off the front of text.
 * Returns: its digits, empty if there is none or it is no canonical one.
 */
std::string_view take_number(std::string_view& text) {
    const std::string_view digits = text.substr(0, text.find_first_not_of("0123456789"));
    if (digits.size() > kMaxNumberDigits || (digits.size() > 1 && digits.front() == '0')) {
        return {};
    }
    text.remove_prefix(digits.size());
    return digits;
}

/* Matches the whole of text. Returns: its numbers in order; none if it does not fit the pattern. */
std::optional<Numbers> match(std::string_view text, std::string_view pattern) {
    Numbers numbers;
    for (const char expected : pattern) {
        if (expected == '#') {
            const std::string_view digits = take_number(text);
            if (digits.empty()) {
                return std::nullopt;
            }
            numbers.text[numbers.count++] = digits;
        } else if (text.empty() || text.front() != expected) {
            return std::nullopt;
        } else {
            text.remove_prefix(1);
        }
    }
    return text.empty() ? std::optional{numbers} : std::nullopt;
}

/* A part that was recognised. */
struct Part {
    const PartForm* form;
    const char* kind_name;  // of a host, "" for others
    Numbers numbers;
};

/* A text of bounded length; what does not fit marks it as overflown. */
class Name {
  public:
    void append(std::string_view text) {
        if (text.size() >= sizeof text_ - length_) {
            overflown_ = true;
            return;
        }
        std::memcpy(text_ + length_, text.data(), text.size());
        length_ += text.size();
    }
    void append_part(const Part& part) {
        size_t next = 0;
        for (const char& c : std::string_view{part.form->name}) {
            if (c == '#') {
                append(part.numbers.text[next++]);
            } else {
                append(c == '*' ? std::string_view{part.kind_name} : std::string_view{&c, 1});
            }
        }
    }
    char* to_heap() const { return overflown_ ? nullptr : strndup(text_, length_); }

  private:
    char text_[kMaxFriendlyName];
    size_t length_ = 0;
    bool overflown_ = false;
};

std::optional<Part> find_host(std::string_view text) {
    for (const HostKind& host : kHosts) {
        const std::string_view kind{host.kind};
        if (!text.starts_with(kind)) {
            continue;
        }
        for (const PartForm& form : kHostForms) {
            if (const auto numbers = match(text.substr(kind.size()), form.pattern)) {
                return Part{&form, host.name, *numbers};
            }
        }
    }
    return std::nullopt;
}

std::optional<Part> find_part(std::string_view text) {
    for (const PartForm& form : kForms) {
        if (const auto numbers = match(text, form.pattern)) {
            return Part{&form, "", *numbers};
        }
    }
    return find_host(text);
}

}  // namespace

char* ConvertFQDDToFriendlyName(const char* fqdd) {
    if (fqdd == nullptr || strnlen(fqdd, kMaxFqddLength + 1) > kMaxFqddLength) {
        return nullptr;
    }

    Name name;
    Place last{};
    std::string_view rest{fqdd};
    for (bool more = true; more;) {
        const size_t colon = rest.find(':');
        const auto part = find_part(rest.substr(0, colon));
        if (!part || part->form->place <= last) {
            return nullptr;
        }
        if (last != Place{}) {
            name.append(part->form->joiner);
        }
        name.append_part(*part);
        last = part->form->place;
        more = colon != std::string_view::npos;
        rest.remove_prefix(more ? colon + 1 : rest.size());
    }
    return name.to_heap();
}
