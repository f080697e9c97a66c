// Fifty kernels, ten in five types, as a compiler vectorises them; each prints a sum of what it has made.
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <type_traits>

namespace kernels {

constexpr int n = 1003;

template <class T>
struct arrays {
  T a[n], b[n], c[2 * n];
  std::conditional_t<sizeof(T) == 8, std::int64_t, std::int32_t> index[n];
};

template <class T>
inline T clamped(T value, T low, T high) {
  return value < low ? low : value > high ? high : value;
}

template <class T>
inline T scaled(T value) {
  return static_cast<T>(value * T(3) + T(1));
}

#define KERNEL       \
  template <class T> \
  [[gnu::noinline]] void

KERNEL add(arrays<T>& x) {
  for (int i = 0; i < n; ++i) x.c[i] = static_cast<T>(x.a[i] + x.b[i]);
}
KERNEL scale(arrays<T>& x) {
  for (int i = 0; i < n; ++i) x.c[i] = scaled(x.a[i]);
}
KERNEL clamp(arrays<T>& x) {
  for (int i = 0; i < n; ++i) x.c[i] = clamped<T>(x.a[i], T(20), T(90));
}
KERNEL choose(arrays<T>& x) {
  for (int i = 0; i < n; ++i)
    if (x.a[i] > x.b[i]) x.c[i] = x.a[i];
}
KERNEL reverse(arrays<T>& x) {
  for (int i = 0; i < n; ++i) x.c[i] = x.a[n - 1 - i];
}
KERNEL interleave(arrays<T>& x) {
  for (int i = 0; i < n; ++i) {
    x.c[2 * i] = x.a[i];
    x.c[2 * i + 1] = x.b[i];
  }
}
KERNEL part(arrays<T>& x) {
  for (int i = 0; i < n; ++i) x.a[i] = static_cast<T>(x.c[2 * i] + x.c[2 * i + 1]);
}
KERNEL gather(arrays<T>& x) {
  const T* from = x.a;
  asm volatile("" : "+r"(from));  // no offset of its own
#pragma GCC ivdep
  for (int i = 0; i < n; ++i) x.c[i] = from[x.index[i]];
}
KERNEL greatest(arrays<T>& x) {
  T most = x.a[0];
  for (int i = 0; i < n; ++i) most = x.a[i] > most ? x.a[i] : most;
  x.c[0] = most;
}
KERNEL sum_up(arrays<T>& x) {
  T sum = 0;
  for (int i = 0; i < n; ++i) sum = static_cast<T>(sum + x.a[i] * x.b[i]);
  x.c[1] = sum;
}

template <class T>
void run(const char* type) {
  static arrays<T> x;
  const struct {
    const char* name;
    void (*kernel)(arrays<T>&);
  } kernels[] = {{"add", add<T>},           {"scale", scale<T>},           {"clamp", clamp<T>}, {"choose", choose<T>},
                 {"reverse", reverse<T>},   {"interleave", interleave<T>}, {"part", part<T>},   {"gather", gather<T>},
                 {"greatest", greatest<T>}, {"sum_up", sum_up<T>}};
  for (const auto& [name, kernel] : kernels) {
    for (int i = 0; i < n; ++i) {
      asm volatile("" : "+r"(i));  // not in vectors
      x.a[i] = static_cast<T>(i * 7 % 101);
      x.b[i] = static_cast<T>(i * 13 % 97);
      x.index[i] = i * 31 % n;
    }
    kernel(x);
    std::uint64_t sum = 0;
    for (int i = 0; i < 2 * n; ++i) {
      asm volatile("" : "+r"(sum));
      sum = sum * 31 + static_cast<std::uint64_t>(static_cast<std::int64_t>(x.c[i]));
    }
    std::printf("%s %s %016" PRIx64 "\n", name, type, sum);
  }
}

}  // namespace kernels

int main() {
  using kernels::run;
  run<std::uint8_t>("bytes");
  run<std::int16_t>("halfwords");
  run<std::uint32_t>("words");
  run<float>("floats");
  run<double>("doubles");
  return 0;
}
