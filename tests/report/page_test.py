"""usage: page_test.py SVE_REPORT...: the page in a browser: it loads, says what the JSON says, sorts and filters, and
fits."""
import json
import os
import sys

import browser
import data
from checks import ROOT, check, finish, read_report, run, skip, work_directory

executable = browser.find()
if not executable:
    skip("no Chromium here; install Debian's chromium-headless-shell (scripts/test does)")
sve_report = sys.argv[1:]
work = work_directory()


def path(file):
    return os.path.join(work.name, file)


os.mkdir(path("data"))
data.write(path("data/100.0"), sites=600, executions=1_234_567, with_lanes=True)
data.write(path("data/101.0"), sites=600, executions=7654, process=101, seed=3)
# Names that would be markup, and a source that is found.
with open(path("data/100.0")) as file:
    text = file.read().replace("/nonesuch/synthetic", "/nonesuch/<b>synthetic</script><!--")
with open(path("data/100.0"), "w") as file:
    file.write(text)
run(*sve_report, "--data", path("data"), "-o", path("report.json"))
report = read_report(path("report.json"))
source = os.path.join(ROOT, "tests/report/kernels.cpp")
for i in report["instructions"]:
    i["file"], i["line"], i["function"] = source, 30, "kernels::add<float>(kernels::arrays<float>&) " + "long" * 30
report["lines"] = [{"file": source, "line": 30, "executions": report["totals"]["executions"], "instructions": 1}]
json.dump(report, open(path("report.json"), "w"))
run(*sve_report, path("report.json"), "-o", path("report.html"))
run(*sve_report, "--data", path("data"), "-o", path("each.%p.json"))
run(*sve_report, path("each.100.json"), path("each.101.json"), "-o", path("compared.html"), "-o", path("compared.json"))

chromium = browser.Browser(executable)


def load(name, **options):
    wrong, asked = chromium.open(path(name), **options)
    check(not wrong, name, options, wrong)
    check(not asked, name, "asks the network for", asked)


def numbers(selector):
    return chromium.evaluate(f"[...document.querySelectorAll({json.dumps(selector)})].map(e => e.textContent)")


def number(text):
    return int(text.replace(",", ""))


def fits(name, width):
    """Nothing is wider than the window but what scrolls by itself."""
    outside = chromium.evaluate("""(() => {
      const scrolls = e => { for (; e; e = e.parentElement) if (/auto|scroll|hidden/.test(getComputedStyle(e).overflowX)) return true; return false; };
      return [document.documentElement.scrollWidth > innerWidth ? "page " + document.documentElement.scrollWidth : "",
              ...[...document.body.querySelectorAll("*")].filter(e => e.getBoundingClientRect().right > innerWidth + 1 &&
                !scrolls(e.parentElement)).map(e => e.tagName + "." + e.className)].filter(Boolean).slice(0, 5);
    })()""")
    outside += chromium.evaluate("""[...document.querySelectorAll(".card, section, .chips li")].filter(e =>
      e.scrollWidth > e.clientWidth + 1).map(e => e.className + "#" + e.id)""")
    check(not outside, name, "at", width, "pixels overflows:", outside)


load("report.html")
check(chromium.evaluate("document.title").startswith("script><!-- "), chromium.evaluate("document.title"))
check(chromium.evaluate("document.querySelectorAll('h1 b, header b').length") == 0, "a name became markup")

# The numbers are those of the JSON.
check(number(numbers("#total")[0]) == report["totals"]["executions"], numbers("#total"))
check(number(numbers("#places")[0]) == report["totals"]["instructions"], numbers("#places"))
check(number(numbers("#traps")[0]) == report["totals"]["traps"], numbers("#traps"))
chromium.evaluate("document.querySelectorAll('button.more').forEach(b => { if (!b.closest('#sites')) b.click(); })")
for part, of in (("mnemonics", report["mnemonics"]), ("functions", report["functions"]), ("threads", report["threads"]),
                 ("processes", report["processes"]), ("modules", report["modules"]),
                 ("families", report["families"] + report["element_sizes"])):
    shown = [number(n) for n in numbers(f"#{part} .bars .number")]
    check(shown == [x["executions"] for x in of], part, "shows", shown[:5])
names = numbers("#mnemonics .bars .name")
check(names == [m["name"] for m in report["mnemonics"]], names)
bins = chromium.evaluate("[...document.querySelectorAll('#lanes .histogram div')].map(e => Number(e.dataset.count))")
check(bins == report["lane_use"]["histogram"], bins)
use = report["lane_use"]
check(numbers("#lanes-mean") == [f"{100 * use['active'] / use['elements']:.1f}%"], numbers("#lanes-mean"))
check(f"{report['totals']['executions']:,}" in numbers("#source .count"), "no count beside the source line")


