// Gather loads and scatter stores.
#include "sve/veclib/gathers.h"

using namespace sve;
using namespace sve::veclib;

namespace {

template <class T, class M, class Predicate, class Vector, class Context, class Address>
void scatter(const Predicate& p, const Vector& v, const Context* ctx, Address address) {
  const std::size_t n = count<T>(ctx);
  const auto one = [&](std::size_t e) { write_plain<M>(address(e), static_cast<M>(load<T>(v.bytes, e))); };
  if (known_to_be_all<T>(p)) {
#pragma GCC unroll 32
    for (std::size_t e = 0; e < n; ++e) one(e);
  } else {
    for (std::size_t e = 0; e < n; ++e)
      if (active<T>(p, e)) one(e);
  }
}

}  // namespace

#define SVE_DEFINE_SCATTER_VS(...) \
  SVE_DEFINE(void, (SVE_IN_P(p), SVE_IN_V(v), SVE_IN_U(s), SVE_IN_V(data), SVE_CTX), __VA_ARGS__)
#define SVE_DEFINE_SCATTER_SV(...) \
  SVE_DEFINE(void, (SVE_IN_P(p), SVE_IN_U(s), SVE_IN_V(v), SVE_IN_V(data), SVE_CTX), __VA_ARGS__)
#define LOAD(order, form, address, extend, bytes, M, ...) \
  SVE_DEFINE_GATHER_##order(Load##bytes##form, (gather<T, M>(p, ctx, address(M, extend))), __VA_ARGS__)
#define STORE(order, form, address, extend, bytes, M, ...) \
  SVE_DEFINE_SCATTER_##order(Store##bytes##form, (scatter<T, M>(p, data, ctx, address(M, extend))), __VA_ARGS__)

SVE_EACH_GATHER(LOAD)
SVE_EACH_SCATTER(STORE)
