#include "vexinspect/log.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "support/alert_codes.h"
#include "vexinspect/event_file.h"
#include "vexinspect/text_table.h"

namespace vexinspect {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kFormat = "vexinspect.log";
constexpr const char* kRow = "%7s  %-23s  %-8s  %-8s  %s\n";
constexpr size_t kIdWidth = 8;
constexpr size_t kLastColumn = 54;  // where the arguments begin
constexpr int kDeviceIndent = 9;

// Texts come from devices: what would move the cursor, or is wider than a column, is replaced.
std::string printable(std::string text) {
    std::ranges::replace_if(
        text, [](char c) { return c < ' ' || c > '~'; }, '?');
    return text;
}

// "2024-01-01T00:00:10.000Z" as people read it.
std::string time_text(std::string time) {
    std::ranges::replace(time, 'T', ' ');
    return time.substr(0, time.find('Z'));
}

std::string arguments_text(const Json& record) {
    std::string text;
    for (const Json& argument : record.at("arguments")) {
        text += (text.empty() ? "" : ", ") + argument.get<std::string>();
    }
    return fitted(printable(text), kTerminalColumns - kLastColumn);
}

void print_row(const std::string& number, const std::string& time, const std::string& severity,
               const std::string& id, const std::string& last) {
    std::string line(kTerminalColumns * 4, '\0');
    const int length = std::snprintf(line.data(), line.size(), kRow, number.c_str(), time.c_str(),
                                     severity.c_str(), id.c_str(), last.c_str());
    line.resize(static_cast<size_t>(length));
    line.erase(line.find_last_not_of(" \n") + 1);
    std::printf("%s\n", line.c_str());
}

void print_record(const Json& record) {
    const std::string number = std::to_string(record.at("seq").get<uint64_t>());
    const std::string time = fitted(printable(time_text(record.at("time"))), 23);
    if (record.at("kind") == "single") {
        print_row(number, time, "-", "-",
                  "single value " + std::to_string(record.at("value").get<unsigned>()));
        return;
    }
    const auto severity = record.at("severity").get<int64_t>();
    const char* name = vextools::name_of(vextools::kSeverities, severity);
    print_row(number, time, name != nullptr ? name : "?",
              fitted(printable(record.at("messageId")), kIdWidth), arguments_text(record));
    if (record.contains("fqdd")) {
        std::printf("%*s%s\n", kDeviceIndent, "",
                    fitted(printable(record.at("fqdd")), kTerminalColumns - kDeviceIndent).c_str());
    }
}

// Prints records as they come, in one of the three forms.
class LogPrinter {
  public:
    explicit LogPrinter(const LogOptions& options) : options_(options) {}

    void begin() const {
        const Json header = {{"format", kFormat}, {"version", kLogJsonVersion}};
        const std::string text = header.dump();
        if (!options_.json) {
            print_row("Seq", "Time (UTC)", "Severity", "Message", "Arguments");
        } else if (options_.follow) {
            std::printf("%s\n", text.c_str());
        } else {
            std::printf("%s, \"records\": [", text.substr(0, text.size() - 1).c_str());
        }
    }

    void print(const EventLine& line) {
        try {
            const Json record = Json::parse(line.text);
            if (!options_.json) {
                print_record(record);
            } else if (record.at("seq").is_number_unsigned()) {
                const char* separator = options_.follow ? "" : printed_ == 0 ? "\n " : ",\n ";
                std::printf("%s%s%s", separator, record.dump().c_str(),
                            options_.follow ? "\n" : "");
            }
        } catch (const Json::exception&) {
            throw std::runtime_error(line.place + ": this line is no record of an event log");
        }
        ++printed_;
    }

    void end() const {
        if (options_.json && !options_.follow) {
            std::printf("%s]}\n", printed_ == 0 ? "" : "\n");
        } else if (printed_ == 0) {
            std::printf("no records\n");
        }
    }

    bool enough() const { return options_.records != 0 && printed_ >= options_.records; }

  private:
    const LogOptions& options_;
    uint64_t printed_ = 0;
};

}  // namespace

void print_log(const LogOptions& options) {
    if (!options.file.empty() && !options.follow && !std::filesystem::exists(options.file)) {
        throw std::runtime_error(options.file + ": there is no such event log");
    }
    const std::string path = options.file.empty() ? event_log_path() : options.file;
    EventReader reader(path);
    LogPrinter printer(options);
    printer.begin();
    for (bool more = true; more; more = options.follow && !printer.enough()) {
        const std::vector<EventLine> lines = reader.read();
        for (size_t i = 0; i < lines.size() && !printer.enough(); ++i) {
            printer.print(lines[i]);
        }
        std::fflush(stdout);
        if (options.follow && lines.empty()) {
            std::this_thread::sleep_for(std::chrono::duration<double>(options.interval_seconds));
        }
    }
    printer.end();
}

}  // namespace vexinspect
