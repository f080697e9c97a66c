// Options on their way from sve-run to the preloaded library: one environment variable, words joined by ':'. Those of
// reports are in wishes.h.
#pragma once

#include <string_view>

#include "sve/report/wishes.h"

namespace sve::runner {

using sve::options_variable;

inline constexpr char preload_variable[] = "LD_PRELOAD";
/// The signals that a new program is to find ignored and could not be given so by the kernel: a number, bit n-1 for
/// signal n. The library empties it when it has read it.
inline constexpr char ignored_variable[] = "SVE_RUN_IGNORED";
/// Among them, in the place of a signal that nobody can ignore: the vector length is inherited (PR_SVE_VL_INHERIT).
inline constexpr unsigned long length_is_inherited = 1ul << 8;
inline constexpr char report_name[] = "sve-report";
/// What the names of the preloaded libraries and of the clients of DynamoRIO begin with; the vector length in bits and
/// ".so" follow.
inline constexpr char library_prefix[] = "libsve_run_";
inline constexpr char client_prefix[] = "libsve_stats_";
/// The vector length in bits that sve-run takes where no option gives one.
inline constexpr char length_variable[] = "SVE_RUN_VECTOR_LENGTH";

inline constexpr std::string_view quiet_word = "quiet";
inline constexpr std::string_view no_announce_word = "no-announce";
inline constexpr std::string_view no_patch_word = "no-patch";
inline constexpr std::string_view handlers_word = "handlers";
inline constexpr std::string_view trace_word = "trace-translation";
/// Followed by the id of the process that has begun its file of counts, in `begun_width` digits that it fills in
/// itself: after an exec it goes on with that file. There when the file's name holds a %p.
inline constexpr std::string_view begun_word = "begun=";
inline constexpr unsigned begun_width = 10;
/// Alone, counts go to stderr; followed by '=' and a path, there. Always the last word, as a path may hold a ':'.
inline constexpr std::string_view counts_word = "counts";

/// The bit of AT_HWCAP that tells programs of SVE.
inline constexpr unsigned long hwcap_sve = 1ul << 22;

}  // namespace sve::runner
