#!/usr/bin/python3
"""Alert fan-out of korva-gateway: many open alert streams, a ladder of injected alarm rates.

Generates a configuration of D users each bound to its own built-in camera, opens two alert
streams per device (S = 2 D), then for each step of the ladder injects alarms through
POST /admin/alarms with korva-load (open-loop pacing over several keep-alive connections, one
alarm per device in turn). Each alarm carries its step and send time (steady clock, ns) in
eventDescription; reader processes (non-blocking sockets, one selector each) parse every part
and take alarm-to-wire latency at arrival. Per step: alarms accepted (202) and refused, parts
received against expected (accepted x streams per device) after a drain period, latency
p50/p99/max, server CPU per accepted alarm, RSS. Memory per open stream is the RSS growth from
opening the streams divided by their count.

  bench/alert_fanout.py                      # 500 devices, 1000 streams, 2000..8000 alarms/s
  bench/alert_fanout.py --quick              # 50 devices, 100 streams, 100 and 200 alarms/s
"""

import argparse
import multiprocessing
import os
import re
import selectors
import shutil
import sys
import tempfile
import time

import benchlib

PASSWORD = "Stream12345"
PART_HEAD = re.compile(rb'--boundary\r\nContent-Type: application/xml; charset="UTF-8"\r\n'
                       rb'Content-Length: (\d+)\r\n\r\n')
MARK = re.compile(rb"<eventDescription>s(\d+)t(\d+)</eventDescription>")
ALARM = ('{"EventNotificationAlert":{"devIndex":"dev-{dev}","channelID":"1",'
         '"dateTime":"2024-05-01T10:00:00+08:00","activePostCount":1,"eventType":"VMD",'
         '"eventState":"active","eventDescription":"s%dt{ns}","channelName":"Lobby"}}')


