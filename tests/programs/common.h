// What the programs share: a fixed sequence of numbers, and a way to keep a kernel a function of its own.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define KERNEL __attribute__((noinline, noclone))

static inline uint64_t next_number(uint64_t* state) {
  *state = *state * 6364136223846793005u + 1442695040888963407u;
  return *state >> 17;
}

static inline uint64_t digest(const void* data, size_t size) {
  const unsigned char* bytes = (const unsigned char*)data;
  uint64_t hash = 14695981039346656037u;
  for (size_t i = 0; i < size; ++i) hash = (hash ^ bytes[i]) * 1099511628211u;
  return hash;
}
