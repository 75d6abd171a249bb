// Judges a run of vex_bench: one row per hot path against its floor, its peers and its goal; growth
// curves; memory. usage: vex_bench_report [--ilp32] RUN.json MEMORY.json PICTURE.svg exit status: 0
// no ratio is more than a quarter over its goal; 1 one is; 2 wrong usage or unreadable input.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace {

using Json = nlohmann::json;

constexpr double kTolerance =
    1.25;  // machines are noisy: what fails the run is a quarter over the goal

enum class Kind {
    Ratio,     // lib / floor
    DeltaNs,   // (lib - floor) / unit
    Reported,  // ratio without a gate: wall-clock time of several threads
    Kilobytes,
};

struct Goal {
    const char* path;
    Kind kind;
    double goal;     // on LP64
    double goal_32;  // on ILP32
    double unit;     // what a delta is divided by: lines per call, nodes in the queue
};

constexpr Goal kGoals[] = {
    {"trace_line", Kind::Ratio, 1.30, 1.40, 1},
    {"trace_line_2_threads", Kind::Reported, 1.35, 1.35, 1},
    {"trace_line_off", Kind::DeltaNs, 3.0, 3.0, 2},
    {"bitmap_text_sparse", Kind::Ratio, 2.5, 2.5, 1},
    {"bitmap_text_dense", Kind::Ratio, 7.0, 7.0, 1},
    {"record_list_event", Kind::Ratio, 1.30, 1.40, 1},
    {"drain_endpoint", Kind::Ratio, 1.25, 1.45, 1},
    {"duplicate_disk", Kind::Ratio, 2.7, 4.5, 1},
    {"duplicate_adapter", Kind::Ratio, 1.6, 5.3, 1},
    {"inventory_16x255", Kind::Ratio, 3.0, 3.0, 1},
    {"inventory_16x255_logged", Kind::Ratio, 1.30, 1.30, 1},
    {"endpoint_queue_1", Kind::Ratio, 1.15, 1.15, 1},
    {"endpoint_queue_10000", Kind::DeltaNs, 3.5, 3.5, 10000},
    {"notification_queue", Kind::Ratio, 1.8, 2.0, 1},
    {"endpoint_lookup_first", Kind::Ratio, 4.0, 4.0, 1},
    {"endpoint_lookup_middle", Kind::Ratio, 4.0, 4.0, 1},
    {"endpoint_lookup_last", Kind::Ratio, 4.0, 4.0, 1},
    {"init_kb", Kind::Kilobytes, 200, 200, 1},
    {"busy_kb", Kind::Kilobytes, 650, 650, 1},
    {"stack_kb", Kind::Kilobytes, 64, 64, 1},
};

struct Path {
    double floor = 0;
    double lib = 0;
    std::vector<std::pair<std::string, double>> peers;
};

using Paths = std::map<std::string, Path>;

// Medians in nanoseconds by path.
Paths medians(const Json& run) {
    Paths paths;
    for (const Json& entry : run.at("benchmarks")) {
        if (entry.value("aggregate_name", "") != "median") {
            continue;
        }
        const std::string name = entry.at("run_name");
        const std::size_t slash = name.find('/');
        const std::size_t end = name.find('/', slash + 1);
        const std::string role = name.substr(slash + 1, end - slash - 1);
        Path& path = paths[name.substr(0, slash)];
        const double time = entry.at("real_time");
        if (role == "floor") {
            path.floor = time;
        } else if (role == "lib") {
            path.lib = time;
        } else {
            path.peers.emplace_back(role, time);
        }
    }
    return paths;
}

struct Row {
    std::string path, floor, ours, peers, goal, verdict;
    double value = 0;
    bool met = false;
    bool failed = false;
};

std::string number(double value, const char* unit) {
    char text[40];
    std::snprintf(text, sizeof(text), value < 100 ? "%.2f%s" : "%.0f%s", value, unit);
    return text;
}

std::string nanoseconds(double value) {
    return value < 1e4 ? number(value, " ns") : number(value / 1000, " us");
}

Row judge(const Goal& goal, bool ilp32, const Path& path, const Json& memory) {
    const double limit = ilp32 ? goal.goal_32 : goal.goal;
    Row row;
    row.path = goal.path;
    if (goal.kind == Kind::Kilobytes) {
        row.value = memory.at(goal.path);
        row.ours = number(row.value, " kB");
        row.goal = number(limit, " kB");
    } else {
        row.floor = nanoseconds(path.floor);
        row.ours = nanoseconds(path.lib);
        for (const auto& [name, time] : path.peers) {
            row.peers +=
                (row.peers.empty() ? "" : ", ") + name + " " + number(time / path.floor, "");
        }
        const bool delta = goal.kind == Kind::DeltaNs;
        row.value = delta ? (path.lib - path.floor) / goal.unit : path.lib / path.floor;
        row.goal = number(limit, delta ? " ns" : "");
    }
    row.met = row.value <= limit;
    row.failed = goal.kind != Kind::Reported && row.value > limit * kTolerance;
    row.verdict = row.met ? "yes" : goal.kind == Kind::Reported ? "no (reported only)" : "no";
    return row;
}

