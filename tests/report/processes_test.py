"""usage: processes_test.py SVE_RUN PROGRAM PLUGIN. Reports of whole trees of processes, whatever way each one ends, and what
sve-run is as their parent. PROGRAM is reported_program, which executes one SVE instruction."""
import glob
import os
import pty
import signal
import subprocess
import sys
import time

from checks import check, check_text, finish, read_report, run, use_processor_without_sve, work_directory

sve_run, program, plugin = sys.argv[1:]
use_processor_without_sve(sve_run)
work = work_directory()
temporary = os.path.join(work.name, "tmp")
os.mkdir(temporary)
os.environ["TMPDIR"] = temporary
name = os.path.basename(program)


def path(file):
    return os.path.join(work.name, file)


def report_of(*words, status=0, file="report.json", options=()):
    done = run(sve_run, "-q", *options, "--report", path(file), program, *words, status=status)
    return (read_report(path(file)) if "%p" not in file else None), done


# One process, and its status.
report, _ = report_of("return", status=7)
check(report["totals"]["executions"] == 1 and report["totals"]["traps"] == 1, report["totals"])
check([p["end"] for p in report["processes"]] == ["exit"], report["processes"])
check(report["processes"][0]["program"] == os.path.realpath(program), report["processes"])
check(report["instructions"][0]["function"] == "main", report["instructions"])
report, _ = report_of("return", status=7, options=["--no-patch"])
check(report["totals"]["patched_sites"] == 0 and report["totals"]["executions"] == 1, report["totals"])

# Text on stderr, and several forms at once.
done = run(sve_run, "-q", "--report=-", f"--report={path('a.txt')}", program, "return", status=7)
check("1 SVE instructions executed" in done.stderr and done.stderr == open(path("a.txt")).read(), done.stderr)
check_text(path("a.txt"))

# A child is there too, and a program that a process becomes.
report, _ = report_of("fork")
check(report["totals"]["executions"] == 1 and len(report["processes"]) == 2, report["processes"])
child = [p for p in report["processes"] if p["parent"] in [q["id"] for q in report["processes"]]]
check(len(child) == 1 and child[0]["executions"] == 0 and child[0]["end"] == "exit", report["processes"])
report, _ = report_of("exec", status=7)
check([p["end"] for p in report["processes"]] == ["exec", "exit"], report["processes"])
check(len({p["id"] for p in report["processes"]}) == 1 and report["totals"]["executions"] == 2, report["processes"])

# A report a process, and one of all.
report_of("fork", file="each.%p.json")
each = [read_report(p) for p in glob.glob(path("each.[0-9]*.json"))]
whole = read_report(path("each.all.json"))
check(len(each) == 2 and sum(r["totals"]["executions"] for r in each) == whole["totals"]["executions"] == 1, each)
run(sve_run, "-q", "--report", path("page.%p.html"), program, "fork")
index = open(path("page.all.html")).read()
pages = [os.path.basename(p) for p in glob.glob(path("page.[0-9]*.html"))]
check(len(pages) == 2 and all(page in index for page in pages), "the page of all names", pages)

# Death by a signal, of its own, and by one that the runner's parent sends to sve-run.
for sig in (signal.SIGTERM, signal.SIGINT, signal.SIGSEGV, signal.SIGABRT, signal.SIGUSR1):
    report, _ = report_of("signal", str(int(sig)), status=-sig)
    own = report["processes"][0]
    check(own["end"] == "signal" and own["signal"] == sig, own)
    check(report["totals"]["executions"] == 1, report["totals"])
for sig in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
    process = subprocess.Popen([sve_run, "-q", "--report", path("killed.json"), program, "pause"],
                               stdout=subprocess.PIPE, text=True)
    check(process.stdout.readline() == "ready\n", "it waits")
    process.send_signal(sig)
    check(process.wait(60) == -sig, "status", process.returncode)
    own = read_report(path("killed.json"))["processes"][0]
    check(own["end"] == "signal" and own["signal"] == sig, own)

# Ctrl-C, which a terminal sends to both.
child, terminal = pty.fork()
if child == 0:
    os.execv(sve_run, [sve_run, "-q", "--report", path("typed.json"), program, "pause"])
