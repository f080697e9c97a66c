// SVE_FOR_EACH(M, a, b, ...) expands to M(a) M(b) ...; SVE_FOR_EACH_WITH(M, x, a, b, ...) to M(x, a) M(x, b) ...;
// SVE_FOR_EACH_PAIR(M, x, (t, u, ...), a, b, ...) to M(x, t, a) M(x, u, a) ... M(x, t, b) M(x, u, b) ...
// Used to stamp names over a list of element types; logic lives in templates, not in macros.
//
// Not once: headers that are installed forget these macros at their end (forget_repeat.h), unless they were there
// before.

#define SVE_PARENTHESES ()
#define SVE_EXPAND(...) SVE_EXPAND_2(SVE_EXPAND_2(SVE_EXPAND_2(SVE_EXPAND_2(__VA_ARGS__))))
#define SVE_EXPAND_2(...) SVE_EXPAND_3(SVE_EXPAND_3(SVE_EXPAND_3(SVE_EXPAND_3(__VA_ARGS__))))
#define SVE_EXPAND_3(...) SVE_EXPAND_1(SVE_EXPAND_1(SVE_EXPAND_1(SVE_EXPAND_1(__VA_ARGS__))))
#define SVE_EXPAND_1(...) __VA_ARGS__

#define SVE_FOR_EACH(macro, ...) __VA_OPT__(SVE_EXPAND(SVE_FOR_EACH_STEP(macro, __VA_ARGS__)))
#define SVE_FOR_EACH_STEP(macro, first, ...) \
  macro(first) __VA_OPT__(SVE_FOR_EACH_AGAIN SVE_PARENTHESES(macro, __VA_ARGS__))
#define SVE_FOR_EACH_AGAIN() SVE_FOR_EACH_STEP

#define SVE_FOR_EACH_WITH(macro, with, ...) __VA_OPT__(SVE_EXPAND(SVE_FOR_EACH_WITH_STEP(macro, with, __VA_ARGS__)))
#define SVE_FOR_EACH_WITH_STEP(macro, with, first, ...) \
  macro(with, first) __VA_OPT__(SVE_FOR_EACH_WITH_AGAIN SVE_PARENTHESES(macro, with, __VA_ARGS__))
#define SVE_FOR_EACH_WITH_AGAIN() SVE_FOR_EACH_WITH_STEP

#define SVE_UNWRAP(...) __VA_ARGS__
#define SVE_FOR_EACH_PAIR(macro, with, list, ...) \
  __VA_OPT__(SVE_EXPAND(SVE_FOR_EACH_PAIR_STEP(macro, with, list, __VA_ARGS__)))
#define SVE_FOR_EACH_PAIR_STEP(macro, with, list, first, ...)   \
  SVE_PAIR SVE_PARENTHESES(macro, with, first, SVE_UNWRAP list) \
      __VA_OPT__(SVE_FOR_EACH_PAIR_AGAIN SVE_PARENTHESES(macro, with, list, __VA_ARGS__))
#define SVE_FOR_EACH_PAIR_AGAIN() SVE_FOR_EACH_PAIR_STEP
#define SVE_PAIR() SVE_PAIR_STEP
#define SVE_PAIR_STEP(macro, with, second, first, ...) \
  macro(with, first, second) __VA_OPT__(SVE_PAIR SVE_PARENTHESES(macro, with, second, __VA_ARGS__))
