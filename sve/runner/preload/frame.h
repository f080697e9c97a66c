// Registers between signal frames and the emulated machine; and the frames that handlers of the program get, which are
// those of a processor with SVE at this vector length, laid out as the kernel lays them out.
#pragma once

#include <signal.h>
#include <sys/auxv.h>
#include <ucontext.h>

#include <cstddef>
#include <cstdint>

#include "sve/runner/preload/thread_block.h"
#include "sve/state/cpu_state.h"

#ifndef AT_MINSIGSTKSZ
#define AT_MINSIGSTKSZ 51
#endif

namespace sve::runner {

/// Loads all that the host holds: X0 to X30, SP, PC, NZCV, V0 to V31, FPSR, FPCR.
void load_state(cpu_state* state, const ucontext_t* context);

/// The way back. FPCR is the program's own and no instruction of ours changes it.
void store_state(const cpu_state* state, ucontext_t* context);

/// Changes Vn alone.
void store_vector(ucontext_t* context, unsigned n, const std::uint8_t (&bytes)[16]);

/// The frame's mask, and the kernel's part of it alone.
inline SignalBits saved_mask(const ucontext_t* context) { return to_bits(context->uc_sigmask); }
inline void set_saved_mask(ucontext_t* context, SignalBits mask) { context->uc_sigmask = to_set(mask); }

/// What stands at a handler's SP.
struct SignalFrame {
  siginfo_t info;
  ucontext_t context;
};

/// Room for the largest frame, as the kernel tells it in AT_MINSIGSTKSZ.
extern const std::size_t least_signal_stack;

/// Where a frame is put, and what of it a handler is entered with.
struct FramePlace {
  SignalFrame* frame;
  std::uint64_t* frame_record;  ///< the handler's X29
};

/// The place of a frame whose stack is free below `top`, for a program that is interrupted at `context`.
FramePlace place_frame(const ThreadBlock* block, const ucontext_t* context, std::uintptr_t top);

/// Writes the frame: the program interrupted at `context`, with `mask` for its mask. To be guarded.
void write_frame(const FramePlace& place, const ThreadBlock* block, const siginfo_t& info, const ucontext_t* context,
                 SignalBits mask);

/// What a handler has left of its frame goes to `context`, which the kernel is to resume, and to the thread's state:
/// first the general registers and the mask, then, if the frame is one that the kernel would accept, all the rest.
/// Returns false if it is not. To be guarded.
bool read_frame(ThreadBlock* block, const SignalFrame* frame, ucontext_t* context);

}  // namespace sve::runner