def reader(port, devices, streams_per_device, commands, results):
    """Opens the streams of `devices` and tallies their parts per step until told to stop.
    Sends ("ready", n) once open, then on "stop" a {step: (count, latencies in us)} map."""
    selector = selectors.DefaultSelector()
    buffers = {}
    socks = []
    try:
        for device in devices:
            for _ in range(streams_per_device):
                sock, rest = benchlib.open_stream(port, "user-%d" % device, PASSWORD)
                sock.setblocking(False)
                selector.register(sock, selectors.EVENT_READ)
                buffers[sock] = bytearray(rest)
                socks.append(sock)
    except Exception as error:  # reported to the parent, which stops the run
        results.put(("error", repr(error)))
        return
    results.put(("ready", len(socks)))
    tally = {}
    closed = 0
    while True:
        if commands.poll():
            if commands.recv() == "stop":
                break
        for key, _ in selector.select(timeout=0.05):
            sock = key.fileobj
            try:
                chunk = sock.recv(262144)
            except BlockingIOError:
                continue
            now = time.monotonic_ns()
            if not chunk:
                selector.unregister(sock)
                closed += 1
                continue
            buf = buffers[sock]
            buf += chunk
            pos = 0
            while True:
                match = PART_HEAD.match(buf, pos)
                if not match:
                    break
                end = match.end() + int(match.group(1))
                if end > len(buf):
                    break
                mark = MARK.search(buf, match.end(), end)
                if mark:
                    step = int(mark.group(1))
                    entry = tally.setdefault(step, [0, []])
                    entry[0] += 1
                    entry[1].append((now - int(mark.group(2))) // 1000)
                pos = end
            del buf[:pos]
    for sock in socks:
        sock.close()
    results.put(("done", {"tally": tally, "closed": closed}))


def percentile(values, fraction):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(len(ordered) * fraction))] if ordered else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", default=os.path.join(benchlib.ROOT, "build", "release"))
    parser.add_argument("--devices", type=int, default=500)
    parser.add_argument("--rates", default="2000,4000,6000,8000", help="alarms/s per step")
    parser.add_argument("--step-seconds", type=float, default=10)
    parser.add_argument("--drain-seconds", type=float, default=3)
    parser.add_argument("--readers", type=int, default=2, help="reader processes")
    parser.add_argument("--injector-connections", type=int, default=8)
    parser.add_argument("--log-level", type=int, default=5)
    parser.add_argument("--quick", action="store_true")
    args = parser.parse_args()
    if args.quick:
        args.devices, args.rates, args.step_seconds, args.drain_seconds = 50, "100,200", 2, 1
    rates = [int(r) for r in args.rates.split(",")]
    if not 1 <= args.devices <= 5000 or not 0 < args.step_seconds <= 120 or \
            any(not 0 < r <= 100000 for r in rates):
        parser.error("devices 1..5000, step up to 120 s, rates 1..100000")
    streams_per_device = 2

    config = benchlib.gateway_config(
        [("user-%d" % d, PASSWORD, "dev-%d" % d, {}) for d in range(args.devices)],
        log_level=args.log_level)
    gateway = benchlib.Gateway(args.build, config, log_level=args.log_level).start()
    tmp = tempfile.mkdtemp(prefix="korva-bench-fanout-")
    procs, pipes = [], []
    results = multiprocessing.Queue()
    code = 0
    try:
        time.sleep(0.5)
        rss_idle = benchlib.rss_bytes(gateway.pid)
        devices = list(range(args.devices))
        for r in range(args.readers):
            parent, child = multiprocessing.Pipe()
            proc = multiprocessing.Process(target=reader, args=(
                gateway.port, devices[r::args.readers], streams_per_device, child, results))
            proc.start()
            procs.append(proc)
            pipes.append(parent)
        opened = 0
        for _ in procs:
            kind, value = results.get(timeout=300)
            if kind == "error":
                raise RuntimeError("a reader could not open its streams: " + value)
            opened += value
        time.sleep(1)
        rss_open = benchlib.rss_bytes(gateway.pid)
        print("%d streams open over %d devices; gateway RSS %.1f MiB idle, %.1f MiB with the "
              "streams: %.1f KiB per stream" % (
                  opened, args.devices, rss_idle / 2**20, rss_open / 2**20,
                  (rss_open - rss_idle) / 1024 / opened), flush=True)

        steps = []
        for step, rate in enumerate(rates, 1):
            body_file = os.path.join(tmp, "alarm-%d.json" % step)
            with open(body_file, "w") as f:
                f.write(ALARM % step)
            cpu_before = benchlib.cpu_seconds(gateway.pid)
            report = benchlib.run_load(
                args.build, gateway.admin_port, "/admin/alarms", args.step_seconds,
                args.injector_connections, 1, "POST", body_file,
                max_requests=int(rate * args.step_seconds) + 1, rate=rate,
                devices=args.devices, content_type="application/json")
            time.sleep(args.drain_seconds)
            cpu = benchlib.cpu_seconds(gateway.pid) - cpu_before
            accepted = report["statuses"].get("202", 0)
            steps.append({"rate": rate, "sent": report["requests"], "accepted": accepted,
                          "refused": report["statuses"].get("503", 0),
                          "other": report["requests"] - accepted -
                          report["statuses"].get("503", 0) + report["errors"],
                          "achieved": report["rps"],
                          "cpu_us": 1e6 * cpu / accepted if accepted else float("nan"),
                          "rss": benchlib.rss_bytes(gateway.pid)})
            print("step %d: %d alarms/s asked, %.0f/s sent, %d accepted, %d refused" % (
                step, rate, report["rps"], accepted, steps[-1]["refused"]), flush=True)
        for pipe in pipes:
            pipe.send("stop")
        tally, closed = {}, 0
        for _ in procs:
            kind, value = results.get(timeout=120)
            closed += value["closed"]
            for step, (count, latencies) in value["tally"].items():
                entry = tally.setdefault(step, [0, []])
                entry[0] += count
                entry[1].extend(latencies)
        print()
        print("alarms/s | sent/s | accepted | refused | parts received/expected | missing | "
              "p50 ms | p99 ms | max ms | CPU us/alarm | RSS MiB")
        for step, s in enumerate(steps, 1):
            count, latencies = tally.get(step, [0, []])
            expected = s["accepted"] * streams_per_device
            missing = 100.0 * (expected - count) / expected if expected else 0.0
            print("%8d | %6.0f | %8d | %7d | %11d / %-11d | %5.1f %% | %6.2f | %6.2f | %6.1f | "
                  "%12.1f | %7.1f" % (
                      s["rate"], s["achieved"], s["accepted"], s["refused"], count, expected,
                      missing, percentile(latencies, 0.5) / 1000,
                      percentile(latencies, 0.99) / 1000,
                      (max(latencies) if latencies else 0) / 1000, s["cpu_us"],
                      s["rss"] / 2**20))
            if s["other"]:
                print("  step %d: %d injections answered neither 202 nor 503" % (step, s["other"]))
        if closed:
            print("note: %d streams were closed by the gateway during the run" % closed)
    finally:
        for pipe in pipes:
            try:
                pipe.send("stop")
            except OSError:
                pass
        for proc in procs:
            proc.join(10)
            if proc.is_alive():
                proc.terminate()
        exit_code = gateway.stop()
        if exit_code != 0:
            print("gateway exit status %s" % exit_code, file=sys.stderr)
            code = 1
        shutil.rmtree(tmp, ignore_errors=True)
    return code


if __name__ == "__main__":
    sys.exit(main())
