#include "sve/runner/sites/site.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <mutex>
#include <new>

#include "sve/decode/text.h"
#include "sve/report/run_data.h"
#include "sve/report/text.h"
#include "sve/runner/preload/copies.h"
#include "sve/runner/preload/debugger.h"
#include "sve/runner/preload/emulate.h"
#include "sve/runner/preload/kernel.h"
#include "sve/runner/preload/report.h"
#include "sve/runner/preload/thread_block.h"
#include "sve/runner/sites/code_memory.h"
#include "sve/runner/sites/entry.h"
#include "sve/runner/sites/memory_map.h"
#include "sve/runner/sites/patch.h"

namespace sve::runner {

EntryPlace* entries = nullptr;
std::atomic<std::size_t> entry_count{0};

namespace {

constexpr std::uintptr_t page_mask = 4095;
constexpr std::size_t bucket_count = 1 << 14;

// Writers hold the lock, with all signals blocked; readers take none, and what they find stays for ever.
SleepingLock lock;
std::atomic<Site*> buckets[bucket_count];
std::atomic<std::size_t> count_of_sites{0};
std::atomic<std::uint64_t> executions_without_site{0};
Site** by_index = nullptr;
bool patching = false, telling = false;
bool noting = false, counting_lanes = false, counting_time = false;  // for a report
std::uint64_t ended_time = 0;
std::atomic<std::uint64_t> traps{0};

// Between them lies all that ever was patched.
std::atomic<std::uintptr_t> lowest_patched{~std::uintptr_t{0}}, highest_patched{0};

bool may_hold_patches(std::uintptr_t from, std::uintptr_t to) { return from <= highest_patched && lowest_patched < to; }

// Threads whose blocks are another's by now. What there is no room for is added to the last one.
struct EndedThread {
  int id;
  std::uint64_t executions;
};
constexpr std::size_t most_ended = 1 << 16;
EndedThread* ended_threads = nullptr;
std::size_t ended_count = 0;
Translation translating = Translation::handlers;

// A debugger is there, and has no use for sites before this one.
bool debugged = false;
std::size_t first_debugged = 0;

void* map(std::size_t size) {
  const long mapping = system_call(SYS_mmap, 0, static_cast<long>(size), PROT_READ | PROT_WRITE,
                                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return mapping < 0 && mapping > -4096 ? nullptr : reinterpret_cast<void*>(mapping);
}

// Memory that is never given back, all zero.
void* allocate(std::size_t size) {
  constexpr std::size_t chunk_size = 256 * 1024;
  static std::byte* chunk = nullptr;
  static std::size_t left = 0;
  size = (size + 15) & ~std::size_t{15};
  if (size > left) {
    chunk = static_cast<std::byte*>(map(chunk_size));
    left = chunk ? chunk_size : 0;
    if (!chunk) return nullptr;
  }
  void* const result = chunk;
  chunk += size;
  left -= size;
  return result;
}

std::atomic<Site*>& bucket_of(const std::uint32_t* address) {
  return buckets[(reinterpret_cast<std::uintptr_t>(address) >> 2) * 0x9e3779b97f4a7c15u >> 50];
}

std::uint32_t read_word(const std::uint32_t* at) {
  return std::atomic_ref(*const_cast<std::uint32_t*>(at)).load(std::memory_order_relaxed);
}

// The word at an address as the program wrote it, where a patch of ours may stand.
std::uint32_t own_word(const std::uint32_t* at) {
  const std::uint32_t word = read_word(at);
  for (const Site* s = bucket_of(at).load(std::memory_order_acquire); s; s = s->next)
    if (s->address == at && s->patch.load(std::memory_order_relaxed) == word && word != 0) return s->words[0];
  return word;
}

// The same where a run begins. What has trapped there is no breakpoint: if one stands there now, a debugger has
// executed the program's own word and put the breakpoint back before the trap was served.
std::uint32_t first_word(const std::uint32_t* at) {
  std::uint32_t word = own_word(at);
  if (word != breakpoint_word) return word;
  for (const Site* s = bucket_of(at).load(std::memory_order_acquire); s; s = s->next)
    if (s->address == at) return s->words[0];
  read_mapped_file(at, &word, sizeof word);
  return word;
}

bool is_of(const Site* s, const std::uint32_t* address) {
  if (s->address != address || s->index < first_debugged) return false;
  for (std::size_t i = 0; i < s->count; ++i)
    if ((i == 0 ? first_word(address) : own_word(address + i)) != s->words[i]) return false;
  return true;
}

Site* find(const std::uint32_t* address) {
  for (Site* s = bucket_of(address).load(std::memory_order_acquire); s; s = s->next)
    if (is_of(s, address)) return s;
  return nullptr;
}

template <class T>
T* allocate_array(std::size_t n) {
  return static_cast<T*>(allocate(n * sizeof(T)));
}

Site* make(std::uint32_t* address) {
  std::uint32_t words[longest_run];
  DecodeHandler handlers[longest_run];
  std::size_t n = 0;
  // In code that the program can write a run is one instruction long, so that no part of one can change behind its
  // entry's back.
  Mapping m;
  const bool is_known = (patching || noting) && find_code_mapping(reinterpret_cast<std::uintptr_t>(address), m);
  const bool is_steady = !patching || (is_known && !m.writable);
  const std::size_t most = is_steady && !debugged ? longest_run : 1;
  // With native code, what simple scalar instructions part is one run.
  const bool takes_scalars = patching && translating == Translation::native && most > 1;
  std::size_t taken = 0;
  do {
    const std::uint32_t word = taken == 0 ? first_word(address) : own_word(address + taken);
    const DecodeHandler handle = handler_of(word);
    if (!handle && (taken == 0 || !takes_scalars || !is_simple_scalar(word))) break;
    words[taken] = word;
    handlers[taken] = handle;
    ++taken;
    if (handle) n = taken;
  } while (taken < most && (reinterpret_cast<std::uintptr_t>(address + taken) & page_mask) != 0);
  const std::size_t index = count_of_sites.load(std::memory_order_relaxed);
  if (n == 0 || index == most_sites) return nullptr;
  if (!by_index) by_index = static_cast<Site**>(map(most_sites * sizeof(Site*)));
  auto* s = allocate_array<Site>(1);
  auto* own_words = allocate_array<std::uint32_t>(n);
  auto* own_handlers = allocate_array<DecodeHandler>(n);
  auto* partial = allocate_array<std::atomic<std::int64_t>>(n);
  auto* uses = counting_lanes ? allocate_array<LaneUse>(n) : nullptr;
  if (!by_index || !s || !own_words || !own_handlers || !partial || (counting_lanes && !uses)) return nullptr;
  std::memcpy(own_words, words, n * sizeof words[0]);
  std::memcpy(own_handlers, handlers, n * sizeof handlers[0]);
  s->address = address;
  s->count = static_cast<std::uint32_t>(n);
  s->index = static_cast<std::uint32_t>(index);
  s->words = own_words;
  s->handlers = own_handlers;
  s->partial = partial;
  s->uses = uses;
  s->is_timed = counting_time;
  s->module = is_known ? m.module : 0;
  s->has_scalars = std::find(handlers, handlers + n, nullptr) != handlers + n;
  std::atomic<Site*>& bucket = bucket_of(address);
  s->next = bucket.load(std::memory_order_relaxed);
  by_index[index] = s;
  count_of_sites.store(index + 1, std::memory_order_release);
  bucket.store(s, std::memory_order_release);
  return s;
}

}  // namespace

Site* find_site(std::uint32_t* address) { return find(address); }

Site* need_site(std::uint32_t* address) {
  if (Site* s = find(address)) return s;
  const std::lock_guard guard(lock);
  if (Site* s = find(address)) return s;
  return make(address);
}

static std::uint64_t executions_of(const ThreadBlock* block, std::size_t sites);

void keep_counts_of(ThreadBlock* block) {
  if (ended_threads) {
    const std::uint64_t executions = executions_of(block, count_of_sites.load(std::memory_order_acquire));
    if (ended_count < most_ended) ended_threads[ended_count++] = {block->thread_id, 0};
    ended_threads[ended_count - 1].executions += executions;
  }
  ended_time += block->in_runs;
  block->partial = 0;
  block->in_runs = 0;
  std::uint64_t* counts = counts_of(block);
  for (std::size_t i = 0, n = count_of_sites.load(std::memory_order_acquire); i < n; ++i) {
    if (counts[i] == 0) continue;
    by_index[i]->ended += counts[i];
    counts[i] = 0;
  }
}

void count_trap() { traps.fetch_add(1, std::memory_order_relaxed); }

void count_partial(Site* s, std::size_t done) {
  for (std::size_t i = 0; i < done; ++i) s->partial[i].fetch_add(1, std::memory_order_relaxed);
  if (this_thread_block)
    this_thread_block->partial += static_cast<std::int64_t>(
        done - static_cast<std::size_t>(std::count(s->handlers, s->handlers + done, nullptr)));
}

void count_without_site(bool for_lack_of_room) {
  static std::atomic<bool> told{false};
  executions_without_site.fetch_add(1, std::memory_order_relaxed);
  if (this_thread_block) ++this_thread_block->partial;
  if (for_lack_of_room && !told.exchange(true, std::memory_order_relaxed))
    print_line("no memory for more counts; from here on new places count in the total alone");
}

// Of SVE, in the site's run.
static std::uint64_t count_instructions(const Site* s) {
  return static_cast<std::uint64_t>(s->count - std::count(s->handlers, s->handlers + s->count, nullptr));
}

std::uint64_t count_executions() {
  std::uint64_t total = executions_without_site;
  const std::size_t n = count_of_sites.load(std::memory_order_acquire);
  for (std::size_t i = 0; i < n; ++i) {
    const Site* s = by_index[i];
    total += s->ended * count_instructions(s);
    for (std::size_t k = 0; k < s->count; ++k)
      if (s->handlers[k]) total += s->partial[k];
  }
  struct Sum {
    std::size_t n;
    std::uint64_t total;
  } running{n, 0};
  for_each_thread_block(
      [](ThreadBlock* block, void* argument) {
        auto* to = static_cast<Sum*>(argument);
        const std::uint64_t* counts = counts_of(block);
        for (std::size_t i = 0; i < to->n; ++i) to->total += counts[i] * count_instructions(by_index[i]);
      },
      &running);
  return total + running.total;
}

CountedWord* collect_counts(std::size_t& size) {
  const std::size_t n = count_of_sites.load(std::memory_order_acquire);
  std::size_t most = 1;
  for (std::size_t i = 0; i < n; ++i) most += by_index[i]->count;
  auto* const all = static_cast<CountedWord*>(map(most * sizeof(CountedWord)));
  struct Totals {
    std::size_t n;
    std::uint64_t* of;
  } runs{n, static_cast<std::uint64_t*>(map((n + 1) * sizeof(std::uint64_t)))};
  size = 0;
  if (!all || !runs.of) return nullptr;
  for_each_thread_block(
      [](ThreadBlock* block, void* argument) {
        auto* to = static_cast<Totals*>(argument);
        const std::uint64_t* counts = counts_of(block);
        for (std::size_t i = 0; i < to->n; ++i) to->of[i] += counts[i];
      },
      &runs);
  for (std::size_t i = 0; i < n; ++i) {
    const Site* s = by_index[i];
    for (std::size_t k = 0; k < s->count; ++k) {
      if (!s->handlers[k]) continue;
      const std::uint64_t count = runs.of[i] + s->ended + static_cast<std::uint64_t>(s->partial[k].load());
      if (count != 0) all[size++] = {s->address + k, s->words[k], count};
    }
  }
  system_call(SYS_munmap, address(runs.of), static_cast<long>((n + 1) * sizeof(std::uint64_t)));
  // What is met in the middle of another run has sites of both runs.
  std::sort(all, all + size, [](const CountedWord& a, const CountedWord& b) {
    return a.address != b.address ? a.address < b.address : a.word < b.word;
  });
  std::size_t kept = 0;
  for (std::size_t i = 1; i < size; ++i) {
    if (all[i].address == all[kept].address && all[i].word == all[kept].word)
      all[kept].count += all[i].count;
    else
      all[++kept] = all[i];
  }
  if (size > 0) size = kept + 1;
  return all;
}

// In all runs that have come to their end, and in others.
static std::uint64_t executions_of(const ThreadBlock* block, std::size_t sites) {
  const std::uint64_t* counts = counts_of(const_cast<ThreadBlock*>(block));
  auto total = static_cast<std::uint64_t>(block->partial);
  for (std::size_t i = 0; i < sites; ++i) total += counts[i] * count_instructions(by_index[i]);
  return total;
}

// Of all threads, in nanoseconds.
static std::uint64_t time_in_runs() {
  std::uint64_t total = ended_time, rate;
  for_each_thread_block(
      [](ThreadBlock* block, void* argument) { *static_cast<std::uint64_t*>(argument) += block->in_runs; }, &total);
  asm volatile("mrs %0, cntfrq_el0" : "=r"(rate));
  return rate == 0 ? 0 : static_cast<std::uint64_t>(static_cast<unsigned __int128>(total) * 1'000'000'000 / rate);
}

void tell_sites(RunDataWriter& data) {
  data.line("traps", traps.load());
  if (counting_time) data.line("emulation", time_in_runs());
  if (const std::uint64_t unplaced = executions_without_site) data.line("unplaced", unplaced);
  for (std::uint32_t number = 1; const NotedModule* m = find_noted_module(number); ++number)
    data.line("module", std::uint64_t{number}, RunDataWriter::Hex{m->begin}, RunDataWriter::Hex{m->end},
              RunDataWriter::Hex{m->offset}, std::string_view(m->path));
  struct {
    RunDataWriter* data;
    std::size_t first, end;
    std::uint64_t runs[256];
  } now{&data, 0, count_of_sites.load(std::memory_order_acquire), {}};
  for (std::size_t i = 0; i < ended_count; ++i)
    data.line("thread", static_cast<std::uint64_t>(ended_threads[i].id), ended_threads[i].executions);
  const std::size_t n = now.end;
  for_each_thread_block(
      [](ThreadBlock* block, void* argument) {
        const auto* to = static_cast<decltype(now)*>(argument);
        if (const std::uint64_t executions = executions_of(block, to->end); executions != 0)
          to->data->line("thread", static_cast<std::uint64_t>(block->thread_id), executions);
      },
      &now);
  // No memory is asked for, which a sandbox may forbid: so the threads' counts are added up for some sites at a time.
  for (now.first = 0; now.first < n; now.first = now.end) {
    now.end = std::min(n, now.first + std::size(now.runs));
    for (std::size_t i = now.first; i < now.end; ++i) now.runs[i - now.first] = by_index[i]->ended;
    for_each_thread_block(
        [](ThreadBlock* block, void* argument) {
          auto* to = static_cast<decltype(now)*>(argument);
          for (std::size_t i = to->first; i < to->end; ++i) to->runs[i - to->first] += counts_of(block)[i];
        },
        &now);
    for (std::size_t i = now.first; i < now.end; ++i) {
      const Site* s = by_index[i];
      data.line("run", std::uint64_t{s->module}, RunDataWriter::Hex{reinterpret_cast<std::uintptr_t>(s->address)},
                std::uint64_t{s->count}, now.runs[i - now.first],
                std::uint64_t{s->patch.load(std::memory_order_relaxed) != 0});
      for (std::size_t k = 0; k < s->count; ++k)
        if (s->handlers[k]) data.word(k, s->words[k], s->partial[k], s->uses ? &s->uses[k] : nullptr);
    }
  }
}

bool counts_time() { return counting_time; }

std::uint64_t read_counter() {
  std::uint64_t now;
  asm volatile("mrs %0, cntvct_el0" : "=r"(now));
  return now;
}

void note_for_report(bool lanes, bool time) {
  noting = true;
  counting_time = time;
  counting_lanes = lanes;
  if (lanes) translating = Translation::handlers;
  ended_threads = static_cast<EndedThread*>(map(most_ended * sizeof(EndedThread)));
  note_modules();
}

void lock_sites() { lock.lock(); }
void unlock_sites() { lock.unlock(); }

void sites_after_fork_in_child(bool has_counted) {
  executions_without_site = 0;
  traps = 0;
  ended_count = 0;
  ended_time = 0;
  const std::size_t n = count_of_sites.load(std::memory_order_relaxed);
  for (std::size_t i = 0; i < n; ++i) {
    Site* s = by_index[i];
    s->ended = 0;
    for (std::size_t k = 0; k < s->count; ++k) {
      s->partial[k] = 0;
      if (s->uses) new (&s->uses[k]) LaneUse{};
    }
  }
  const std::size_t wiped = has_counted ? 0 : n;
  for_each_thread_block(
      [](ThreadBlock* block, void* argument) {
        std::fill_n(counts_of(block), *static_cast<const std::size_t*>(argument), 0);
        block->partial = 0;
        block->in_runs = 0;
      },
      const_cast<std::size_t*>(&wiped));
  leave_code_to_parent();
  if (patching) start_patching();
}

void start_sites(bool patches, Translation how, bool tells) {
  patching = patches;
  debugged = is_traced();
  translating = debugged || !patches || counting_lanes ? Translation::handlers : how;
  telling = tells;
  start_native();
  if (patching) start_patching();
}

namespace {

// One line for each instruction of the run, and its code as words to be disassembled.
void tell(const Site* s, const EntryCode& code) {
  Text<160> line;
  const auto print = [&] {
    print_line(line.c_str());
    line.clear();
  };
  (line << "site ").hex(reinterpret_cast<std::uintptr_t>(s->address)) << ", code at ";
  line.hex(s->code + 4 * code.begin) << ", " << code.size - code.begin << " words";
  print();
  for (std::size_t i = 0; i < s->count; ++i) {
    char text[decode::max_text];
    line << "  ";
    line.number(s->words[i], 16, 8) << "  ";
    line << (s->handlers[i] ? decode::text_of(s->words[i], text) : "(as it is)");
    print();
  }
  for (std::size_t i = code.begin; i < code.size; ++i) {
    line << (i % 8 == code.begin % 8 ? "  code " : " ");
    line.number(code.words[i], 16, 8);
    if ((i + 1) % 8 == code.begin % 8 || i + 1 == code.size) print();
  }
}

// The address of the site's code, made if need be; 0 if it cannot be.
std::uint64_t need_entry(Site* s) {
  if (const std::uint64_t made = s->entry.load(std::memory_order_relaxed)) return made;
  if (!entries) entries = static_cast<EntryPlace*>(map(most_sites * sizeof(EntryPlace)));
  const CodeSpace space =
      entries ? reserve_code(reinterpret_cast<std::uintptr_t>(s->address), most_entry_words) : CodeSpace{};
  EntryCode code;
  if (space.address == 0 || !make_entry(*s, space.address, translating, code)) return 0;
  auto* const events = allocate_array<CodeEvent>(code.event_count);
  if (!events) return 0;
  std::memcpy(events, code.events, code.event_count * sizeof events[0]);
  s->events.store(events, std::memory_order_release);
  s->event_count = static_cast<std::uint32_t>(code.event_count);
  s->code = space.address;
  if (telling) tell(s, code);
  commit_code(space, code.words, code.size);
  const std::uint64_t entry = space.address + 4 * code.begin;
  const std::size_t n = entry_count.load(std::memory_order_relaxed);
  entries[n] = {entry, space.address + 4 * code.size, s};
  entry_count.store(n + 1, std::memory_order_release);
  s->entry.store(entry, std::memory_order_release);
  return entry;
}

// To be noted before it is done: another thread that meets the branch is to know it for ours.
bool branch_to_entry(Site* s) {
  const std::uint64_t entry = need_entry(s);
  const std::uint32_t branch = entry ? branch_to(reinterpret_cast<std::uint64_t>(s->address), entry) : 0;
  if (branch == 0) return false;
  const auto at = reinterpret_cast<std::uintptr_t>(s->address);
  lowest_patched = std::min(lowest_patched.load(), at);
  highest_patched = std::max(highest_patched.load(), at);
  s->patch.store(branch, std::memory_order_release);
  if (patch_word(s->address, s->words[0], branch)) return true;
  s->patch.store(0, std::memory_order_release);
  return false;
}

// The program's own word stands at the address again.
void restore(Site* s) {
  const std::uint32_t patch = s->patch.load(std::memory_order_relaxed);
  if (patch == 0) return;
  patch_word(s->address, patch, s->words[0]);
  s->patch.store(0, std::memory_order_release);
}

}  // namespace

void patch_site(Site* s) {
  // A patch may be noted that is gone: the program has mapped the same code there once more.
  const auto is_done = [s] {
    return s->gave_up.load(std::memory_order_relaxed) ||
           read_word(s->address) == s->patch.load(std::memory_order_relaxed);
  };
  if (!patching || is_done() || in_borrowed_memory()) return;
  const std::lock_guard guard(lock);
  if (is_done() || read_word(s->address) == breakpoint_word) return;
  if (branch_to_entry(s)) return;
  s->gave_up = true;
}

bool sites_are_debugged() {
  const SignalsBlocked signals;
  const std::unique_lock guard(lock, std::try_to_lock);
  if (!guard) return false;
  if (debugged && patching) return true;
  debugged = true;
  // gdb steps over a trap by no step of its own: a program that was to keep its words has breakpoints in them anyway.
  if (!patching) start_patching();
  patching = true;
  translating = Translation::handlers;
  first_debugged = count_of_sites.load(std::memory_order_relaxed);
  for (std::size_t i = 0; i < first_debugged; ++i) restore(by_index[i]);
  return true;
}

bool prepare_sites(std::uint32_t* from, std::uint32_t* to) {
  const SignalsBlocked signals;
  if (!std::unique_lock(lock, std::try_to_lock)) return false;
  for (std::uint32_t* at = from; at < to; ++at) {
    if (!handler_of(read_word(at))) continue;
    if (Site* s = need_site(at)) patch_site(s);
  }
  return true;
}

bool is_patched(const std::uint32_t* address) {
  const std::uint32_t word = read_word(address);
  return own_word(address) != word;
}

void sites_change(std::uintptr_t from, std::uintptr_t to, bool become_writable) {
  if (!knows_code_mapping(from, to) && !(become_writable && may_hold_patches(from, to))) return;
  const SignalsBlocked signals;
  const std::lock_guard guard(lock);
  forget_code_mappings();
  Mapping m;
  for (std::size_t i = 0, n = count_of_sites.load(std::memory_order_relaxed); become_writable && i < n; ++i) {
    Site* s = by_index[i];
    const auto at = reinterpret_cast<std::uintptr_t>(s->address);
    if (at < from || at >= to || s->patch.load(std::memory_order_relaxed) == 0) continue;
    // What was patched may be gone, and data that cannot be read lie there now.
    if (at >= m.begin && at < m.end ? m.readable : find_mapping(at, m) && m.readable) restore(s);
  }
}

Translation translation_of_sites() { return translating; }

Site* site_of_entry(std::uintptr_t pc) {
  if (!is_own_code(pc)) return nullptr;
  for (std::size_t i = entry_count.load(std::memory_order_acquire); i > 0; --i) {
    const EntryPlace& e = entries[i - 1];
    if (pc < e.begin || pc >= e.end) continue;
    return e.owner;
  }
  return nullptr;
}

}  // namespace sve::runner
