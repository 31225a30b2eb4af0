#ifndef PROBE_FORWARD_H
#define PROBE_FORWARD_H

// Inside the probe binding: how a forwarder is made from one line with its result, name and parameter types.
//
// A forwarder jumps through its own pointer. The pointer leads to a binder at first, which finds the entry point in the
// probe library, puts its address there and calls it; from then on a call costs one load and one indirect jump, without
// a test. An entry point without an address leaves the binder in place.

#include <stddef.h>
#include <stdint.h>

#include "probe/loader.h"

template <size_t SIZE>
struct SYMBOL_NAME {
  char acText[SIZE];

  // Implicit: made from the literal in a template argument.
  constexpr SYMBOL_NAME(const char (&text)[SIZE]) : acText{} {
    for (size_t i = 0; i < SIZE; i++) {
      acText[i] = text[i];
    }
  }
};

// Where a forwarder finds its target: under its own name.
template <SYMBOL_NAME NAME>
struct NAMED_ENTRY {
  static constexpr int32_t MISSING = 0;

  static void* Find() { return PROBE_ResolveSymbol(NAME.acText); }
};

// Where a forwarder finds its target: among the internal functions, of which the library hands out one by one.
template <uint32_t INDEX>
struct INDEXED_ENTRY {
  static constexpr int32_t MISSING = -262;

  static void* Find() {
    auto* pfGetFunc = reinterpret_cast<void* (*)(uint32_t)>(PROBE_ResolveSymbol("VORTA_GetpFunc"));
    return pfGetFunc == nullptr ? nullptr : pfGetFunc(INDEX);
  }
};

template <typename ENTRY, typename FUNCTION>
struct FORWARDER;

template <typename ENTRY, typename RESULT, typename... ARGS>
struct FORWARDER<ENTRY, RESULT(ARGS...)> {
  static RESULT Bind(ARGS... args) {
    auto* pfEntry = reinterpret_cast<RESULT (*)(ARGS...)>(ENTRY::Find());
    if (pfEntry != nullptr) {
      pfTarget = pfEntry;
      return pfEntry(args...);
    }
    if constexpr (ENTRY::MISSING != 0) {
      return ENTRY::MISSING;
    } else {
      return RESULT();
    }
  }

  static inline RESULT (*pfTarget)(ARGS...) = Bind;
};

// Define the exported forwarder of one entry point: FORWARD(result, name, types of up to 15 parameters), where a type
// that does not stand whole before a name, such as a pointer to a function, goes by an alias; and with its
// index for an entry point that returns int32_t and has no name in the library.
#define FORWARD(RESULT, NAME, ...) FORWARD_TO(NAMED_ENTRY<#NAME>, RESULT, NAME, __VA_ARGS__)
#define FORWARD_INDEXED(INDEX, NAME, ...) FORWARD_TO(INDEXED_ENTRY<INDEX>, int32_t, NAME, __VA_ARGS__)

#define FORWARD_TO(ENTRY, RESULT, NAME, ...)                                                \
  extern "C" RESULT NAME(FORWARD_PARAMETERS(__VA_ARGS__));                                  \
  RESULT NAME(FORWARD_PARAMETERS(__VA_ARGS__)) {                                            \
    return FORWARDER<ENTRY, RESULT(__VA_ARGS__)>::pfTarget(FORWARD_ARGUMENTS(__VA_ARGS__)); \
  }

// "int, char*" becomes "int a, char* a_" and "a, a_": each name is the one before it with an underscore more. A macro
// does not expand within itself, so the rest of a list is put off (FORWARD_PARENS) and taken up by the
// rescans of FORWARD_EXPAND.
#define FORWARD_PARENS ()
#define FORWARD_EXPAND(...) FORWARD_EXPAND_4(FORWARD_EXPAND_4(FORWARD_EXPAND_4(FORWARD_EXPAND_4(__VA_ARGS__))))
#define FORWARD_EXPAND_4(...) FORWARD_RESCAN(FORWARD_RESCAN(FORWARD_RESCAN(FORWARD_RESCAN(__VA_ARGS__))))
#define FORWARD_RESCAN(...) __VA_ARGS__

#define FORWARD_PARAMETERS(...) __VA_OPT__(FORWARD_EXPAND(FORWARD_PARAMETER(a, __VA_ARGS__)))
#define FORWARD_PARAMETER(NAME, TYPE, ...) \
  TYPE NAME __VA_OPT__(, FORWARD_PARAMETER_LATER FORWARD_PARENS(NAME##_, __VA_ARGS__))
#define FORWARD_PARAMETER_LATER() FORWARD_PARAMETER

#define FORWARD_ARGUMENTS(...) __VA_OPT__(FORWARD_EXPAND(FORWARD_ARGUMENT(a, __VA_ARGS__)))
#define FORWARD_ARGUMENT(NAME, TYPE, ...) NAME __VA_OPT__(, FORWARD_ARGUMENT_LATER FORWARD_PARENS(NAME##_, __VA_ARGS__))
#define FORWARD_ARGUMENT_LATER() FORWARD_ARGUMENT

#endif
