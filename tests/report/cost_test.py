"""usage: cost_test.py LIBRARY PLUGIN PROGRAM...: in host instructions, a report costs at most a tenth more than --counts."""
import os
import subprocess
import sys

from checks import check, finish, work_directory

library, plugin, *programs = sys.argv[1:]
work = work_directory()
environment = {k: v for k, v in os.environ.items() if not k.startswith("QEMU_")}
data = os.path.join(work.name, "data")
os.mkdir(data)
for program in programs:
    instructions = {}
    for options in ("quiet", f"quiet:counts={work.name}/counts", f"quiet:report={data}"):
        out = os.path.join(work.name, "out")
        subprocess.run(["qemu-aarch64", "-cpu", "neoverse-n1", "-L", "/usr/aarch64-linux-gnu", "-plugin",
                        f"{plugin},out={out}", "-E", "LD_PRELOAD=" + library, "-E", "SVE_RUN_OPTIONS=" + options,
                        program], stdout=subprocess.DEVNULL, env=environment)
        instructions[options] = int(open(out).read().split("end ")[1])
    plain, counts, report = instructions.values()
    print(f"{os.path.basename(program)}: {plain} host instructions, with counts {counts}, for a report {report}")
    check(counts > plain, "counts cost nothing")
    check(report <= 1.1 * counts, program, instructions)
check(len(os.listdir(data)) == len(programs), "each program has left data")
finish()
