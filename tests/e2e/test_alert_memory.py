"""Alert memory under a flood: a stream that never reads and a slow reader end at their queue
bounds, a reader that keeps up receives every alarm, and the gateway's memory stays bounded and
returns after the burst; shutdown with open streams is quick. Prints RSS and queued stream bytes
before, during and after the flood."""

import http.client
import json
import socket
import threading
import time

from gateway_fixture import (GATEWAY, AlertStream, Gateway, GatewayTestCase, make_config,
                             sanitizer_report)

PASSWORD = "Memory12345"
DEVICES = ["stuck", "slow", "reader"]
QUEUE_BOUND = 256 * 1024
ALARM_BYTES = 24 * 1024
ROUNDS = 1200
# Sanitizer builds keep freed memory in quarantine or shadow: the RSS bounds apply to release.
SANITIZED = any(name in (GATEWAY or "") for name in ("/asan/", "/tsan/"))


def alarm(device, n):
    """Large alarms for the streams that fall behind, small ones for the reader."""
    size = 16 if device == "reader" else ALARM_BYTES
    return json.dumps({"EventNotificationAlert": {
        "devIndex": device, "eventType": "VMD", "activePostCount": n,
        "channelName": "x" * size}}).encode()


class Reader(threading.Thread):
    """Reads a stream at up to `rate` bytes/s (None: as fast as it can); counts alarm parts."""

    def __init__(self, stream, rate=None):
        super().__init__(daemon=True)
        self.stream, self.rate, self.alarms, self.ended = stream, rate, 0, False
        self.stop = threading.Event()

    def run(self):
        self.stream.sock.settimeout(0.5)
        pending = self.stream.buffer
        while not self.stop.is_set():
            try:
                data = self.stream.sock.recv(65536 if self.rate is None else 16384)
            except socket.timeout:
                continue
            except OSError:
                data = b""
            if not data:
                self.ended = True
                return
            pending += data
            self.alarms += pending.count(b"<eventType>VMD</eventType>")
            pending = pending[-64:]
            if self.rate:
                time.sleep(len(data) / self.rate)


class AlertMemoryTest(GatewayTestCase):

    config = make_config(
        users=[{"name": "user-" + d, "password": PASSWORD, "device": d} for d in DEVICES],
        devices=[{"devIndex": d} for d in DEVICES],
        limits={"maxStreamQueueBytes": QUEUE_BOUND})

    def rss_kib(self):
        with open("/proc/%d/status" % self.gateway.process.pid) as f:
            return next(int(line.split()[1]) for line in f if line.startswith("VmRSS:"))

    def stream_connections(self):
        return {c["peer"]: c for c in self.gateway.state()["connections"]["list"]
                if c["phase"] == "streaming"}

    def sample(self, label, samples):
        queued = sum(c["queuedBytes"] for c in self.stream_connections().values())
        samples.append((label, self.rss_kib(), queued))

    def report(self, samples):
        for label in ("before", "during", "after"):
            rows = [(rss, queued) for name, rss, queued in samples if name == label]
            print("alert memory %-6s RSS max %7d KiB, queued stream bytes max %8d (%d samples)"
                  % (label, max(r for r, _ in rows), max(q for _, q in rows), len(rows)),
                  flush=True)

    def test_flood_keeps_memory_bounded_and_ends_only_streams_that_fall_behind(self):
        streams = {d: AlertStream(self.gateway, "user-" + d, PASSWORD) for d in DEVICES}
        for stream in streams.values():
            self.addCleanup(stream.close)
            self.assertEqual(stream.status, 200)
        stuck_peer = "127.0.0.1:%d" % streams["stuck"].sock.getsockname()[1]
        slow, reader = Reader(streams["slow"], rate=1024 * 1024), Reader(streams["reader"])
        for thread in (slow, reader):
            thread.start()
            self.addCleanup(thread.stop.set)
        samples = []
        self.sample("before", samples)

        admin = http.client.HTTPConnection(self.gateway.admin_base[len("http://"):], timeout=30)
        self.addCleanup(admin.close)
        accepted = {d: 0 for d in DEVICES}
        flooding = threading.Event()
        flooding.set()

        def sampler():
            while flooding.is_set():
                self.sample("during", samples)
                time.sleep(0.02)
        sampling = threading.Thread(target=sampler, daemon=True)
        sampling.start()
        started = time.monotonic()
        for n in range(ROUNDS):
            for device in DEVICES:
                admin.request("POST", "/admin/alarms", alarm(device, n))
                response = admin.getresponse()
                response.read()
                accepted[device] += response.status == 202
        flood_seconds = time.monotonic() - started
        flooding.clear()
        sampling.join()

        # The stream that never reads is closed once its queue is full; the slow one too.
        self.assertTrue(self.gateway.wait_for(
            lambda: stuck_peer not in self.stream_connections(), timeout=20))
        self.assertTrue(self.gateway.wait_for(lambda: slow.ended, timeout=20))
        # The reader that keeps up gets every alarm of its device.
        self.assertTrue(self.gateway.wait_for(
            lambda: reader.alarms == accepted["reader"], timeout=20),
            (reader.alarms, accepted["reader"]))
        self.assertFalse(reader.ended)
        time.sleep(2)
        self.sample("after", samples)
        self.report(samples)
        print("alert memory: %d alarms (%d of %d KiB) in %.1f s, accepted %s"
              % (3 * ROUNDS, 2 * ROUNDS, ALARM_BYTES // 1024, flood_seconds, accepted),
              flush=True)

        for label, rss, queued in samples:
            self.assertLessEqual(queued, 3 * QUEUE_BOUND, label)
        if not SANITIZED:
            before = samples[0][1]
            peak = max(rss for _, rss, _ in samples)
            self.assertLess(peak - before, 32 * 1024, samples)  # KiB
            self.assertLess(samples[-1][1] - before, 16 * 1024, samples)
        state = self.gateway.state()
        self.assertEqual(state["connections"]["streams"], 1)

    def test_shutdown_with_open_streams_does_not_wait_for_them(self):
        gateway = Gateway(self.config).start()
        self.addCleanup(gateway.cleanup)
        for device in ("stuck", "slow"):
            stream = AlertStream(gateway, "user-" + device, PASSWORD)
            self.addCleanup(stream.close)
        for n in range(100):
            for device in ("stuck", "slow"):
                status, _ = gateway.admin("POST", "/admin/alarms", alarm(device, n))
                self.assertEqual(status, 202)
        started = time.monotonic()
        code, stderr = gateway.stop()
        self.assertEqual(code, 0, stderr[-2000:])
        self.assertLess(time.monotonic() - started, 5)
        self.assertIsNone(sanitizer_report(stderr))
