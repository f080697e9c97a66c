// How sve-run asks a process for data: by words of the environment variable that carries its options, which ':' parts.
#pragma once

#include <string_view>

namespace sve {

inline constexpr char options_variable[] = "SVE_RUN_OPTIONS";
/// Followed by the directory where each process of the tree leaves its data. There is no ':' in it.
inline constexpr std::string_view report_word = "report=";
/// Lane use is to be counted.
inline constexpr std::string_view lane_use_word = "lane-use";
/// The time in runs is to be measured.
inline constexpr std::string_view time_word = "time";

}  // namespace sve
