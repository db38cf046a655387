#!/usr/bin/env python3
"""Prints the benchmark figures beside their references and targets.

usage: report.py INPROCESS_JSON [E2E_JSON]
INPROCESS_JSON is zq_bench's --benchmark_out; E2E_JSON is what bench/e2e.py wrote.
"""
import json
import sys

NS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def load_runs(path):
    with open(path) as f:
        data = json.load(f)
    runs = {}
    for run in data["benchmarks"]:
        name = run["run_name"] if "run_name" in run else run["name"]
        name = name.split("/iterations:")[0].split("/manual_time")[0]
        runs[name] = run
    return data["context"], runs


def ns(run):
    return run["real_time"] * NS[run["time_unit"]]


def fmt_time(value):
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if value >= scale:
            return f"{value / scale:.3g} {unit}"
    return f"{value:.0f} ns"


def main():
    context, runs = load_runs(sys.argv[1])
    e2e = None
    if len(sys.argv) > 2:
        with open(sys.argv[2]) as f:
            e2e = json.load(f)
    rows = []  # what, figure, reference, ratio, target, met

    def row(what, figure, reference, ratio, target, met):
        rows.append((what, figure, reference, ratio, target, "yes" if met else "NO"))

    def missing(what, target):
        rows.append((what, "not measured", "", "", target, "?"))

    for mode, label, counts in (("user", "users", (100, 1000, 10000)), ("port", "bindings", (100, 1000))):
        base = f"CheckDigest/{mode}"
        if any(f"{base}/{n}" not in runs or "error_occurred" in runs[f"{base}/{n}"] for n in counts):
            missing(f"CheckDigest, {mode} mode", "within 3x; < 100 ns per stored entry")
            continue
        lib = {n: ns(runs[f"{base}/{n}"]) for n in counts}
        ref = {n: ns(runs[f"{base}/{n}/reference"]) for n in counts}
        for n in counts:
            ratio = lib[n] / ref[n]
            if n == counts[0]:
                row(f"CheckDigest, {mode} mode, {n} {label}", fmt_time(lib[n]), fmt_time(ref[n]), f"{ratio:.2f}x",
                    "within 3x of reference", ratio <= 3)
            else:
                per = (lib[n] - lib[counts[0]]) / (n - counts[0])
                row(f"CheckDigest, {mode} mode, {n} {label}", fmt_time(lib[n]), fmt_time(ref[n]), f"{ratio:.2f}x",
                    f"< 100 ns per {label[:-1]} (here {per:.1f})", per < 100)

    for name, what in (("BindPort/500", "BindPort, 500 devices in one call"),
                       ("UnbindPort/500", "UnbindPort, the 500")):
        run = runs.get(name)
        if run is None or "error_occurred" in run:
            missing(what, "< 2 s, 1 nginx reload")
            continue
        reloads = int(run.get("nginx_reloads", -1))
        row(what, fmt_time(ns(run)), "-", "-", f"< 2 s, 1 nginx reload (here {reloads})",
            ns(run) < 2e9 and reloads == 1)

    live, alone = runs.get("QueryTELMIPortList/500"), runs.get("QueryTELMIPortList/500/reference")
    if live and alone and "error_occurred" not in live and "error_occurred" not in alone:
        ratio = ns(live) / ns(alone)
        row("QueryTELMIPortList, 500-binding page, live status", fmt_time(ns(live)),
            fmt_time(ns(alone)) + " (no refresh)", f"{ratio:.1f}x", "< 50 ms; < 10x the query alone",
            ns(live) < 50e6 and ratio < 10)
    else:
        missing("QueryTELMIPortList, 500-binding page", "< 50 ms; < 10x the query alone")

    start = runs.get("Start/1000")
    if start and "error_occurred" not in start:
        row("Start with 1,000 bindings", fmt_time(ns(start)), "-", "-", "< 3 s", ns(start) < 3e9)
    else:
        missing("Start with 1,000 bindings", "< 3 s")

    request_rows = (e2e or {}).get("rows", {})
    if all(name in request_rows for name in ("device", "nginx", "port", "user", "apache")):
        nginx, apache = request_rows["nginx"], request_rows["apache"]

        def served(r):
            failed = f", {r['failed']} of {r['requests']} failed" if r.get("failed") else ""
            return f"{r['rps']:.0f}/s, p99 {r['p99_ms']:.1f} ms{failed}"

        for name, what in (("device", "(a) the device alone"), ("nginx", "(b) nginx straight to the device")):
            row(f"TELMI requests, {what}", served(request_rows[name]), "-", "-", "reference", True)
        for name, what in (("port", "(c) device port, Digest"), ("user", "(d) user-mode port, Digest")):
            r = request_rows[name]
            ratio = r["rps"] / nginx["rps"]
            row(f"TELMI requests, {what}", served(r), f"(b) {nginx['rps']:.0f}/s; (e) {apache['rps']:.0f}/s",
                f"{ratio * 100:.0f}% of (b)", ">= 80% of (b), ahead of (e), none failed",
                ratio >= 0.8 and r["rps"] > apache["rps"] and not r.get("failed"))
        row("TELMI requests, (e) Apache httpd, mod_auth_digest", served(apache), "-",
            f"{apache['rps'] / nginx['rps'] * 100:.0f}% of (b)", "reference", True)
    else:
        missing("TELMI requests/s through the gateway's ports", ">= 80% of nginx direct, ahead of Apache")
    relay = (e2e or {}).get("relay")
    if relay:
        ratio = relay["relayed_mbps"] / relay["direct_mbps"]
        row("RTSP relay, 4 clients at once", f"{relay['relayed_mbps']:.0f} MB/s",
            f"{relay['direct_mbps']:.0f} MB/s straight from the device", f"{ratio * 100:.0f}%", "reference for changes",
            True)
    else:
        missing("RTSP relay, 4 clients at once", "reference for changes")
    if e2e and "rss_filled_kib" in e2e:
        grown = (e2e["rss_filled_kib"] - e2e["rss_empty_kib"]) / 1024
        row(f"host service memory, {e2e['stored_users']} users + {e2e['stored_bindings']} bindings",
            f"{e2e['rss_filled_kib'] / 1024:.1f} MiB", f"{e2e['rss_empty_kib'] / 1024:.1f} MiB (empty)",
            f"+{grown:.1f} MiB", "< 64 MiB more", grown < 64)
    else:
        missing("host service memory, 10,000 users + 1,000 bindings", "< 64 MiB more than empty")

    print(f"\nMachine: {context.get('num_cpus', '?')} cores at {context.get('mhz_per_cpu', '?')} MHz, "
          f"load {', '.join(f'{x:.2f}' for x in context.get('load_avg', []))}; targets are set for 2 cores.")
    print("Each figure is measured in the same run as its reference, so the ratio holds on a busy machine.\n")
    headers = ("what", "figure", "reference", "ratio", "target", "met")
    widths = [max(len(str(r[i])) for r in rows + [headers]) for i in range(len(headers))]
    line = lambda r: "  ".join(str(c).ljust(w) for c, w in zip(r, widths)).rstrip()
    print(line(headers))
    print("  ".join("-" * w for w in widths))
    for r in rows:
        print(line(r))
    return 0 if all(r[5] == "yes" for r in rows) else 1


if __name__ == "__main__":
    sys.exit(main())
