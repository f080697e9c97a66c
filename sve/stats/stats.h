// Counts of what was executed: two totals, and a table of executions by instruction address.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <utility>

/// SVE instructions executed with success.
extern std::atomic<unsigned long> sve_instr_count;
/// Other instructions seen when code was examined. Counted once per examination, whatever its name in reports says.
extern unsigned long aarch64_instr_count;
/// By instruction address: the word that was first executed there, and the number of executions.
extern std::map<unsigned int*, std::pair<unsigned int, std::atomic<unsigned long>>> icounts;
/// Held around each update of `icounts`.
extern std::mutex icounts_mutex;

/// Records one successful execution of `word` at `pc`. Throws `std::system_error` if the lock fails and
/// `std::bad_alloc` if a new entry finds no memory, unless a platform has said what is to happen then.
void update_sve_stats(unsigned int* pc, unsigned int word);

/// Prints the table to stderr in address order; nothing when it is empty. Takes no lock.
void dump_sve_stats();

namespace sve {

/// The entry of `icounts` for `pc`, added with `word` and a count of 0 if need be, for who counts without a search. It
/// stays where it is. Null if there was no memory. Takes the lock; throws as `update_sve_stats`.
std::atomic<unsigned long>* need_count(unsigned int* pc, unsigned int word);

/// What a platform does when a new entry of `icounts` finds no memory. Where it is set it is called once, with the lock
/// held; the table then stays as it is, the total goes on, and nothing is thrown.
extern void (*on_no_memory_for_counts)();

}  // namespace sve
