#!/usr/bin/env python3
"""Reads the figures of one benchmark run and prints each against its target.

usage: bench_summary.py OUT_DIR

OUT_DIR holds bench-<program>.json (Google Benchmark's --benchmark_out) and
process-figures.json (the figures that scripts/bench.sh takes on whole
processes). Writes OUT_DIR/bench-results.json: the machine, and per figure its
value, baseline, target and verdict (PASS, MISS, or SKIP with the reason)."""
import json
import os
import platform
import sys


def load(path):
    try:
        with open(path) as f:
            return json.load(f)
    except (OSError, ValueError):
        return None


def runs(out, program):
    """Benchmark name -> its run entry: the median where the benchmark was
    repeated, else its one run."""
    data = load(os.path.join(out, "bench-%s.json" % program)) or {}
    found = {}
    for b in data.get("benchmarks", []):
        if b.get("run_type") == "aggregate":
            if b.get("aggregate_name") == "median":
                found[b["run_name"]] = b
        else:
            found.setdefault(b["run_name"], b)
    return found


def machine():
    model = "unknown"
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    model = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    return {"cpus": os.cpu_count(), "cpu_model": model, "kernel": platform.release()}


class Figures:
    def __init__(self):
        self.rows = []

    def add(self, name, value, target, better, baseline="", unit="x"):
        """better: "le" (at most target) or "ge" (at least target)."""
        if value is None:
            return self.skip(name, "benchmark did not run", target, better)
        ok = value <= target if better == "le" else value >= target
        self.rows.append({"figure": name, "value": round(value, 4), "unit": unit,
                          "target": ("<= " if better == "le" else ">= ") + str(target),
                          "baseline": baseline, "verdict": "PASS" if ok else "MISS"})

    def skip(self, name, why, target="", better="le"):
        t = ("<= " if better == "le" else ">= ") + str(target) if target != "" else ""
        self.rows.append({"figure": name, "value": None, "unit": "", "target": t,
                          "baseline": "", "verdict": "SKIP", "note": why})


def ratio(a, b):
    return a / b if a is not None and b else None


def main():
    out = sys.argv[1]
    f = Figures()

    alert = runs(out, "alert_pass_bench")
    p, flat = alert.get("BM_CheckAlarmPass"), alert.get("BM_FlatTriggerLoop")
    f.add("CheckAlarm pass, 1,000 rules x 4 triggers, per trigger",
          ratio(p and p["cpu_time"], flat and flat["cpu_time"]), 3, "le",
          "flat loop, same bit test and comparison")

    can = runs(out, "can_frame_bench")
    h, d = can.get("BM_OnGetZelCanData"), can.get("BM_MinimalDecode")
    f.add("onGetZelCanData, 64-row table, last row", ratio(h and h["cpu_time"],
          d and d["cpu_time"]), 3, "le", "shift, mask, FMA of a pre-resolved row")
    f.add("onGetZelCanData allocations per call", h and h.get("allocs_per_call"), 0, "le",
          unit="allocs")

    bus = runs(out, "bus_relay_bench")
    tp = bus.get("BM_Throughput/iterations:20/real_time")
    f.add("bus one-way throughput, 64 B, fan-out 1", tp and tp["ratio_msgs_per_cpu_s"],
          0.9, "ge", tp and "bare %.0f msg/s, bus %.0f msg/s (per CPU-second, one core)" % (
              tp["bare_msgs_per_cpu_s"], tp["bus_msgs_per_cpu_s"]) or "")
    for fan in (1, 3):
        c = bus.get("BM_PacedCpu/%d/iterations:24/real_time" % fan)
        f.add("bus CPU per message at 8,000 msg/s, fan-out %d" % fan,
              c and c["ratio_cpu_us_per_msg"], 1.2, "le",
              c and "bare %.1f us, bus %.1f us" % (c["bare_cpu_us_per_msg"],
                                                 c["bus_cpu_us_per_msg"]) or "")
        if fan == 3:
            f.add("bus messages lost at fan-out 3", c and c["bus_lost"], 0, "le", unit="msgs")
    rt = bus.get("BM_RoundTrip/iterations:8000/real_time")
    for q in ("p50", "p99"):
        f.add("bus round trip %s" % q, rt and rt["ratio_%s_us" % q], 1.5, "le",
              rt and "bare %.1f us, bus %.1f us" % (rt["bare_%s_us" % q],
                                                  rt["bus_%s_us" % q]) or "")

    proc = load(os.path.join(out, "process-figures.json")) or {}
    sc = proc.get("syscalls")
    if sc and sc.get("bus") is not None:
        f.add("syscalls per relayed message, fan-out 1 (broker)", sc["bus"], 6, "le",
              "bare relay %.2f" % sc["bare"], unit="calls")
    else:
        f.skip("syscalls per relayed message, fan-out 1 (broker)",
               (sc or {}).get("note", "not measured"), 6)
    lat = proc.get("latency")
    if lat and lat.get("p99_ms") is not None:
        f.add("signal -> 3215, ATLEAST 0 rule, p50", lat["p50_ms"], 110, "le",
              "service cycle 100 ms + dispatch", unit="ms")
        f.add("signal -> 3215, ATLEAST 0 rule, p99", lat["p99_ms"], 110, "le",
              "service cycle 100 ms + dispatch", unit="ms")
    else:
        f.skip("signal -> 3215, ATLEAST 0 rule, p99", (lat or {}).get("note", "not measured"),
               110)
    idle = proc.get("idle")
    if idle:
        f.add("idle host with the plug-in: CPU", idle["cpu_pct"], 0.1, "le", unit="% core")
        f.add("idle host with the plug-in: RSS", idle["rss_mb"], 8, "le", unit="MB")
    else:
        f.skip("idle host with the plug-in", "not measured", 0.1)
    rp = proc.get("replay") or {}
    if rp.get("seconds") is not None and rp.get("trace_s"):
        f.add("zelctl replay of the 30 s truck trace", rp["seconds"] / rp["trace_s"], 0.01, "le",
              "trace duration %.1f s, replay %.3f s" % (rp["trace_s"], rp["seconds"]))
    else:
        f.skip("zelctl replay of the 30 s truck trace", rp.get("note", "not yet measured"), 0.01)

    result = {"machine": machine(), "figures": f.rows}
    with open(os.path.join(out, "bench-results.json"), "w") as fh:
        json.dump(result, fh, indent=2)
    m = result["machine"]
    print("== figures (%d CPUs, %s)" % (m["cpus"], m["cpu_model"]))
    for r in f.rows:
        value = "-" if r["value"] is None else "%g %s" % (r["value"], r["unit"])
        extra = r.get("note") or r["baseline"]
        print("%-4s %-52s %-16s target %-8s %s" % (r["verdict"], r["figure"], value,
                                                   r["target"], extra))


if __name__ == "__main__":
    main()
