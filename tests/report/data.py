"""Makes data as processes leave them behind, without a process."""
import random

WORDS = [0x04800020, 0xa540a020, 0xe540e020, 0x2538c000, 0x65800820, 0x25a30fe0, 0x04b0e3e1, 0x85224021]


def write(path, *, sites, executions, runs=3, seed=1, process=100, bits=896, with_lanes=False):
    """`sites` instructions of generated code that are executed `executions` times together; returns (word, count) pairs."""
    source = random.Random(seed)
    counts = []
    left = executions
    for i in range(sites):
        n = left // (sites - i)
        n = source.randrange(n + 1) * 2 if i + 1 < sites else left
        n = min(n, left)
        counts.append((0x04800000 | source.randrange(1 << 13) | (i % 8) << 16, n))  # predicated arithmetic by a register
        left -= n
    with open(path, "w") as file:
        file.write(f"sve-run-data 1\nbits {bits}\nplatform embedded\nprocess {process} 1\nprogram /nonesuch/synthetic\n"
                   f"counts\nend exit\ntotal {executions}\n" + ("lanes\n" if with_lanes else "") + f"traps {sites}\n"
                   f"thread {process} {executions}\n")
        for i in range(0, sites, runs):
            own = counts[i:i + runs]
            whole = min(n for _, n in own)
            file.write(f"run 0 {hex(0x10000 + 64 * i)} {len(own)} {whole} 1\n")
            for place, (word, n) in enumerate(own):
                file.write(f"word {place} {hex(word)} {n - whole}\n")
                if with_lanes and n:
                    file.write(f"use {n} {n * 7} 0 0 0\nbins 0 0 0 {n} 0 0 0 0 0 0 0 0\n")
        file.write("done\n")
    return counts
