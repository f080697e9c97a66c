"use strict";
(() => {
  const data = JSON.parse(document.getElementById("data").textContent);
  const main = document.getElementById("main");
  const nav = document.getElementById("nav");

  // ---- What is shared ----

  const grouped = n => n.toLocaleString("en-US");
  const percent = (part, whole) => (whole > 0 ? (100 * part / whole).toFixed(1) : "0.0") + "%";
  const signed = n => (n > 0 ? "+" : n < 0 ? "\u2212" : "") + grouped(Math.abs(n));
  const base = path => path.slice(path.lastIndexOf("/") + 1);
  const plural = (n, one, many = one + "s") => grouped(n) + " " + (n === 1 ? one : many);
  const words = name => name.replace(/_/g, " ").replace(/^fp /, "floating-point ");
  const bytes = n => {
    const units = ["bytes", "KiB", "MiB", "GiB", "TiB"];
    let unit = 0;
    for (; n >= 10240 && unit < 4; ++unit) n /= 1024;
    return (unit ? n.toFixed(1) : grouped(n)) + " " + units[unit];
  };

  // "void kernels::add<float>(float*)" is kernels::add<float>: what stands outside of all brackets, between the last space
  // and the parameters.
  function shortName(name) {
    let depth = 0, begin = 0, end = name.length;
    if (/\boperator\b/.test(name)) return name;
    for (let at = 0; at < name.length; ++at) {
      const c = name[at];
      if (c === "(" && depth === 0 && !name.startsWith("(anonymous namespace)", at)) { end = at; break; }
      if ("<([{".includes(c)) ++depth;
      if (">)]}".includes(c)) --depth;
      if (c === " " && depth === 0) begin = at + 1;
    }
    return name.slice(begin, end).replaceAll("(anonymous namespace)::", "");
  }

  // An element; texts among the children become text, never markup.
  function element(name, attributes = {}, ...children) {
    const [tag, ...classes] = name.split(".");
    const e = document.createElement(tag || "div");
    if (classes.length) e.className = classes.join(" ");
    for (const [key, value] of Object.entries(attributes)) {
      if (key.startsWith("--")) e.style.setProperty(key, value);
      else if (key.startsWith("on")) e.addEventListener(key.slice(2), value);
      else e.setAttribute(key, value);
    }
    e.append(...children.filter(c => c !== null && c !== undefined));
    return e;
  }

  const links = element("ul");
  nav.append(links);
  function section(id, title, note, shape, ...content) {
    main.append(element("section" + (shape ? "." + shape : ""), {id},
        element("h2", {}, title, note ? element("small", {}, note) : null), ...content));
    links.append(element("li", {}, element("a", {href: "#" + id}, title)));
  }

  // Rows with a bar each: {name, count, tint, title}. The bars are relative to the longest, the shares to `whole`.
  function bars(rows, whole, first = 12, kind = "") {
    const longest = rows.reduce((most, r) => Math.max(most, r.count), 0);
    const list = element("ul.bars" + kind);
    const add = r => list.append(element("li", {title: r.title || r.name},
        element("span.name", {}, r.name),
        element("div.track", {}, element("div.fill", {"--part": longest ? r.count / longest : 0, ...(r.tint ? {"--tint": r.tint} : {})})),
        element("span.number", {}, grouped(r.count)), element("span.share", {}, percent(r.count, whole))));
    rows.slice(0, first).forEach(add);
    if (rows.length <= first) return [list];
    const more = element("button.more", {type: "button", onclick: () => {
      rows.slice(first).forEach(add);
      more.remove();
    }}, `Show ${rows.length - first} more`);
    return [list, more];
  }

  function foot() {
    document.getElementById("foot").append(`Made by ${data.generator}. Numbers are exact counts of what was executed.`);
  }

  // ---- A comparison ----

  function showComparison() {
    document.title = "sve-run comparison";
    const side = (name, s) => element("div.path", {}, `${name}: ${s.program}, ${s.vector_bits} bits, ${s.platform}`);
    document.getElementById("head").append(element("div.kicker", {}, "sve-run comparison"),
        element("h1", {}, `${base(data.before.program)} \u2192 ${base(data.after.program)}`), side("Before", data.before), side("After", data.after));
    const short = {Families: words, Functions: shortName, "Source lines": base};
    data.sections.forEach((s, index) => {
      const longest = s.items.reduce((most, i) => Math.max(most, Math.abs(i.change)), 0);
      const body = element("tbody");
      const row = i => body.append(element("tr", {},
          element("td" + (index > 2 ? ".mono" : ""), {title: i.name}, (short[s.title] || (name => name))(i.name)),
          element("td.right.thin", {}, grouped(i.before)), element("td.right", {}, grouped(i.after)),
          element("td.right." + (i.change > 0 ? "up" : "down"), {}, i.change ? signed(i.change) : "0"),
          element("td.thin", {}, element("div.track", {}, element("div.fill", {"--part": longest ? Math.abs(i.change) / longest : 0,
            "--tint": i.change > 0 ? "var(--up)" : "var(--down)"}))),
          element("td.right", {}, element("span.tag." + (i.change > 0 ? "up" : "down"), {}, i.kind))));
      s.items.slice(0, 25).forEach(row);
      const more = s.items.length > 25 ? element("button.more", {type: "button", onclick: () => {
        s.items.slice(25).forEach(row);
        more.remove();
      }}, `Show ${s.items.length - 25} more`) : null;
      const heading = (text, shape = ".right") => element("th" + shape, {}, text);
      section("s" + index, s.title, s.items.length ? "" : "no difference", index && index < 3 ? "" : "wide",
          s.items.length ? element("table.compare", {}, element("thead", {}, element("tr", {}, heading("", ""), heading("before", ".right.thin"),
              heading("after"), heading("change"), heading("", ".thin"), heading(""))), body)
                         : element("p.empty", {}, "Both are alike here."), more);
    });
    foot();
  }

  // ---- A report ----

  const total = data.totals ? data.totals.executions : 0;
  const palette = ["#3b7dd8", "#e8833a", "#3fa36a", "#8c6bd1", "#d9577c", "#2fa3b0", "#c9a227", "#6f86a6", "#b5651d", "#5c9e31", "#a05195", "#7a7f8a"];
  const tint = index => palette[index % palette.length];
  const binNames = ["0", "\u226410%", "\u226420%", "\u226430%", "\u226440%", "\u226450%", "\u226460%", "\u226470%", "\u226480%", "\u226490%", "<all", "all"];

  function showHead() {
    const name = base(data.program);
    document.title = name + " \u2013 sve-run report";
    const chips = element("ul.chips", {}, element("li", {}, data.vector_bits + "-bit vectors"), element("li", {}, "platform " + data.platform),
        element("li", {}, plural(data.processes.length, "program image")), data.threads.length ? element("li", {}, plural(data.threads.length, "thread")) : null);
    for (const [text, link] of data.links) chips.append(element("li", {}, element("a", {href: link}, text)));
    document.getElementById("head").append(element("div.kicker", {}, "sve-run report"), element("h1", {}, name), element("div.path", {}, data.program), chips);
  }

  function showCards() {
    const card = (id, value, label, note) => element("div.card", {}, element("b", {id}, value), element("span", {}, label), element("i", {}, note));
    const t = data.totals, use = data.lane_use, top = data.functions[0];
    main.append(element("div.cards", {}, ...[
        card("total", grouped(total), "SVE instructions executed", t.unplaced ? grouped(t.unplaced) + " not placed" : "all processes and threads"),
        card("places", grouped(t.instructions), "instructions in the code", t.sites ? "at " + plural(t.sites, "site") : ""),
        !t.sites ? null : card("runs-mean", data.runs.executions ? (data.runs.instructions / data.runs.executions).toFixed(1) : "0", "SVE instructions a run", plural(data.runs.executions, "run")),
        card("lanes-mean", use ? percent(use.active, use.elements) : "\u2013", "of the lanes were active", use ? plural(use.executions, "predicated execution") : "not counted: --lane-use"),
        !t.sites ? null : card("traps", grouped(t.traps), "traps", `${grouped(t.patched_sites)} of ${plural(t.sites, "site")} patched`),
        data.time ? card("time", percent(data.time.emulation_ns, data.time.processor_ns), "of the processors' time", (data.time.emulation_ns / 1e6).toFixed(1) + " ms in SVE instructions") : null,
        card("hottest", top ? percent(top.executions, total) : "\u2013", "in the hottest function", top ? shortName(top.name) || "unknown" : "")].filter(Boolean)));
  }

  function showMix() {
    const families = new Map(data.families.map((f, index) => [f.name, tint(index)]));
    section("mnemonics", "Mnemonics", plural(data.mnemonics.length, "kind"), "",
        ...bars(data.mnemonics.map(m => ({name: m.name, count: m.executions, tint: families.get(m.family), title: `${m.name}: ${words(m.family)}, ${plural(m.instructions, "place")}`})), total, 19, ".code"));
    section("families", "Families", "", "", element("div.stack", {}, ...data.families.map((f, index) => element("div", {"--part": f.executions, "--tint": tint(index), title: words(f.name)}))),
        ...bars(data.families.map((f, index) => ({name: words(f.name), count: f.executions, tint: tint(index)})), total, 18),
        element("h2", {style: "margin-top:1.2rem"}, "Element sizes"),
        ...bars(data.element_sizes.map(s => ({name: s.bits ? s.bits + " bits" : "none", count: s.executions, tint: "var(--accent-2)"})), total));
  }

  function showLanes() {
    const use = data.lane_use;
    if (!use) {
      section("lanes", "Lane use", "", "", element("p.empty", {}, "How many elements of each vector were active was not counted. ", element("code", {}, "sve-run --lane-use --report=FILE"), " counts it."));
      return;
    }
    const most = Math.max(...use.histogram, 1);
    const bins = element("div.histogram", {role: "img", "aria-label": "Executions by share of active elements"});
    use.histogram.forEach((count, bin) => bins.append(element("div", {title: `${binNames[bin]} active: ${grouped(count)} executions`, "data-count": count},
        element("u", {}, count ? percent(count, use.executions).replace(".0%", "%") : ""),
        element("i", {"--part": .86 * count / most, "--tint": bin === 0 ? "var(--faint)" : bin === 11 ? "var(--accent-2)" : "var(--accent)"}))));
    section("lanes", "Lane use", `${percent(use.active, use.elements)} of ${grouped(use.elements)} elements active`, "", bins,
        element("div.axis", {}, ...binNames.map(n => element("span", {}, n))),
        element("p.empty", {style: "margin-top:.6rem"}, "Executions of predicated instructions by the share of their elements that were active."));
  }

  function showMemory() {
    const m = data.memory, rows = element("div.pairs");
    const add = (name, count, extra) => count === null ? null : rows.append(element("span", {}, name), element("span.number", {}, grouped(count)), element("span.number.dim.extra", {}, extra || ""));
    const moved = x => (x.exact ? "" : "at most ") + bytes(x.bytes);
    add("Contiguous loads", m.loads.contiguous.executions, moved(m.loads.contiguous));
    add("Gathers", m.loads.gathered.executions, moved(m.loads.gathered));
    add("Contiguous stores", m.stores.contiguous.executions, moved(m.stores.contiguous));
    add("Scatters", m.stores.scattered.executions, moved(m.stores.scattered));
    add("First-fault and non-fault loads", m.first_fault.executions, m.first_fault.shortened === null ? "" : grouped(m.first_fault.shortened) + " shortened");
    add("Accesses over a page's end", m.page_crossing);
    const parts = [["contiguous loads", m.loads.contiguous], ["gathers", m.loads.gathered], ["contiguous stores", m.stores.contiguous], ["scatters", m.stores.scattered]]
        .map(([name, x], index) => ({name, count: x.bytes, tint: palette[index]})).filter(p => p.count > 0);
    const legend = element("ul.chips", {style: "margin:0 0 .9rem"}, ...parts.map(p => element("li", {}, element("span.dot", {"--tint": p.tint}), p.name)));
    const shares = parts.length ? element("div.stack", {}, ...parts.map(p => element("div", {"--part": p.count, "--tint": p.tint, title: `${p.name}: ${grouped(p.count)} bytes`}))) : null;
    section("memory", "Memory", m.page_crossing === null ? "bytes as if all elements were active" : "as counted", "", shares, legend, rows);
  }

  function showFunctions() {
    section("functions", "Functions", plural(data.functions.length, "function"), "",
        ...bars(data.functions.map(f => ({name: shortName(f.name) || "(unknown)", count: f.executions, title: `${f.name || "(unknown)"}${f.file ? ", " + f.file + ":" + f.line : ""}, ${data.modules[f.module].path}`})), total, 12, ".code.long"));
    if (!data.loops.length) return;
    const lines = l => (l.file ? `${base(l.file)}:${l.first_line}${l.last_line !== l.first_line ? "\u2013" + l.last_line : ""}` : l.begin) + (l.function ? " " + shortName(l.function) : "");
    section("loops", "Loops", "by backward branches, innermost", "",
        ...bars(data.loops.map(l => ({name: lines(l), count: l.executions, tint: "var(--accent-2)", title: `${l.function || "unknown function"}, ${l.begin} to ${l.end}, ${plural(l.instructions, "SVE instruction")}`})), total, 12, ".code.long"));
  }

  function showSites() {
    const [MODULE, ADDRESS, TEXT, COUNT, FUNCTION, FILE, LINE, FAMILY, ACTIVE, ELEMENTS] = [0, 1, 2, 3, 4, 5, 6, 7, 8, 9];
    const text = n => data.strings[n];
    const lanes = r => r.length > ACTIVE ? r[ACTIVE] / r[ELEMENTS] : -1;
    const place = r => text(r[FILE]) ? `${base(text(r[FILE]))}:${r[LINE]}` : "";
    const number = r => parseInt(r[ADDRESS], 16);
    const hasLanes = data.lane_use !== null;
    const hottest = data.sites.reduce((most, r) => Math.max(most, r[COUNT]), 1);
    const columns = [
      {title: "Executions", key: r => r[COUNT], shape: ".right", descending: true, col: "c-count"},
      {title: "Share", key: r => r[COUNT], shape: ".right.thin", descending: true, col: "c-share"},
      {title: "Instruction", key: r => text(r[TEXT]), shape: "", col: "c-text"},
      {title: "Function", key: r => text(r[FUNCTION]), shape: ".thin"},
      {title: "Line", key: r => text(r[FILE]) + ":" + String(r[LINE]).padStart(8, "0"), shape: ".thin", col: "c-line"},
      {title: "Address", key: number, shape: ".right.thin", col: "c-address"},
      ...(hasLanes ? [{title: "Lanes", key: lanes, shape: ".right.thin", descending: true, col: "c-lanes"}] : []),
    ];
    let order = {column: 0, down: true}, shown = 100, found = data.sites;
    const body = element("tbody"), output = element("output", {"aria-live": "polite"});
    const search = element("input", {type: "search", id: "filter", placeholder: "Filter by instruction, function, file or address", "aria-label": "Filter"});
    const family = element("select", {id: "family", "aria-label": "Family"}, element("option", {value: ""}, "All families"));
    for (const f of data.families) family.append(element("option", {value: f.name}, words(f.name)));
    const more = element("button.more", {type: "button", onclick: () => { shown += 500; draw(); }}, "Show more");
    const heads = columns.map((c, index) => element("th" + c.shape, {scope: "col"}, element("button", {type: "button", onclick: () => {
      order = {column: index, down: order.column === index ? !order.down : !!c.descending};
      update();
    }}, c.title)));

    function draw() {
      body.replaceChildren(...found.slice(0, shown).map(r => element("tr", {},
          element("td.right", {}, grouped(r[COUNT])), element("td.right.thin.dim.heat", {"--part": r[COUNT] / hottest}, percent(r[COUNT], total)),
          element("td.mono.text", {title: text(r[TEXT])}, text(r[TEXT])),
          element("td.mono.where", {title: text(r[FUNCTION])}, shortName(text(r[FUNCTION])) || "(unknown)"),
          element("td.mono.thin", {title: text(r[FILE]) + ":" + r[LINE]}, place(r)),
          element("td.right.mono.thin", {title: data.modules[r[MODULE]].path}, "0x" + r[ADDRESS]),
          ...(hasLanes ? [element("td.right.thin", {}, lanes(r) < 0 ? "" : percent(r[ACTIVE], r[ELEMENTS]))] : []))));
      more.hidden = found.length <= shown;
      output.textContent = `${plural(found.length, "place")}, ${grouped(found.reduce((sum, r) => sum + r[COUNT], 0))} executions`;
    }
    function update() {
      const wanted = search.value.trim().toLowerCase().split(/\s+/).filter(Boolean);
      const all = r => `${text(r[TEXT])} ${text(r[FUNCTION])} ${place(r)} 0x${r[ADDRESS]}`.toLowerCase();
      found = data.sites.filter(r => (!family.value || text(r[FAMILY]) === family.value) && (!wanted.length || (t => wanted.every(w => t.includes(w)))(all(r))));
      const {key} = columns[order.column], way = order.down ? -1 : 1;
      const keyed = found.map((r, index) => [key(r), index, r]);
      keyed.sort((a, b) => a[0] < b[0] ? -way : a[0] > b[0] ? way : a[1] - b[1]);
      found = keyed.map(k => k[2]);
      heads.forEach((h, index) => h.setAttribute("aria-sort", index !== order.column ? "none" : order.down ? "descending" : "ascending"));
      shown = 100;
      draw();
    }
    search.addEventListener("input", update);
    family.addEventListener("change", update);
    const left = data.totals.instructions - data.sites.length;
    section("sites", "Hot sites", left > 0 ? `the ${grouped(data.sites.length)} hottest of ${grouped(data.totals.instructions)}` : "", "wide",
        element("div.tools", {}, search, family, output),
        element("table.sites", {}, element("colgroup", {}, ...columns.map(c => element("col" + (c.col ? "." + c.col : "")))),
            element("thead", {}, element("tr", {}, ...heads)), body), more);
    update();
  }

  function showSources() {
    if (!data.sources.length) return;
    const files = data.sources.map((source, index) => {
      const most = source.lines.reduce((m, l) => Math.max(m, l[2] || 0), 1);
      const listing = element("div.source");
      let last = source.lines.length ? source.lines[0][0] - 1 : 0;
      for (const [no, line, count] of source.lines) {
        if (no !== last + 1) listing.append(element("div.gap"));
        last = no;
        listing.append(element("div" + (count ? ".hot" : ""), count ? {"--part": count / most} : {},
            element("span.no", {}, String(no)), element("span.count", {}, count ? grouped(count) : ""), element("span", {}, line)));
      }
      return element("details", index < 1 ? {open: ""} : {}, element("summary", {}, element("span.name", {}, element("bdi", {}, source.file)),
          element("span.number", {}, grouped(source.executions))), listing);
    });
    section("source", "Source lines", "executions beside the lines", "wide", ...files);
  }

  function showRuns() {
    const r = data.runs;
    if (!r.lengths.length) return;
    section("runs", "Runs", "SVE instructions in a row, executed without leaving", "third",
        ...bars(r.lengths.slice().sort((a, b) => b.executions - a.executions).map(l => ({name: `of ${l.length}`, count: l.executions, title: `${plural(l.length, "instruction")}, ${plural(l.sites, "site")}`})), r.executions, 10));
  }

  function showProcesses() {
    if (data.threads.length) section("threads", "Threads", "", "third",
        ...bars(data.threads.map(t => ({name: data.processes.length > 1 ? `${t.process}/${t.thread}` : String(t.thread), count: t.executions})), total, 10));
    const end = p => p.end === "signal" ? "signal " + p.signal : p.end === "unknown" ? "end not known" : p.end;
    section("processes", "Processes", "", "third", ...bars(data.processes.map(p => ({name: `${base(p.program)} ${p.id}`, count: p.executions, title: `${p.program}, process ${p.id} of ${p.parent}; ${end(p)}`})), total, 10),
        element("p.empty", {style: "margin-top:.6rem"}, "Ends: " + [...data.processes.reduce((m, p) => m.set(end(p), (m.get(end(p)) || 0) + 1), new Map())].map(([k, n]) => `${k} ${n}\u00d7`).join(", ")));
    section("modules", "Code", "", "wide", ...bars(data.modules.map(m => ({name: base(m.path), count: m.executions, title: m.path + (m.build_id ? ", build " + m.build_id : "")})), total, 10, ".code"));
  }

  function showReport() {
    showHead();
    showCards();
    showMix();
    showFunctions();
    showLanes();
    showMemory();
    showSites();
    showSources();
    showRuns();
    showProcesses();
    foot();
    addEventListener("beforeprint", () => document.querySelectorAll("details").forEach(d => { d.open = true; }));
  }

  data.format === "sve-run report" ? showReport() : showComparison();
})();
