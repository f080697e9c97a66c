// A site: a place of the program where a run of SVE instructions begins, met once by a trap. From then on the program
// branches there to an entry, code of ours that executes the run and branches back.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "sve/decode/dispatch.h"
#include "sve/report/lane_use.h"

namespace sve {
class RunDataWriter;
}

namespace sve::runner {

/// A run ends here even if more of our words follow.
inline constexpr std::size_t longest_run = 128;
inline constexpr std::size_t most_sites = 1 << 17;

struct Site {
  std::uint32_t* address;
  std::uint32_t count;                 ///< instructions in the run
  std::uint32_t index;                 ///< of the site's count in each thread's counts
  Site* next;                          ///< with the same hash
  std::atomic<bool> gave_up;           ///< no entry fits within reach, or writing is refused
  std::atomic<std::uint64_t> entry;    ///< the address of its code, 0 if it has none
  std::atomic<std::uint32_t> patch;    ///< the word that stands at the address instead of the first one, 0 if none
  std::atomic<std::uint64_t> ended;    ///< executions of the whole run by threads that are gone
  std::atomic<std::int64_t>* partial;  ///< by instruction: executions in runs that did not come to their end
  DecodeHandler* handlers;             ///< null where a simple scalar instruction stands between those of SVE
  std::uint32_t* words;
  bool has_scalars;
  std::atomic<const struct CodeEvent*> events;  ///< what can be told of its code; set before `entry`
  std::uint32_t event_count;
  std::uint64_t code;    ///< the address of its code's first word
  bool is_timed;         ///< what its runs take is added up
  LaneUse* uses;         ///< by instruction, if lane use is counted
  std::uint32_t module;  ///< the number of the file that it was mapped from, if there is a report; 0 if none

  std::uint32_t* end() const { return address + count; }
};

/// The site of the run that begins at `address`, where one of our words stands or stood before it was patched; null if
/// none does, or memory has run out. Callable from a signal handler, with all signals blocked.
Site* need_site(std::uint32_t* address);

/// The same, if it is there already.
Site* find_site(std::uint32_t* address);

/// The site whose entry holds `pc`; null if there is none.
Site* site_of_entry(std::uintptr_t pc);

/// Whether a branch of ours stands at the address in place of the program's own word.
bool is_patched(const std::uint32_t* address);

struct ThreadBlock;

/// A thread has ended: its counts go to the sites, and its own become 0.
void keep_counts_of(ThreadBlock* block);

/// A trap was served.
void count_trap();

/// The run has not come to its end: `done` of its instructions were executed.
void count_partial(Site* s, std::size_t done);

/// One line of the report: the executions of a word at an address.
struct CountedWord {
  const std::uint32_t* address;
  std::uint32_t word;
  std::uint64_t count;
};

/// Executions of all instructions, by all threads. Exact but for what other threads execute meanwhile.
std::uint64_t count_executions();

/// The same by address and word, in their order, into memory that is the caller's to unmap; `size` tells how many. Null
/// if memory has run out.
CountedWord* collect_counts(std::size_t& size);

/// All that is known of sites, threads and modules, as lines of run data.
void tell_sites(RunDataWriter& data);

/// Called in a forked child, which counts from nothing and has no share in what its parent makes from now on.
/// `has_counted`: what this thread's counts hold is its own already.
void sites_after_fork_in_child(bool has_counted);
/// Around fork: no site is half made in the child.
void lock_sites();
void unlock_sites();

/// A word of ours was executed that has no site. That there is no room for one is told once.
void count_without_site(bool for_lack_of_room);

/// What an entry does with its run.
enum class Translation : std::uint8_t { native, handlers };

/// Whether sites are patched, and how; whether the code of each is to be told. Once, at start.
void start_sites(bool patches, Translation how, bool tells);
/// What a report needs is noted from now on. Before any site is made.
void note_for_report(bool lanes, bool time);
/// Whether the time in runs is to be added up.
bool counts_time();
/// The processor's counter, which goes on at one rate.
std::uint64_t read_counter();
Translation translation_of_sites();

/// The code of each entry, in the order in which they were made.
struct EntryPlace {
  std::uint64_t begin, end;
  Site* owner;
};
extern EntryPlace* entries;
extern std::atomic<std::size_t> entry_count;

/// A debugger is there, which may put words of its own anywhere: from now on runs are one instruction long and call its
/// handler, and older sites are the program's own words again. Returns false, with nothing done, if the lock is taken.
bool sites_are_debugged();

/// Gives all instructions of ours between two addresses their entries, so that a debugger may step over them. Returns
/// false, with nothing done, if the lock is taken.
bool prepare_sites(std::uint32_t* from, std::uint32_t* to);

/// What a debugger puts in the place of an instruction: brk #0.
inline constexpr std::uint32_t breakpoint_word = 0xd4200000;

/// Gives the site an entry and patches the program to branch there, if that can be.
void patch_site(Site* s);

/// The program changes its mappings between two addresses. Where they become writable its own words are put back, which
/// it may be about to write to or to read.
void sites_change(std::uintptr_t from, std::uintptr_t to, bool become_writable);

}  // namespace sve::runner
