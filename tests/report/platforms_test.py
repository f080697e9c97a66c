"""usage: platforms_test.py SVE_RUN DYNAMORIO PROGRAM. Both platforms report the same of a program, but for what only one of
them knows."""
import os
import sys

from checks import check, finish, read_report, run, use_processor_without_sve, work_directory

sve_run, dynamorio, program = sys.argv[1:]
use_processor_without_sve(sve_run)
work = work_directory()
reports = []
for name, options in (("embedded", []),
                      ("dynamorio", ["--platform=dynamorio", "--dynamorio", dynamorio,
                                     "--dynamorio-options=-xarch_root " + os.environ["QEMU_LD_PREFIX"]])):
    path = os.path.join(work.name, name + ".json")
    run(sve_run, "--lane-use", "--report", path, *options, program)
    reports.append(read_report(path))
mine, theirs = reports
check(theirs["platform"] == "dynamorio" and theirs["runs"]["lengths"] == [] and theirs["threads"] == [], theirs["totals"])
for part in ("mnemonics", "families", "element_sizes", "functions", "lines", "loops", "memory", "lane_use", "instructions"):
    check(mine[part] == theirs[part], part, "differ")
check(mine["totals"]["executions"] == theirs["totals"]["executions"] > 7000, theirs["totals"])
check(theirs["processes"][0]["program"] == os.path.realpath(program), theirs["processes"])
finish()
