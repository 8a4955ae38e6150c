#!/usr/bin/python3
"""Several korva-gateway builds beside nginx in the same run: interleaved rounds, per-round ratios.

Each build is NAME=BUILD_DIR[:fixed][:envVAR=VALUE...]: "fixed" answers from the built-in
camera's own answers (korva-sim-answers) instead of the camera; env entries are set for that
gateway only (MALLOC_ARENA_MAX, LD_PRELOAD of an allocator). A build's own bin/ comes first on
LD_LIBRARY_PATH, so a copied build directory runs its own host library. Prints each run, then per
target the medians of req/s, p99 and server CPU per request, and for each gateway the ratio to
nginx of the same round as median [min..max] across the rounds.

  bench/builds_vs_nginx.py --rounds 3 --seconds 8 before=/tmp/before after=build/release \\
      after-fixed=build/release:fixed
"""

import argparse
import json
import os
import statistics
import subprocess

import benchlib

PATHS = ["/KORVA/System/deviceInfo", "/KORVA/Streaming/channels/101"]


def start_gateway(build_entry, log_level):
    name, rest = build_entry.split("=", 1)
    build, *options = rest.split(":")
    env = dict(os.environ, LD_LIBRARY_PATH=os.path.join(build, "bin"))
    for option in options:
        if option.startswith("env"):
            key, value = option[3:].split("=", 1)
            env[key] = value
    device, profiles = {}, None
    if "fixed" in options:
        profiles = {"fixed": json.loads(subprocess.run(
            [benchlib.build_bin(build, "korva-sim-answers")], stdout=subprocess.PIPE, env=env,
            check=True).stdout)}
        device = {"profile": "profiles/fixed.json"}
    gateway = benchlib.Gateway(build, benchlib.gateway_config(
        [(benchlib.USER, benchlib.PASSWORD, "cam-1", device)]), profiles=profiles,
        log_level=log_level)
    saved = dict(os.environ)
    os.environ.clear()
    os.environ.update(env)  # Gateway.start inherits the environment
    try:
        gateway.start()
    finally:
        os.environ.clear()
        os.environ.update(saved)
    return name, gateway


def spread(values):
    return "%.2f [%.2f..%.2f]" % (statistics.median(values), min(values), max(values))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("builds", nargs="+", help="NAME=BUILD_DIR[:fixed][:envVAR=VALUE]")
    parser.add_argument("--client-build", default=os.path.join(benchlib.ROOT, "build", "release"))
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--seconds", type=float, default=8)
    parser.add_argument("--connections", type=int, default=64)
    parser.add_argument("--log-level", type=int, default=5)
    parser.add_argument("--paths", default=",".join(PATHS))
    args = parser.parse_args()
    if not 1 <= args.rounds <= 20 or not 0 < args.seconds <= 300:
        parser.error("rounds 1..20, seconds up to 300")
    paths = args.paths.split(",")
    client = args.client_build
    auth = (benchlib.USER, benchlib.PASSWORD)
    gateways, nginx, results = [], None, {}
    try:
        for build_entry in args.builds:
            gateways.append(start_gateway(build_entry, args.log_level))
        answers = {p: benchlib.request(gateways[0][1].port, "GET", p)[2] for p in paths}
        nginx = benchlib.Nginx(answers).start()
        targets = [("nginx", nginx.port, nginx.cpu_seconds, (None, None))]
        targets += [(name, g.port, (lambda pid=g.pid: benchlib.cpu_seconds(pid)), auth)
                    for name, g in gateways]
        for _, port, _, credentials in targets:  # warm-up, outside the figures
            benchlib.run_load(client, port, paths[0], 0.5, args.connections, None, "GET", None,
                              *credentials)
        for round_number in range(args.rounds):
            for path in paths:
                for name, port, cpu, credentials in targets:
                    before = cpu()
                    report = benchlib.run_load(client, port, path, args.seconds,
                                               args.connections, None, "GET", None, *credentials)
                    report["cpu_us"] = 1e6 * (cpu() - before) / max(report["requests"], 1)
                    results.setdefault((path, name), []).append(report)
                    bad = {s: n for s, n in report["statuses"].items() if s != "200"}
                    print("round %d %-30s %-12s %8.0f req/s  p99 %6.2f ms  CPU %6.1f us %s" % (
                        round_number + 1, path, name, report["rps"], report["p99_us"] / 1000,
                        report["cpu_us"], bad or ""), flush=True)
        print("\nmedians; gateway/nginx ratios of the same round: median [min..max]")
        for path in paths:
            base = results[(path, "nginx")]
            for name, *_ in targets:
                runs = results[(path, name)]
                line = "%-30s %-12s %8.0f req/s  p99 %6.2f ms  CPU %6.1f us" % (
                    path, name, statistics.median(r["rps"] for r in runs),
                    statistics.median(r["p99_us"] for r in runs) / 1000,
                    statistics.median(r["cpu_us"] for r in runs))
                if name != "nginx":
                    line += "  req/s x%s  p99 x%s  CPU x%s" % tuple(
                        spread([a[k] / b[k] for a, b in zip(runs, base)])
                        for k in ("rps", "p99_us", "cpu_us"))
                print(line)
    finally:
        if nginx:
            nginx.stop()
        for _, gateway in gateways:
            gateway.stop()


if __name__ == "__main__":
    main()