void print_table(const std::vector<Row>& rows) {
    std::printf("%-26s %10s %10s %8s %8s  %-4s %s\n", "path", "floor", "ours", "ratio", "goal",
                "ok", "peers (ratio to floor)");
    for (const Row& row : rows) {
        std::printf("%-26s %10s %10s %8s %8s  %-4s %s\n", row.path.c_str(), row.floor.c_str(),
                    row.ours.c_str(), number(row.value, "").c_str(), row.goal.c_str(),
                    row.verdict.c_str(), row.peers.c_str());
    }
}

void print_growth(const Paths& paths) {
    std::printf("\ngrowth (lib, median)\n");
    for (const auto& [name, path] : paths) {
        if (name.starts_with("endpoint_queue_") || name.starts_with("inventory_") ||
            name.starts_with("trace_file_")) {  // empty, half full, full
            std::printf("  %-26s %10s\n", name.c_str(), nanoseconds(path.lib).c_str());
        }
    }
}

// Bars of the ratio to the floor, ours beside the peers, on a scale that ends at 5.
void draw(const std::string& file, const Paths& paths) {
    constexpr int kBar = 14, kLeft = 210, kWidth = 90, kEnd = 5;
    std::string bars;
    int y = 30;
    const auto bar = [&](const std::string& label, double ratio, const char* colour) {
        char text[400];
        std::snprintf(text, sizeof(text),
                      "<text x='%d' y='%d' text-anchor='end'>%s</text>"
                      "<rect x='%d' y='%d' width='%.0f' height='%d' fill='%s'/>"
                      "<text x='%.0f' y='%d'>%.2f</text>\n",
                      kLeft - 6, y + 11, label.c_str(), kLeft, y, std::min(ratio, 5.0) * kWidth,
                      kBar - 2, colour, kLeft + std::min(ratio, 5.0) * kWidth + 4, y + 11, ratio);
        bars += text;
        y += kBar;
    };
    for (const Goal& goal : kGoals) {
        const auto found = paths.find(goal.path);
        if (found == paths.end() || found->second.floor <= 0) {
            continue;
        }
        bar(goal.path, found->second.lib / found->second.floor, "#2b6cb0");
        for (const auto& [name, time] : found->second.peers) {
            bar(name, time / found->second.floor, "#a0aec0");
        }
        y += 6;
    }
    std::ofstream svg{file};
    svg << "<svg xmlns='http://www.w3.org/2000/svg' width='" << kLeft + kEnd * kWidth + 60
        << "' height='" << y + 10 << "' font-family='sans-serif' font-size='11'>"
        << "<rect width='100%' height='100%' fill='white'/>"
        << "<text x='10' y='16'>time, as a multiple of the floor (1.0); bars end at 5</text>\n"
        << bars << "<line x1='" << kLeft + kWidth << "' x2='" << kLeft + kWidth << "' y1='22' y2='"
        << y << "' stroke='#c53030'/></svg>\n";
}

std::optional<Json> read_json(const char* path) {
    std::ifstream file{path};
    Json json = Json::parse(file, nullptr, false);
    if (!file.is_open() || json.is_discarded()) {
        std::fprintf(stderr, "vex_bench_report: %s: expected a JSON file\n", path);
        return std::nullopt;
    }
    return json;
}

// The rows of all goals that the run has figures for.
std::vector<Row> judge_all(bool ilp32, const Paths& paths, const Json& memory) {
    std::vector<Row> rows;
    for (const Goal& goal : kGoals) {
        const auto found = paths.find(goal.path);
        if (goal.kind == Kind::Kilobytes || (found != paths.end() && found->second.floor > 0)) {
            rows.push_back(
                judge(goal, ilp32, found != paths.end() ? found->second : Path{}, memory));
        } else {
            std::printf("%s: not measured\n", goal.path);
        }
    }
    return rows;
}

}  // namespace

int main(int argc, char** argv) {
    const bool ilp32 = argc == 5 && std::string{argv[1]} == "--ilp32";
    if (argc != (ilp32 ? 5 : 4)) {
        std::fprintf(stderr,
                     "usage: vex_bench_report [--ilp32] RUN.json MEMORY.json PICTURE.svg\n");
        return 2;
    }
    const char* const* files = argv + (ilp32 ? 2 : 1);
    const auto run = read_json(files[0]);
    const auto memory = read_json(files[1]);
    if (!run || !memory) {
        return 2;
    }
    const Paths paths = medians(*run);
    const std::vector<Row> rows = judge_all(ilp32, paths, *memory);
    print_table(rows);
    print_growth(paths);
    std::printf(
        "\nresident memory: %.0f kB after init, %.0f kB with 16 busy endpoints, %.0f kB after "
        "a drain; deepest stack %.1f kB\n",
        memory->at("init_kb").get<double>(), memory->at("busy_kb").get<double>(),
        memory->at("drained_kb").get<double>(), memory->at("stack_kb").get<double>());
    draw(files[2], paths);
    const auto met =
        std::count_if(rows.begin(), rows.end(), [](const Row& row) { return row.met; });
    std::printf("\n%d of %zu goals met\n", static_cast<int>(met), std::size(kGoals));
    return std::any_of(rows.begin(), rows.end(), [](const Row& row) { return row.failed; }) ? 1 : 0;
}
