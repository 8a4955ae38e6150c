#!/usr/bin/python3
"""korva-gateway next to nginx on the same loopback, same bytes, same load client.

Starts nginx (one worker, no access log) serving the gateway's own answers as static files,
korva-gateway with the built-in camera, and korva-gateway whose device answers from a fixed
profile (the same JSON the camera gives, from korva-sim-answers: the floor of the request path
without the simulated camera's work). Then runs interleaved rounds of korva-load against each,
for GET deviceInfo, GET streaming channel 101 and PUT of that channel's document (nginx serves
no PUT), and prints medians over the rounds: requests/s, the ratio to nginx, p99 latency, server
CPU per request (utime + stime from /proc over the run, divided by the requests answered), and
the spread of requests/s across rounds; then the RSS each server spends per idle keep-alive
connection (--idle connections, each left idle after one answered request).

  bench/http_vs_nginx.py                 # 3 rounds of 10 s, 64 connections
  bench/http_vs_nginx.py --quick         # a smoke run of a few seconds
"""

import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

import benchlib

DEVICE_INFO = "/KORVA/System/deviceInfo"
CHANNEL = "/KORVA/Streaming/channels/101"


def measure(build, server_pid_cpu, port, work, args, auth):
    """One load run; the client's report plus cpu_us per answered request."""
    method, path, body_file = work
    before = server_pid_cpu()
    report = benchlib.run_load(build, port, path, args.seconds, args.connections, args.threads,
                               method, body_file, *(auth or (None, None)))
    cpu = server_pid_cpu() - before
    report["cpu_us"] = 1e6 * cpu / report["requests"] if report["requests"] else float("nan")
    bad = {s: n for s, n in report["statuses"].items() if s != "200"}
    if bad or report["errors"]:
        print("  warning: %s %s on port %d: statuses %s, errors %d" % (
            method, path, port, report["statuses"], report["errors"]), file=sys.stderr)
    return report


def idle_memory(port, count, rss, auth):
    """RSS growth per connection from opening count idle keep-alive connections."""
    before = rss()
    socks = benchlib.open_idle(port, count, *(auth or (None, None)))
    try:
        time.sleep(0.5)
        return (rss() - before) / count
    finally:
        for sock in socks:
            sock.close()


def spread(values):
    """Half the range as a percentage of the median."""
    middle = statistics.median(values)
    return 100.0 * (max(values) - min(values)) / 2 / middle if middle else 0.0


def summary(reports):
    if not reports:
        return None
    return {
        "rps": statistics.median(r["rps"] for r in reports),
        "p99_ms": statistics.median(r["p99_us"] for r in reports) / 1000.0,
        "cpu_us": statistics.median(r["cpu_us"] for r in reports),
        "spread": spread([r["rps"] for r in reports]),
        "rounds": [{k: r[k] for k in ("rps", "p99_us", "cpu_us", "requests", "errors")}
                   for r in reports],
    }


def cell(value, fmt):
    return fmt % value if value is not None else "-"