said = b""
while b"ready" not in said:
    said += os.read(terminal, 100)
os.write(terminal, b"\x03")
_, status = os.waitpid(child, 0)
os.close(terminal)
check(os.WIFSIGNALED(status) and os.WTERMSIG(status) == signal.SIGINT, "status", status)
own = read_report(path("typed.json"))["processes"]
check([(p["end"], p["signal"]) for p in own] == [("signal", signal.SIGINT)], own)

# Stopped and continued, as a shell does it: in a group of its own, since one that nobody waits for is not stopped.
process = subprocess.Popen([sve_run, "-q", "--report", path("stopped.json"), program, "pause"], stdout=subprocess.PIPE,
                           text=True, preexec_fn=os.setpgrp)
process.stdout.readline()
process.send_signal(signal.SIGTSTP)
_, status = os.waitpid(process.pid, os.WUNTRACED)
check(os.WIFSTOPPED(status), "sve-run stops with its program")
process.send_signal(signal.SIGCONT)
process.send_signal(signal.SIGTERM)
check(process.wait(60) == -signal.SIGTERM, "status", process.returncode)

# One that is killed outright has told nothing, and is there.
process = subprocess.Popen([sve_run, "-q", "--report", path("dead.json"), program, "pause"], stdout=subprocess.PIPE,
                           text=True)
process.stdout.readline()
data = glob.glob(os.path.join(temporary, "sve-run-*/data/*"))
check(len(data) == 1, "the data of one process:", data)
os.kill(int(os.path.basename(data[0]).split(".")[0]), signal.SIGKILL)
check(process.wait(60) == -signal.SIGKILL, "status", process.returncode)
own = read_report(path("dead.json"))["processes"]
check([p["end"] for p in own] == ["unknown"], own)

# Whatever it does to its descriptors and its root.
report, _ = report_of("close-all", status=7)
check(report["totals"]["executions"] == 1, report["totals"])
if os.getuid() == 0:
    os.mkdir(path("root"))
    report, _ = report_of("change-root", path("root"), status=7)
    check(report["totals"]["executions"] == 1, report["totals"])


# One that restricts its system calls: what it had met is told of by place, the rest in the total.
report, done = report_of("restrict-itself", status=7)
check(report["totals"]["executions"] == 2 and report["totals"]["unplaced"] == 1, report["totals"])
check(report["processes"][0]["end"] == "exit", report["processes"])

report, _ = report_of("restrict-itself", "fork", status=7)
check(report["totals"]["executions"] == 2 and len(report["processes"]) == 1, report["processes"])

# Each thread, those that have ended too.
report, _ = report_of("threads", status=7)
check(sorted(t["executions"] for t in report["threads"]) == [1, 1, 2, 3], report["threads"])

# A library that is unloaded again.
report, _ = report_of("load-plugin", plugin, status=7)
own = [i for i in report["instructions"] if report["modules"][i["module"]]["path"] == os.path.realpath(plugin)]
check(sorted((i["function"], i["executions"]) for i in own) == [("plugin_bytes", 1), ("start", 1)], own)

# Under another sve-run both get theirs: the inner report is of the inner one's tree.
run(sve_run, "-q", "--report", path("outer.json"), sve_run, "-q", program, "return", status=7)
check(read_report(path("outer.json"))["totals"]["executions"] == 1, "an outer report")

# What cannot be is one line, before the program begins.
for wrong, words in ((["--report", path("none/report.json")], "none/report.json"), (["--report=a.pdf"], "a.pdf"),
                     (["--lane-use"], "--report")):
    done = run(sve_run, *wrong, program, "return", status=125)
    check(words in done.stderr and done.stderr.count("\n") == 1, done.stderr)
done = run(sve_run, f"--report={path('n.json')}", path("nonesuch"), status=127)
check("nonesuch" in done.stderr and done.stderr.count("\n") == 1, done.stderr)
time.sleep(0.2)
check(os.listdir(temporary) == [], "left behind:", os.listdir(temporary))
finish()
