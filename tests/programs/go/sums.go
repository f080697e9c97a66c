// Go that calls SVE code in C from many threads, while its runtime stops them by signals, and recovers from a fault.
package main

/*
#cgo CFLAGS: -O2 -march=armv8.2-a+sve
#include <stdint.h>
#include <stdlib.h>

static int64_t sum_of_squares(const int64_t* values, long n) {
  int64_t total = 0;
  for (long i = 0; i < n; ++i) total += values[i] * values[i];
  return total;
}

static long vector_bytes(void) {
  long n;
  __asm__("cntb %0" : "=r"(n));
  return n;
}
*/
import "C"

import (
	"fmt"
	"runtime"
	"sync"
)

func fault() (recovered bool) {
	defer func() { recovered = recover() != nil }()
	var nothing *int
	*nothing = 1
	return false
}

func main() {
	fmt.Println("a vector has", C.vector_bytes(), "bytes")
	var all sync.WaitGroup
	totals := make([]C.int64_t, 8)
	recovered := make([]bool, len(totals))
	for g := range totals {
		all.Add(1)
		go func(g int) {
			defer all.Done()
			values := make([]C.int64_t, 1000)
			for i := range values {
				values[i] = C.int64_t(i * (g + 1))
			}
			for round := 0; round < 20; round++ {
				totals[g] = C.sum_of_squares(&values[0], C.long(len(values)))
				_ = make([]byte, 100000)
			}
			recovered[g] = fault()
			runtime.GC()
		}(g)
	}
	all.Wait()
	fmt.Println(totals, recovered)
	// Go's own end is a raw system call.
	C.exit(7)
}
