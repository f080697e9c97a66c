// A program with an allocator of its own that uses vectors: an instruction may be met while the allocator is at work.
#include <pthread.h>

#include "common.h"

static unsigned char arena[1 << 22] __attribute__((aligned(64)));
static size_t used;
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;

KERNEL static void clear(uint64_t* words, uint64_t mark, size_t n) {
  for (size_t i = 0; i < n; ++i) words[i] = (words[i] | mark) * 0;
}

// The size stands in front of each block; freed blocks are not used again.
void* malloc(size_t size) {
  const size_t whole = (size + 79) / 64 * 64;
  pthread_mutex_lock(&lock);
  unsigned char* block = used + whole <= sizeof arena ? arena + used : NULL;
  if (block) {
    used += whole;
    clear((uint64_t*)block, used, whole / sizeof(uint64_t));
    memcpy(block, &size, sizeof size);
  }
  pthread_mutex_unlock(&lock);
  return block ? block + 16 : NULL;
}

void free(void* p) { (void)p; }

void* calloc(size_t count, size_t size) { return malloc(count * size); }

void* realloc(void* old, size_t size) {
  size_t old_size = 0;
  void* fresh = malloc(size);
  if (old) memcpy(&old_size, (unsigned char*)old - 16, sizeof old_size);
  if (old && fresh) memcpy(fresh, old, old_size < size ? old_size : size);
  return fresh;
}

int main(void) {
  uint32_t* numbers = NULL;
  for (size_t n = 1; n <= 512; n *= 2) {
    numbers = realloc(numbers, n * sizeof *numbers);
    for (size_t i = n / 2; i < n; ++i) numbers[i] = (uint32_t)(i * i);
    char* text = calloc(n, 3);
    printf("%zu: %016llx %016llx\n", n, (unsigned long long)digest(numbers, n * sizeof *numbers),
           (unsigned long long)digest(text, 3 * n));
    free(text);
  }
  return 0;
}
