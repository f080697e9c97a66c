"""usage: kernels_test.py SVE_RUN PROGRAM PLUGIN ADDR2LINE. A program of fifty kernels: what a report says equals what
--counts says, what an emulated processor with SVE executes, and what addr2line says."""
import collections
import itertools
import os
import subprocess
import sys

from checks import check, check_text, finish, read_report, run, use_processor_without_sve, work_directory

sve_run, program, plugin, addr2line = sys.argv[1:]
use_processor_without_sve(sve_run)
work = work_directory()


def path(name):
    return os.path.join(work.name, name)


def lines(name):
    with open(path(name)) as file:
        return [line.split(maxsplit=3) for line in file]


def by_word(pairs):
    return sorted(pairs)


# Totals, by instruction: the report, --counts, and an emulated processor with SVE.
printed = run(sve_run, f"--counts={path('counts')}", "--report", path("k.json"), f"--report={path('k.txt')}",
              f"--report={path('k.html')}", program).stdout
report = read_report(path("k.json"))
check_text(path("k.txt"))
mine = by_word((int(i["word"], 16), i["executions"]) for i in report["instructions"])
counted = by_word((int(word, 16), int(count)) for _, word, count, *_ in lines("counts"))
check(mine == counted, "the report's instructions are not those of --counts")
check(report["totals"]["executions"] == sum(count for _, count in counted), "totals")
texts = {int(word, 16): text.strip() for _, word, _, text in lines("counts")}
for i in report["instructions"]:
    check(i["text"] == texts[int(i["word"], 16)], i["text"], "is", texts[int(i["word"], 16)], "in --counts")

emulator = ["qemu-aarch64", "-cpu", "max,sve896=on,sve-default-vector-length=112,sme=off", "-L", "/usr/aarch64-linux-gnu",
            "-plugin", f"{plugin},out={path('executed')}"]
reference = run(*emulator, program, env={k: v for k, v in os.environ.items() if not k.startswith("QEMU_")})
check(reference.stdout == printed, "the program prints something else with SVE")
executed = by_word((int(word, 16), int(count)) for _, word, count in lines("executed"))
check(mine == executed, "the report's instructions are not those that a processor executes:",
      sum(n for _, n in mine), "and", sum(n for _, n in executed))

# Functions and lines, every site.
kernels = {f["name"].split("<")[0].split("::")[-1].removeprefix("void ") for f in report["functions"]}
check(len(report["functions"]) >= 50, "only", len(report["functions"]), "functions")
check({"add", "gather", "greatest"} <= kernels, "functions:", kernels)
check(len(report["lines"]) >= 10, "lines:", report["lines"])


def same_file(a, b):
    return os.path.normpath(a) == os.path.normpath(b)


inlined = 0
for number, module in enumerate(report["modules"]):
    own = [i for i in report["instructions"] if i["module"] == number]
    if not os.path.exists(module["path"]):
        continue
    said = subprocess.run([addr2line, "-a", "-i", "-f", "-C", "-e", module["path"]], text=True, stdout=subprocess.PIPE,
                          input="\n".join(i["address"] for i in own) + "\n", check=True).stdout.splitlines()
    frames = collections.defaultdict(list)
    address = None
    pending = None
    for line in said:
        if line.startswith("0x") and pending is None:
            address = int(line, 16)
        elif pending is None:
            pending = line
        else:
            file, at = line.split(" (discriminator")[0].rsplit(":", 1)
            frames[address].append((pending, file, int(at) if at.isdigit() else 0))
            pending = None
    for i in own:
        theirs = frames[int(i["address"], 16)]
        names = [call["function"] for call in i["inlined"]] + [i["function"]]
        places = [(i["file"], i["line"])] + [(call["file"], call["line"]) for call in i["inlined"]]
        inlined += len(i["inlined"])
        check(len(theirs) == len(names), i["address"], theirs, names)
        for (name, file, line), mine_name, (my_file, my_line) in itertools.zip_longest(theirs, names, places[:len(theirs)]):
            check(name == (mine_name or "??"), i["address"], "function", mine_name, "is", name)
            check(line == my_line and same_file(file, my_file or "??"), i["address"], my_file, my_line, "is", file, line)
check(inlined > 0, "nothing is inlined")
check(len(report["loops"]) >= 40, "only", len(report["loops"]), "loops")
for loop in report["loops"]:
    check(loop["executions"] > 0 and loop["first_line"] <= loop["last_line"], loop)

# Lane use changes nothing of it.
run(sve_run, "-q", "--lane-use", "--report", path("lanes.json"), "--report", path("lanes.txt"), program)
lanes = read_report(path("lanes.json"))
check_text(path("lanes.txt"))
check(by_word((int(i["word"], 16), i["executions"]) for i in lanes["instructions"]) == mine, "counts with lane use")
use = lanes["lane_use"]
check(sum(use["histogram"]) == use["executions"] and 0 < use["active"] < use["elements"], use)
governed = 0
for i in lanes["instructions"]:
    if "lane_use" not in i:
        continue
    own = i["lane_use"]
    governed += own["executions"]
    check(own["executions"] == i["executions"] == sum(own["histogram"]), i)
    check(own["active"] <= own["elements"], i)
check(governed == use["executions"], "lane use does not add up")
# add<float> works on 1003 elements of each array, and its loop's predicate says which.
loads = [i for i in lanes["instructions"] if "add<float>" in i["function"] and i["mnemonic"] == "ld1w"]
check(sum(i["memory"]["bytes"] for i in loads) == 2 * 1003 * 4, "bytes loaded by add<float>:", loads)
check(sum(i["lane_use"]["active"] for i in loads) == 2 * 1003, "elements loaded by add<float>")
check(lanes["memory"]["loads"]["gathered"]["executions"] > 0 and lanes["memory"]["loads"]["contiguous"]["exact"],
      lanes["memory"])
check(not report["memory"]["loads"]["contiguous"]["exact"] and report["memory"]["page_crossing"] is None,
      report["memory"])

# Nor does time, in native code and in calls.
for options in ([], ["--translate=handlers"], ["--no-patch"], ["--lane-use"]):
    timed = run(sve_run, "-q", "--time", *options, "--report", path("time.json"), "--report", path("time.txt"), program)
    check(timed.stdout == printed, "the program prints something else", options)
    time = read_report(path("time.json"))
    check(by_word((int(i["word"], 16), i["executions"]) for i in time["instructions"]) == mine, "counts", options)
    check(0 < time["time"]["emulation_ns"] and 0 < time["time"]["processor_ns"], options, time["time"])
    check_text(path("time.txt"))
check(report["time"] is None, "no time without being asked")
finish()
