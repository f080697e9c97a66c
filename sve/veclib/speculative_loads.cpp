// First-fault and non-fault loads, contiguous and gathering.
#include "sve/fault/fault_capture.h"
#include "sve/veclib/gathers.h"

using namespace sve;
using namespace sve::veclib;

namespace {

template <class M>
auto contiguous(u64 start) {
  return [start](std::size_t e) { return start + e * sizeof(M); };
}

// A guarded read of each active element until the first that faults; from there upward every element is 0 and its bits
// of the first-fault register are cleared, active or not. The first active element is guarded like any other: no load
// of this kind ever faults.
template <class T, class M, class Predicate, class Context, class Address>
auto load_guarded(const Predicate& p, Context* ctx, Address address) {
  return whole_or_nothing(ctx, [&](byte* r) {
    const GuardedReads guard;
    const std::size_t n = count<T>(ctx);
    std::size_t e = 0;
    for (; e < n; ++e) {
      std::make_unsigned_t<M> element{0};
      if (active<T>(p, e) && !guarded_read(address(e), element)) break;
      store<T>(r, e, static_cast<T>(static_cast<M>(element)));
    }
    for (; e < n; ++e) {
      store<T>(r, e, T{0});
      clear_bits(ctx->ffr, e * sizeof(T), sizeof(T));
    }
  });
}

// The same for a contiguous span. Where all of it can be copied, the elements need no guard of their own.
template <class T, class M, class Predicate, class Context>
auto load_guarded_span(const Predicate& p, Context* ctx, u64 start) {
  const GuardedReads guard;
  const std::size_t bytes = count<T>(ctx) * sizeof(M);
  byte span[sizeof(VectorV)];
  if (bytes >= 8 && guarded_copy(span, start, bytes))
    return gather<T, M>(p, ctx, contiguous<M>(reinterpret_cast<u64>(span)));
  return load_guarded<T, M>(p, ctx, contiguous<M>(start));
}

}  // namespace

#define GATHER(order, form, address, extend, bytes, M, ...) \
  SVE_DEFINE_GATHER_##order(LoadFF##bytes##form, (load_guarded<T, M>(p, ctx, address(M, extend))), __VA_ARGS__)
#define FIRST_FAULT(op, bytes, M, ...) \
  SVE_DEFINE_LOAD_SS(op##bytes##LSSZ, (load_guarded_span<T, M>(p, ctx, start_ss<M>(base, index))), __VA_ARGS__)
#define NON_FAULT(op, bytes, M, ...) \
  SVE_DEFINE_LOAD_SI(op##bytes##SIZ, (load_guarded_span<T, M>(p, ctx, start_si<T, M>(base, imm, ctx))), __VA_ARGS__)

SVE_EACH_GATHER(GATHER)
SVE_EACH_EXTENDING(FIRST_FAULT, CLoadFF)
SVE_EACH_EXTENDING(NON_FAULT, CLoadNF)
