"""What the tests of reports share."""
import json
import os
import subprocess
import sys
import tempfile

SKIPPED = 77
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
failures = []


def check(holds, *what):
    if not holds:
        failures.append(what)
        print("FAILED:", *what)


def finish():
    print("all agreed" if not failures else f"{len(failures)} failed")
    sys.exit(bool(failures))


def skip(why):
    print("SKIPPED:", why)
    sys.exit(SKIPPED)


def work_directory():
    """Removed at the end, as `.name`."""
    return tempfile.TemporaryDirectory(prefix="sve-report-test-")


def run(*command, status=0, **options):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=120,
                          **options)
    check(done.returncode == status, *command, ": status", done.returncode, "expected", status, done.stderr)
    return done


def use_processor_without_sve(sve_run):
    os.environ.setdefault("QEMU_LD_PREFIX", "/usr/aarch64-linux-gnu")
    os.environ.setdefault("QEMU_CPU", "neoverse-n1")
    try:
        subprocess.run([sve_run, "--version"], stdout=subprocess.DEVNULL, check=True)
    except (OSError, subprocess.CalledProcessError):
        skip("AArch64 programs do not run directly here; register qemu-aarch64 with binfmt_misc (scripts/test does it "
             "where it may)")


def read_report(path):
    """The report, once it is as the schema says and its parts add up to its whole."""
    try:
        import jsonschema
    except ImportError:
        skip(f"no jsonschema for {sys.executable}; install Debian's python3-jsonschema (scripts/test does)")
    with open(path) as file:
        report = json.load(file)
    with open(os.path.join(ROOT, "docs/report.schema.json")) as file:
        jsonschema.Draft202012Validator(json.load(file)).validate(report)
    placed = report["totals"]["executions"] - report["totals"]["unplaced"]
    for part in ("mnemonics", "families", "element_sizes", "functions", "modules", "instructions"):
        check(sum(x["executions"] for x in report[part]) == placed, path, part, "do not add up to", placed)
        if part != "modules":
            counts = [x["executions"] for x in report[part]]
            check(counts == sorted(counts, reverse=True), path, part, "are not in falling order")
    for part in ("processes", "threads") if report["platform"] == "embedded" else ("processes",):
        check(sum(x["executions"] for x in report[part]) == report["totals"]["executions"], path, part, "do not add up")
    check(len(report["instructions"]) == report["totals"]["instructions"], path, "instructions")
    return report


def check_text(path):
    with open(path) as file:
        for line in file.read().split("\n"):
            check(len(line) <= 100, path, "a line of", len(line), "columns:", line)
