#!/usr/bin/python3
"""Soak of korva-gateway: minutes of mixed load with its RSS and open descriptors sampled.

The load, all at once for --minutes:
  - authenticated GET deviceInfo and GET/PUT of streaming channel 101 from korva-load, in short
    back-to-back runs (so connections and challenges keep coming and going), paced at --rate;
  - alert streams, two per stream device, drained by a reader thread that opens closed streams
    again;
  - alarms for the stream devices through POST /admin/alarms at --alarm-rate;
  - a detach and re-attach of one device every few seconds, and an alarm-bus reset every
    --reset-seconds.
Every --interval seconds the gateway's RSS (/proc/PID/statm), open descriptors (/proc/PID/fd)
and CPU are sampled, printed, tabled at the end and plotted to a PNG (matplotlib).

The gateway's nonce lifetime is --nonce-lifetime (60 s, not the default 300 s): the digest
check's nonce-count tables (bounded per account) fill for one nonce lifetime before they level
off, and that fill must end within the warm-up or it reads as growth.

Verdict: the first 20 % of the samples are warm-up. RSS growth is the median of the last five
samples over the median of the five samples after warm-up; descriptor drift is the same
difference of descriptor counts. Exit status 1 when growth > --max-growth (2 %), when the drift
exceeds --fd-tolerance, or when the gateway dies, exits non-zero or a sanitizer reports anything
in its stderr; 0 otherwise.

  bench/soak.py                        # 10 minutes
  bench/soak.py --quick                # 30 s smoke run
  bench/soak.py --gateway-build build/asan --minutes 10   # the ASan gateway, release tools
"""

import argparse
import os
import selectors
import shutil
import statistics
import sys
import tempfile
import threading
import time

import benchlib

PASSWORD = "Soak123456"
ALARM = ('{"EventNotificationAlert":{"devIndex":"dev-{dev}","channelID":"1",'
         '"dateTime":"2024-05-01T10:00:00+08:00","activePostCount":1,"eventType":"VMD",'
         '"eventState":"active","eventDescription":"soak {ns}"}}')
CHANNEL = "/KORVA/Streaming/channels/101"


class StreamReader(threading.Thread):
    """Keeps two alert streams per device open and drains them; counts bytes and reopenings."""

    def __init__(self, port, devices, stop):
        super().__init__(daemon=True)
        self.port, self.devices, self.stop = port, devices, stop
        self.bytes = self.reopened = self.refused = 0
        self.selector = selectors.DefaultSelector()
        self.open = {}  # socket -> device

    def _open(self, device):
        try:
            sock, _ = benchlib.open_stream(self.port, "user-%s" % device, PASSWORD)
        except (OSError, RuntimeError, ConnectionError, KeyError):
            self.refused += 1  # detached, or the device's streams are not closed yet
            return
        sock.setblocking(False)
        self.selector.register(sock, selectors.EVENT_READ)
        self.open[sock] = device

    def run(self):
        last_fill = 0.0
        while not self.stop.is_set():
            if time.monotonic() - last_fill > 1:
                last_fill = time.monotonic()
                for device in self.devices:
                    missing = 2 - sum(1 for d in self.open.values() if d == device)
                    for _ in range(missing):
                        self.reopened += 1
                        self._open(device)
            for key, _ in self.selector.select(timeout=0.1):
                sock = key.fileobj
                try:
                    chunk = sock.recv(262144)
                except BlockingIOError:
                    continue
                except OSError:
                    chunk = b""
                if chunk:
                    self.bytes += len(chunk)
                else:
                    self.selector.unregister(sock)
                    del self.open[sock]
                    sock.close()
        for sock in list(self.open):
            sock.close()


