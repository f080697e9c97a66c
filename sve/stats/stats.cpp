#include "sve/stats/stats.h"

#include <cstdio>
#include <new>

std::atomic<unsigned long> sve_instr_count{0};
unsigned long aarch64_instr_count = 0;
// First of the library's ordered initialisers, ahead of the page size and the decode maps.
__attribute__((init_priority(1010))) std::map<unsigned int*, std::pair<unsigned int, std::atomic<unsigned long>>>
    icounts;
std::mutex icounts_mutex;
void (*sve::on_no_memory_for_counts)() = nullptr;

namespace {

bool table_stands = false;  // there was no memory for an entry

// With the lock held. Null if there is no memory.
std::atomic<unsigned long>* find_or_add(unsigned int* pc, unsigned int word) {
  if (table_stands) return nullptr;
  auto entry = icounts.find(pc);
  if (entry == icounts.end()) {
    // Only here is the word set: another word that later runs at this address keeps the first one's entry.
    try {
      entry = icounts.try_emplace(pc).first;
    } catch (const std::bad_alloc&) {
      if (!sve::on_no_memory_for_counts) throw;
      table_stands = true;
      sve::on_no_memory_for_counts();
      return nullptr;
    }
    entry->second.first = word;
  }
  return &entry->second.second;
}

}  // namespace

void update_sve_stats(unsigned int* pc, unsigned int word) {
  const std::lock_guard lock(icounts_mutex);
  sve_instr_count.fetch_add(1);
  if (auto* const count = find_or_add(pc, word)) count->fetch_add(1);
}

std::atomic<unsigned long>* sve::need_count(unsigned int* pc, unsigned int word) {
  const std::lock_guard lock(icounts_mutex);
  return find_or_add(pc, word);
}

void dump_sve_stats() {
  for (const auto& [pc, entry] : icounts) {
    std::fprintf(stderr, "%p: 0x%08x %ld\n", static_cast<void*>(pc), entry.first,
                 static_cast<long>(entry.second.load()));
  }
}
