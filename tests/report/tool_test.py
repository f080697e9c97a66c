"""usage: tool_test.py SVE_REPORT...: what sve-report makes of data, of reports, and of what is neither."""
import json
import os
import sys
import time

import data
from checks import check, check_text, finish, read_report, run, work_directory

sve_report = sys.argv[1:]
work = work_directory()


def path(file):
    return os.path.join(work.name, file)


def known(word):
    return word & 0xff3fe000 != 0


# Twenty million executions at thirty thousand sites.
os.mkdir(path("large"))
expected = data.write(path("large/100.0"), sites=30000, executions=20_000_000)
start = time.monotonic()
run(*sve_report, "--data", path("large"), "-o", path("large.json"), "-o", path("large.html"), "-o", path("large.txt"))
print(f"30000 sites: {time.monotonic() - start:.2f} s")
report = read_report(path("large.json"))
check(report["totals"]["executions"] == 20_000_000, report["totals"])
check(sorted((int(i["word"], 16), i["executions"]) for i in report["instructions"]) ==
      sorted((word, n) for word, n in expected if n), "instructions")
size = os.path.getsize(path("large.html"))
print(f"page: {size} bytes")
check(size < 3_000_000, "the page takes", size, "bytes")
check_text(path("large.txt"))

# The same data give the same report, to the letter.
run(*sve_report, "--data", path("large"), "-o", path("again.json"))
check(open(path("again.json")).read() == open(path("large.json")).read(), "two reports of the same data differ")

# A report in JSON becomes the other forms.
run(*sve_report, path("large.json"), "-o", path("second.html"), "-o", path("second.txt"))
for form in ("html", "txt"):
    check(open(path("second." + form)).read() == open(path("large." + form)).read(), form, "of JSON differs")

# Several processes are added up; one that has not told its end counts nothing.
os.mkdir(path("tree"))
data.write(path("tree/100.0"), sites=10, executions=1000, process=100)
data.write(path("tree/101.0"), sites=10, executions=500, process=101, seed=2, with_lanes=True)
with open(path("tree/102.0"), "w") as file:
    file.write("sve-run-data 1\nbits 896\nplatform embedded\nprocess 102 100\nprogram /a \\n \\\\ name\n")
run(*sve_report, "--data", path("tree"), "-o", path("tree.%p.json"), "-o", path("tree.txt"))
tree = read_report(path("tree.all.json"))
check(tree["totals"]["executions"] == 1500 and [p["end"] for p in tree["processes"]] == ["exit", "exit", "unknown"], tree)
check(tree["processes"][2]["program"] == "/a \n \\ name", tree["processes"][2])
check(tree["lane_use"]["executions"] == 500 and tree["lane_use"]["active"] == 3500, tree["lane_use"])
check([read_report(path(f"tree.{p}.json"))["totals"]["executions"] for p in (100, 101, 102)] == [1000, 500, 0], "each")
check_text(path("tree.txt"))

# A file that ends in its middle: what was written last does not count.
os.mkdir(path("cut"))
whole = open(path("tree/100.0")).read()
with open(path("cut/100.0"), "w") as file:
    file.write(whole[:whole.rindex("word")])
run(*sve_report, "--data", path("cut"), "-o", path("cut.json"))
check(json.load(open(path("cut.json")))["processes"][0]["end"] == "unknown", "a file that was cut off")
# After an exec that failed a process tells of itself once more.
os.mkdir(path("twice"))
body = whole[whole.index("counts\n"):]
with open(path("twice/100.0"), "w") as file:
    file.write(whole[:whole.index("counts\n")] + body.replace("end exit", "end exec") + body)
run(*sve_report, "--data", path("twice"), "-o", path("twice.json"))
check(read_report(path("twice.json"))["instructions"] == read_report(path("tree.100.json"))["instructions"], "twice")

# Two reports compared.
done = run(*sve_report, path("tree.100.json"), path("tree.101.json"), "-o", path("compared.json"),
           "-o", path("compared.txt"), "-o", path("compared.html"))
compared = json.load(open(path("compared.json")))
totals = compared["sections"][0]["items"]
check(totals[0] == {"name": "executions", "before": 1000, "after": 500, "change": -500, "kind": "shrank"}, totals)
texts = [s for s in compared["sections"] if s["title"] == "Instructions by text"][0]["items"]
for side, which in (("before", "tree.100.json"), ("after", "tree.101.json")):
    counts = {}
    for i in read_report(path(which))["instructions"]:
        counts[i["text"]] = counts.get(i["text"], 0) + i["executions"]
    for item in texts:
        check(counts.get(item["name"], 0) == item[side], item, side, counts.get(item["name"]))
kinds = {i["kind"] for i in texts}
check({"came", "went"} <= kinds, kinds)
check_text(path("compared.txt"))
same = run(*sve_report, path("tree.100.json"), path("tree.100.json"), "-o", path("same.json"))
check(all(i["change"] == 0 for s in json.load(open(path("same.json")))["sections"] for i in s["items"]), "alike")

# What cannot be is one line that names it.
open(path("bad.json"), "w").write("{}")
open(path("newer.json"), "w").write(json.dumps({"format": "sve-run report", "version": 2}))
os.mkdir(path("empty"))
os.mkdir(path("foreign"))
open(path("foreign/1.0"), "w").write("something else\n")
for words, names in ((["--data", path("none")], "none"), (["--data", path("empty")], "empty"),
                     (["--data", path("foreign")], "foreign"), ([path("bad.json")], "bad.json"),
                     ([path("newer.json")], "newer.json"), ([path("none.json")], "none.json"), ([], "--data"),
                     ([path("tree.100.json"), "-o", path("a.pdf")], "a.pdf"),
                     ([path("tree.100.json"), "-o", path("none/a.txt")], "none/a.txt")):
    done = run(*sve_report, *words, status=1)
    check(names in done.stderr and done.stderr.count("\n") == 1, words, done.stderr)
run(*sve_report, "--nonesuch", status=2)
finish()
