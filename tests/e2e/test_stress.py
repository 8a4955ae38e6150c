"""korva-gateway under everything at once, bounded in time: keep-alive GETs and PUTs, clients
that leave before their answer, alert streams opened, read slowly and dropped, injected alarms,
device detaches and attaches and alarm-bus resets at random moments. Afterwards the gateway
answers promptly, its stream and relay counts return to 0, and it stops cleanly on SIGTERM (the
sanitizer builds fail on any report)."""

import collections
import random
import re
import threading
import time

import requests

from gateway_fixture import (DEVICE_INFO, AlertStream, GatewayTestCase, authorized_request,
                             make_config, users_and_devices)

DURATION = 12  # seconds of load; every loop also has a count cap
USERS = [("admin", "Admin12345", "cam-1", {}),
         ("slow", "Slow123456", "slow-cam", {"profile": "profiles/slow.json"}),
         ("quiet", "Quiet12345", "quiet-cam", {"profile": "profiles/quiet.json"})]
SILENT = "/KORVA/PTZCtrl/channels"
TRIGGER = ("/KORVA/System/IO/outputs/1/trigger",
           "<IOPortData><outputState>high</outputState></IOPortData>")


class StressTest(GatewayTestCase):

    config = make_config(**users_and_devices(*USERS))
    profiles = {"slow": {"latencyMs": 300}, "quiet": {"silent": ["GET " + SILENT]}}

    def metric(self, name):
        text = requests.get(self.gateway.admin_base + "/metrics", timeout=10).text
        return int(re.search(r"^%s (\d+)$" % re.escape(name), text, re.M).group(1))

    def run_all(self, workers):
        """Runs each (function, count cap) in its own thread until the deadline; the exceptions
        they raised, as text."""
        deadline, errors, self.rounds = time.monotonic() + DURATION, [], collections.Counter()

        def loop(work, cap, seed):
            rng = random.Random(seed)
            try:
                for _ in range(cap):
                    if time.monotonic() >= deadline:
                        return
                    work(rng)
                    self.rounds[work.__name__] += 1
            except Exception as error:  # noqa: BLE001 - reported by the test
                errors.append("%s: %r" % (work.__name__, error))

        threads = [threading.Thread(target=loop, args=(w, cap, i), daemon=True)
                   for i, (w, cap) in enumerate(workers)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(max(1, deadline + 30 - time.monotonic()))
            self.assertFalse(thread.is_alive(), "a load thread did not finish")
        return errors

    def test_everything_at_once_then_counts_return_to_zero_and_it_stops_cleanly(self):
        gateway, statuses, local, opened = self.gateway, [], threading.local(), []

        def session(user):
            """This thread's keep-alive session of the user."""
            if not hasattr(local, "sessions"):
                local.sessions = {u: gateway.session(u, p) for u, p, _, _ in USERS}
                opened.extend(local.sessions.values())
            return local.sessions[user]

        def keep_alive(rng):
            user = rng.choice(USERS)[0]
            if rng.random() < 0.7:
                answer = session(user).get(gateway.url(DEVICE_INFO), timeout=30)
            else:
                answer = session(user).put(gateway.url(TRIGGER[0]), data=TRIGGER[1], timeout=30)
            statuses.append(answer.status_code)

        def departed(rng):
            user, password, _, _ = rng.choice(USERS)
            path = SILENT if user == "quiet" else DEVICE_INFO
            sock = authorized_request(gateway, "GET", path, user, password)
            time.sleep(rng.choice([0, 0, 0.05, 0.4]))
            sock.close()

        def stream(rng):
            user, password, _, _ = rng.choice(USERS)
            alert = AlertStream(gateway, user, password)
            # quiet-cam gets no alarms, so its streams get heartbeats after 5 s
            end = time.monotonic() + (7 if user == "quiet" else rng.choice([0, 0.5, 2]))
            try:
                alert.sock.settimeout(6)
                while time.monotonic() < end and alert.sock.recv(rng.choice([64, 4096])):
                    time.sleep(rng.uniform(0, 1))  # a slow reader
            except OSError:
                pass
            finally:
                alert.close()

        def alarm(rng):
            device = rng.choice(USERS[:2])[2]
            body = '{"EventNotificationAlert": {"devIndex": "%s", "eventType": "VMD"}}' % device
            status, answer = gateway.admin("POST", "/admin/alarms", body)
            self.assertIn(status, (202, 503), answer)
            time.sleep(rng.uniform(0, 0.05))

        def chaos(rng):
            time.sleep(rng.uniform(0.5, 2))
            if rng.random() < 0.2:
                self.assertEqual(gateway.admin("POST", "/admin/alarm-bus/reset")[0], 200)
                return
            device = rng.choice(USERS)[2]
            self.assertEqual(gateway.admin("POST", "/admin/devices/%s/detach" % device)[0], 200)
            time.sleep(rng.uniform(0, 0.5))
            self.assertEqual(gateway.admin("POST", "/admin/devices/%s/attach" % device)[0], 200)

        def silent_timeout(rng):
            answer = session("quiet").get(gateway.url(SILENT), timeout=30)
            statuses.append(answer.status_code)

        errors = self.run_all([(keep_alive, 400), (keep_alive, 400), (departed, 300),
                               (stream, 40), (stream, 40), (stream, 40), (alarm, 500),
                               (chaos, 30), (silent_timeout, 1)])
        for each in opened:
            each.close()
        print("rounds:", dict(self.rounds), "statuses:", dict(collections.Counter(statuses)))
        self.assertEqual(errors, [])
        self.assertGreater(len(statuses), 20)
        # 500 is a detached device, 503 a silent one or a relay bound; nothing else.
        self.assertLessEqual(set(statuses), {200, 500, 503})

        for name in ("korva_stream_parts_delivered_total", "korva_stream_bytes_delivered_total"):
            self.assertGreater(self.metric(name), 0, name)
        for _, _, device, _ in USERS:  # every device back, whatever the last chaos step was
            self.assertEqual(gateway.admin("POST", "/admin/devices/%s/attach" % device)[0], 200)
        start = time.monotonic()
        self.assertEqual(gateway.get(DEVICE_INFO).status_code, 200)
        self.assertLess(time.monotonic() - start, 3)

        def streams():
            return self.metric("korva_open_streams"), gateway.state()["connections"]["streams"]
        self.assertTrue(gateway.wait_for(lambda: streams() == (0, 0), timeout=5), streams())
        self.assertTrue(gateway.wait_for(
            lambda: self.metric("korva_relays_outstanding") == 0, timeout=12))

        start = time.monotonic()
        code, _ = gateway.stop(timeout=30)
        self.assertEqual(code, 0)
        self.assertLess(time.monotonic() - start, 5)
