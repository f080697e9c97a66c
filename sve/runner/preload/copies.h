// Which process this is: the one that started, a copy of it, or a vforked child, which runs in its parent's memory.
#pragma once

#include <cstddef>

namespace sve::runner {

/// Called at start and in each copy that is known as one.
void begin_process();

/// Whether this is a child that runs in its parent's memory, between vfork and exec.
bool in_borrowed_memory();

/// Whether memory that is marked by `wipe_in_copies` is all zero in a copy, as soon as there is one.
bool copies_are_wiped();
void wipe_in_copies(long begin, std::size_t size);

/// A copy that was made by a system call which we did not see becomes a process of its own: calls what
/// `when_copied` set.
void notice_copy();
void when_copied(void (*adopt)());

}  // namespace sve::runner
