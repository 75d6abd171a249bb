// What the regions hold, as tables of at most 80 columns.
#ifndef TOOLS_VEXINSPECT_SHOW_H
#define TOOLS_VEXINSPECT_SHOW_H

#include <string>
#include <vector>

#include "vexinspect/region_view.h"
#include "vexinspect/text_table.h"

namespace vexinspect {

inline constexpr const char* kNotInventoried = "  not yet inventoried\n";

// What can be shown, in the order in which everything is.
std::vector<std::string> show_topics();

// topic: one of show_topics(). Throws std::runtime_error if a region cannot be read.
std::string show(const std::string& topic);

// A list under its title: its table, or why there is none.
std::string list_text(const std::string& title, const RegionView& view, const List& list,
                      const TextTable& table);

// The regions themselves.
std::string list_regions();

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_SHOW_H