def print_table(rows):
    head = ("work", "nginx req/s", "gateway req/s", "ratio", "nginx p99 ms", "gateway p99 ms",
            "nginx CPU us/req", "gateway CPU us/req", "CPU ratio", "spread nginx/gateway")
    lines = [head]
    for name, nginx, gateway in rows:
        n = nginx or {}
        ratio = gateway["rps"] / n["rps"] if nginx else None
        cpu_ratio = gateway["cpu_us"] / n["cpu_us"] if nginx else None
        lines.append((
            name, cell(n.get("rps"), "%.0f"), "%.0f" % gateway["rps"], cell(ratio, "%.2f"),
            cell(n.get("p99_ms"), "%.2f"), "%.2f" % gateway["p99_ms"],
            cell(n.get("cpu_us"), "%.1f"), "%.1f" % gateway["cpu_us"], cell(cpu_ratio, "%.1f"),
            "%s / ±%.1f %%" % (cell(n.get("spread"), "±%.1f %%"), gateway["spread"])))
    widths = [max(len(line[i]) for line in lines) for i in range(len(head))]
    for i, line in enumerate(lines):
        print(" | ".join(text.ljust(widths[c]) for c, text in enumerate(line)))
        if i == 0:
            print("-+-".join("-" * w for w in widths))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", default=os.path.join(benchlib.ROOT, "build", "release"))
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--seconds", type=float, default=10)
    parser.add_argument("--connections", type=int, default=64)
    parser.add_argument("--threads", type=int, default=None,
                        help="load client threads (default: one per core)")
    parser.add_argument("--log-level", type=int, default=5)
    parser.add_argument("--idle", type=int, default=1000,
                        help="idle keep-alive connections for the memory figure (0: none)")
    parser.add_argument("--json-out", help="write every round's figures to this file")
    parser.add_argument("--quick", action="store_true", help="1 round of 1 s, 8 connections")
    args = parser.parse_args()
    if args.quick:
        args.rounds, args.seconds, args.connections, args.idle = 1, 1.0, 8, 100
    if not 1 <= args.rounds <= 20 or not 0 < args.seconds <= 300:
        parser.error("rounds 1..20, seconds up to 300")
    build = args.build

    fixed_profile = json.loads(subprocess.run(
        [benchlib.build_bin(build, "korva-sim-answers")], stdout=subprocess.PIPE,
        check=True).stdout)
    user = (benchlib.USER, benchlib.PASSWORD)
    camera = benchlib.Gateway(build, benchlib.gateway_config(
        [(benchlib.USER, benchlib.PASSWORD, "cam-1", {})]), log_level=args.log_level)
    fixed = benchlib.Gateway(build, benchlib.gateway_config(
        [(benchlib.USER, benchlib.PASSWORD, "cam-1", {"profile": "profiles/fixed.json"})]),
        profiles={"fixed": fixed_profile}, log_level=args.log_level)
    nginx = None
    tmp = tempfile.mkdtemp(prefix="korva-bench-")
    try:
        camera.start()
        fixed.start()
        answers = {}
        for path in (DEVICE_INFO, CHANNEL):
            status, _, body = benchlib.request(camera.port, "GET", path)
            if status != 200:
                raise SystemExit("gateway answered %d to GET %s" % (status, path))
            answers[path] = body
            status, _, floor_body = benchlib.request(fixed.port, "GET", path)
            if floor_body != body:
                print("note: the fixed-profile gateway's answer to %s differs from the camera's "
                      "(%d vs %d bytes)" % (path, len(floor_body), len(body)), file=sys.stderr)
        body_file = os.path.join(tmp, "channel.xml")
        with open(body_file, "wb") as f:
            f.write(answers[CHANNEL])
        status, _, _ = benchlib.request(camera.port, "PUT", CHANNEL, answers[CHANNEL])
        if status != 200:
            raise SystemExit("gateway answered %d to the PUT of its own channel document" % status)
        nginx = benchlib.Nginx(answers).start()
        print("answers: deviceInfo %d bytes, channel 101 %d bytes; nginx pid %d port %d, "
              "gateway pid %d port %d, fixed-profile gateway pid %d port %d; %d rounds of %.0f s, "
              "%d connections" % (len(answers[DEVICE_INFO]), len(answers[CHANNEL]), nginx.pid,
                                  nginx.port, camera.pid, camera.port, fixed.pid, fixed.port,
                                  args.rounds, args.seconds, args.connections))

        works = [("GET deviceInfo", ("GET", DEVICE_INFO, None), True),
                 ("GET channel 101", ("GET", CHANNEL, None), True),
                 ("PUT channel 101", ("PUT", CHANNEL, body_file), False)]
        targets = [("nginx", nginx.port, nginx.cpu_seconds, None),
                   ("gateway", camera.port, lambda: benchlib.cpu_seconds(camera.pid), user),
                   ("fixed", fixed.port, lambda: benchlib.cpu_seconds(fixed.pid), user)]
        # A short warm-up of each server outside the figures.
        for _, port, _, auth in targets:
            benchlib.run_load(build, port, DEVICE_INFO, 0.5, args.connections, args.threads,
                              "GET", None, *(auth or (None, None)))
        results = {(w[0], t[0]): [] for w in works for t in targets}
        for round_number in range(args.rounds):
            for name, work, nginx_serves in works:
                for target, port, cpu, auth in targets:
                    if target == "nginx" and not nginx_serves:
                        continue
                    report = measure(build, cpu, port, work, args, auth)
                    results[(name, target)].append(report)
                    print("round %d %-16s %-8s %8.0f req/s  p99 %6.2f ms  CPU %6.1f us/req" % (
                        round_number + 1, name, target, report["rps"], report["p99_us"] / 1000,
                        report["cpu_us"]), flush=True)
        rows = []
        for name, _, _ in works:
            nginx_summary = summary(results[(name, "nginx")])
            rows.append((name, nginx_summary, summary(results[(name, "gateway")])))
            rows.append((name + " (fixed answers)", nginx_summary,
                         summary(results[(name, "fixed")])))
        print()
        print_table(rows)
        if args.idle > 0:
            print()
            for name, port, rss, auth in (
                    ("nginx", nginx.port, nginx.rss_bytes, None),
                    ("gateway", camera.port, lambda: benchlib.rss_bytes(camera.pid), user)):
                print("%s: %.2f KiB of RSS per idle keep-alive connection (%d connections)" % (
                    name, idle_memory(port, args.idle, rss, auth) / 1024, args.idle))
        if args.json_out:
            with open(args.json_out, "w") as f:
                json.dump({"%s|%s" % key: summary(value) for key, value in results.items()},
                          f, indent=1)
        for gateway in (camera, fixed):
            if "ERROR" in gateway.stderr_text():
                print("note: gateway stderr holds ERROR lines", file=sys.stderr)
    finally:
        if nginx:
            nginx.stop()
        codes = [camera.stop(), fixed.stop()]
        subprocess.run(["rm", "-rf", tmp], check=False)
    if any(code != 0 for code in codes):
        print("gateway exit statuses %s" % codes, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
