// Go without C, linked statically, with SVE instructions in its own assembler's code.
package main

import (
	"fmt"
	"sync"
)

func vectorBytes() int64

func main() {
	var all sync.WaitGroup
	totals := make([]int64, 8)
	for g := range totals {
		all.Add(1)
		go func(g int) {
			defer all.Done()
			for i := 0; i < 100; i++ {
				totals[g] += vectorBytes()
				_ = make([]byte, 100000)
			}
		}(g)
	}
	all.Wait()
	fmt.Println(totals)
}