# The table of sites: as many as there are, sorted, filtered.
def rows():
    return chromium.evaluate("[...document.querySelectorAll('#sites tbody tr')].map(r => [...r.cells].map(c => c.textContent))")


def sort_by(column, times=1):
    for _ in range(times):
        chromium.evaluate(f"[...document.querySelectorAll('#sites th button')].find(b => b.textContent === {json.dumps(column)}).click()")


def filter_by(text, family=""):
    chromium.evaluate(f"""(() => {{ const i = document.getElementById('filter'), f = document.getElementById('family');
      i.value = {json.dumps(text)}; f.value = {json.dumps(family)};
      i.dispatchEvent(new Event('input')); f.dispatchEvent(new Event('change')); }})()""")


by_count = [i["executions"] for i in report["instructions"]]
check([number(r[0]) for r in rows()] == by_count[:100], "the first hundred")
chromium.evaluate("document.querySelector('#sites button.more').click()")
check([number(r[0]) for r in rows()] == by_count[:600], "six hundred")
sort_by("Executions")
check([number(r[0]) for r in rows()] == sorted(by_count)[:100], "sorted in rising order")
sort_by("Instruction")
check([r[2] for r in rows()] == sorted(i["text"] for i in report["instructions"])[:100], "sorted by text")
sort_by("Address")
check([int(r[5], 16) for r in rows()] == sorted(int(i["address"], 16) for i in report["instructions"])[:100], "by address")
check(chromium.evaluate("document.querySelectorAll('#sites th[aria-sort=ascending]').length") == 1, "aria-sort")
sort_by("Executions")
wanted = report["mnemonics"][0]["name"]
filter_by(wanted + " z1")
matching = [i for i in report["instructions"] if wanted in i["text"] + i["function"] and "z1" in i["text"]]
check(0 < len(matching) < len(report["instructions"]), "the filter takes some")
check([number(r[0]) for r in rows()] == [i["executions"] for i in matching][:100], "filtered by", wanted)
said = numbers("#sites output")[0]
check(said == f"{len(matching):,} places, {sum(i['executions'] for i in matching):,} executions", said)
filter_by("no such instruction")
check(rows() == [], "nothing matches")
filter_by("", report["families"][-1]["name"])
check(len(rows()) == min(100, report["families"][-1]["instructions"]), "one family")

# Phones, large windows, both colour schemes, print.
for page in ("report.html", "compared.html"):
    for width in (360, 768, 1600):
        load(page, width=width, height=800)
        fits(page, width)
    load(page, dark=True)
    dark = chromium.evaluate("getComputedStyle(document.body).backgroundColor")
    load(page)
    check(dark != chromium.evaluate("getComputedStyle(document.body).backgroundColor"), "dark and light are alike")
load("report.html")
chromium.call("Emulation.setEmulatedMedia", media="print")
check(chromium.evaluate("getComputedStyle(document.getElementById('nav')).display") == "none", "the menu is printed")
check(len(chromium.call("Page.printToPDF")["data"]) > 10000, "it prints")
chromium.call("Emulation.setEmulatedMedia", media="")

# Nothing was executed, or nothing is known.
os.mkdir(path("nothing"))
with open(path("nothing/7.0"), "w") as file:
    file.write("sve-run-data 1\nbits 896\nplatform dynamorio\nprocess 7 1\nprogram /bin/true\n")
run(*sve_report, "--data", path("nothing"), "-o", path("nothing.html"), "-o", path("nothing.json"))
read_report(path("nothing.json"))
load("nothing.html", width=360)
fits("nothing.html", 360)
check(numbers("#total") == ["0"] and "end not known" in numbers("#processes")[0], numbers("#processes"))

# The comparison.
compared = json.load(open(path("compared.json")))
load("compared.html")
for n, section in enumerate(compared["sections"]):
    chromium.evaluate(f"document.querySelector('#s{n} button.more')?.click()")
    shown = chromium.evaluate(f"[...document.querySelectorAll('#s{n} tbody tr')].map(r => [...r.cells].map(c => c.textContent))")
    check([[number(r[1]), number(r[2]), r[5]] for r in shown] == [[i["before"], i["after"], i["kind"]] for i in section["items"]],
          section["title"], shown[:3])
chromium.close()
finish()
