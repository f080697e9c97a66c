// Takes back what repeat.h defines, where a header has to leave no macro behind.
#undef SVE_FORGETS_REPEAT

#undef SVE_PARENTHESES
#undef SVE_EXPAND
#undef SVE_EXPAND_2
#undef SVE_EXPAND_3
#undef SVE_EXPAND_1
#undef SVE_FOR_EACH
#undef SVE_FOR_EACH_STEP
#undef SVE_FOR_EACH_AGAIN
#undef SVE_FOR_EACH_WITH
#undef SVE_FOR_EACH_WITH_STEP
#undef SVE_FOR_EACH_WITH_AGAIN
#undef SVE_UNWRAP
#undef SVE_FOR_EACH_PAIR
#undef SVE_FOR_EACH_PAIR_STEP
#undef SVE_FOR_EACH_PAIR_AGAIN
#undef SVE_PAIR
#undef SVE_PAIR_STEP