def loop(stop, errors, name, action):
    """Runs action() until stop is set; the first failure is recorded and ends the loop."""
    def body():
        while not stop.is_set():
            try:
                action()
            except Exception as error:  # reported in the verdict
                errors.append("%s: %r" % (name, error))
                return
    thread = threading.Thread(target=body, daemon=True)
    thread.start()
    return thread


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", default=os.path.join(benchlib.ROOT, "build", "release"),
                        help="where korva-load is")
    parser.add_argument("--gateway-build", help="where korva-gateway is (default: --build)")
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--interval", type=float, default=5)
    parser.add_argument("--rate", type=int, default=2000, help="requests/s of the request load")
    parser.add_argument("--connections", type=int, default=16)
    parser.add_argument("--stream-devices", type=int, default=4)
    parser.add_argument("--alarm-rate", type=int, default=200)
    parser.add_argument("--detach-seconds", type=float, default=5)
    parser.add_argument("--reset-seconds", type=float, default=30)
    parser.add_argument("--nonce-lifetime", type=int, default=60,
                        help="auth.nonceLifetimeSeconds of the gateway (s): the digest check "
                             "keeps each nonce's count that long, so its tables fill for that "
                             "time before they level off; keep it within the warm-up")
    parser.add_argument("--max-growth", type=float, default=2.0, help="per cent")
    parser.add_argument("--fd-tolerance", type=int, default=8)
    parser.add_argument("--png", default="soak.png")
    parser.add_argument("--log-level", type=int, default=5)
    parser.add_argument("--quick", action="store_true", help="30 s, sampled every second")
    args = parser.parse_args()
    if args.quick:
        args.minutes, args.interval, args.rate = 0.5, 1, 500
        args.detach_seconds, args.reset_seconds = 2, 8
    if not 0 < args.minutes <= 240 or not 0.2 <= args.interval <= 60:
        parser.error("minutes up to 240, interval 0.2..60 s")
    seconds = args.minutes * 60

    stream_devices = ["dev-%d" % i for i in range(args.stream_devices)]
    entries = [(benchlib.USER, benchlib.PASSWORD, "cam-1", {})]
    entries += [("user-%s" % d, PASSWORD, d, {}) for d in stream_devices]
    config = benchlib.gateway_config(entries, args.log_level)
    config["auth"]["nonceLifetimeSeconds"] = args.nonce_lifetime
    gateway = benchlib.Gateway(args.gateway_build or args.build, config,
                               log_level=args.log_level).start()
    tmp = tempfile.mkdtemp(prefix="korva-bench-soak-")
    stop = threading.Event()
    errors, samples, threads = [], [], []
    code = 0
    try:
        status, _, channel = benchlib.request(gateway.port, "GET", CHANNEL)
        if status != 200:
            raise SystemExit("gateway answered %d to GET %s" % (status, CHANNEL))
        channel_file = os.path.join(tmp, "channel.xml")
        alarm_file = os.path.join(tmp, "alarm.json")
        with open(channel_file, "wb") as f:
            f.write(channel)
        with open(alarm_file, "w") as f:
            f.write(ALARM)
        reader = StreamReader(gateway.port, stream_devices, stop)
        reader.start()
        user = (benchlib.USER, benchlib.PASSWORD)
        works = [("GET", "/KORVA/System/deviceInfo", None), ("GET", CHANNEL, None),
                 ("PUT", CHANNEL, channel_file)]
        turn = [0]
        requests = {"answered": 0, "failed": 0}

        def request_run():
            method, path, body = works[turn[0] % len(works)]
            turn[0] += 1
            report = benchlib.run_load(args.build, gateway.port, path, 3, args.connections, 1,
                                       method, body, *user, rate=args.rate)
            requests["answered"] += report["statuses"].get("200", 0)
            requests["failed"] += report["requests"] - report["statuses"].get("200", 0)

        def alarm_run():
            benchlib.run_load(args.build, gateway.admin_port, "/admin/alarms", 5, 2, 1, "POST",
                              alarm_file, rate=args.alarm_rate, devices=args.stream_devices,
                              content_type="application/json")

        churn = {"detaches": 0, "resets": 0}
        last_reset = [time.monotonic()]

        def device_churn():
            device = stream_devices[churn["detaches"] % len(stream_devices)]
            for action in ("detach", "attach"):
                status, answer = gateway.admin("POST", "/admin/devices/%s/%s" % (device, action))
                if status != 200:
                    raise RuntimeError("%s %s: %d %r" % (action, device, status, answer[:200]))
                stop.wait(args.detach_seconds / 2)
            churn["detaches"] += 1
            if time.monotonic() - last_reset[0] >= args.reset_seconds:
                last_reset[0] = time.monotonic()
                status, answer = gateway.admin("POST", "/admin/alarm-bus/reset")
                if status != 200:
                    raise RuntimeError("alarm-bus reset: %d %r" % (status, answer[:200]))
                churn["resets"] += 1

        threads += [loop(stop, errors, "requests", request_run),
                    loop(stop, errors, "alarms", alarm_run),
                    loop(stop, errors, "churn", device_churn)]

        start = time.monotonic()
        print("   t s | RSS MiB | fds | CPU s | streams open", flush=True)
        while time.monotonic() - start < seconds:
            time.sleep(args.interval)
            if gateway.process.poll() is not None:
                errors.append("the gateway exited with %d" % gateway.process.returncode)
                break
            sample = (time.monotonic() - start, benchlib.rss_bytes(gateway.pid),
                      benchlib.open_descriptors(gateway.pid), benchlib.cpu_seconds(gateway.pid))
            samples.append(sample)
            print("%6.1f | %7.2f | %3d | %5.1f | %d" % (sample[0], sample[1] / 2**20, sample[2],
                                                         sample[3], len(reader.open)), flush=True)
        stop.set()
        for thread in threads + [reader]:
            thread.join(60)
        print("requests answered 200: %d, other: %d; detach/attach cycles %d, bus resets %d, "
              "stream bytes %d, stream openings %d (%d refused)" % (
                  requests["answered"], requests["failed"], churn["detaches"], churn["resets"],
                  reader.bytes, reader.reopened, reader.refused))
        code = verdict(args, samples, errors)
        plot(args.png, samples)
    finally:
        stop.set()
        exit_code = gateway.stop()
        if exit_code != 0:
            print("FAIL: gateway exit status %s" % exit_code)
            code = 1
        report = gateway.sanitizer_report()
        if report:
            print("FAIL: sanitizer report in the gateway's stderr:\n" + report)
            code = 1
        shutil.rmtree(tmp, ignore_errors=True)
    return code


