// TAVO_FOR_EACH(MACRO, argument, a, b, ...) expands to MACRO(argument, a) MACRO(argument, b) ..., for up to 256 items.
#pragma once

#define TAVO_PARENTHESES ()
#define TAVO_EXPAND(...) TAVO_EXPAND_16(TAVO_EXPAND_16(TAVO_EXPAND_16(TAVO_EXPAND_16(__VA_ARGS__))))
#define TAVO_EXPAND_16(...) TAVO_EXPAND_4(TAVO_EXPAND_4(TAVO_EXPAND_4(TAVO_EXPAND_4(__VA_ARGS__))))
#define TAVO_EXPAND_4(...) TAVO_EXPAND_1(TAVO_EXPAND_1(TAVO_EXPAND_1(TAVO_EXPAND_1(__VA_ARGS__))))
#define TAVO_EXPAND_1(...) __VA_ARGS__

#define TAVO_FOR_EACH(MACRO, argument, ...) __VA_OPT__(TAVO_EXPAND(TAVO_FOR_EACH_STEP(MACRO, argument, __VA_ARGS__)))
#define TAVO_FOR_EACH_STEP(MACRO, argument, item, ...) \
  MACRO(argument, item) __VA_OPT__(TAVO_FOR_EACH_AGAIN TAVO_PARENTHESES(MACRO, argument, __VA_ARGS__))
#define TAVO_FOR_EACH_AGAIN() TAVO_FOR_EACH_STEP