def verdict(args, samples, errors):
    for error in errors:
        print("FAIL: %s" % error)
    if len(samples) < 10:
        print("FAIL: only %d samples: run longer or sample more often" % len(samples))
        return 1
    after = samples[int(len(samples) * 0.2):]
    rss_start = statistics.median(s[1] for s in after[:5])
    rss_end = statistics.median(s[1] for s in after[-5:])
    fd_start = statistics.median(s[2] for s in after[:5])
    fd_end = statistics.median(s[2] for s in after[-5:])
    growth = 100.0 * (rss_end - rss_start) / rss_start
    fds = [s[2] for s in after]
    print("RSS after warm-up %.2f MiB, at the end %.2f MiB: growth %+.2f %% (limit %g %%)" % (
        rss_start / 2**20, rss_end / 2**20, growth, args.max_growth))
    print("descriptors after warm-up: min %d, max %d, drift %+d (tolerance %d)" % (
        min(fds), max(fds), fd_end - fd_start, args.fd_tolerance))
    failed = bool(errors)
    if growth > args.max_growth:
        print("FAIL: RSS grew by %.2f %%" % growth)
        failed = True
    if abs(fd_end - fd_start) > args.fd_tolerance:
        print("FAIL: descriptors drifted by %+d" % (fd_end - fd_start))
        failed = True
    print("PASS" if not failed else "soak FAILED")
    return 1 if failed else 0


def plot(path, samples):
    try:
        import matplotlib
        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
    except ImportError:
        print("no plot: matplotlib is missing (scripts/install-deps.sh installs it)")
        return
    if not samples:
        return
    t = [s[0] for s in samples]
    figure, (rss, fds) = plt.subplots(2, 1, sharex=True, figsize=(9, 6))
    rss.plot(t, [s[1] / 2**20 for s in samples])
    rss.set_ylabel("RSS MiB")
    rss.axvline(t[int(len(t) * 0.2)], linestyle=":", color="grey")
    fds.plot(t, [s[2] for s in samples], color="tab:orange")
    fds.set_ylabel("open descriptors")
    fds.set_xlabel("seconds")
    figure.suptitle("korva-gateway soak")
    figure.tight_layout()
    figure.savefig(path, dpi=100)
    print("plot: %s" % os.path.abspath(path))


if __name__ == "__main__":
    sys.exit(main())
