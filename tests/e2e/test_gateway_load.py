"""korva-gateway under load on loopback, bounded in time: many concurrent keep-alive
connections, and a silent device that never blocks the requests of other devices."""

import asyncio
import concurrent.futures
import resource
import time
import unittest

from gateway_fixture import DEVICE_INFO, GatewayTestCase, make_config, users_and_devices

CONNECTIONS = 1000


class ManyConnectionsTest(GatewayTestCase):

    config = make_config(limits={"maxConnectionsPerClient": CONNECTIONS})

    @classmethod
    def setUpClass(cls):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        wanted = min(hard, max(soft, CONNECTIONS * 2 + 256))
        resource.setrlimit(resource.RLIMIT_NOFILE, (wanted, hard))
        if wanted < CONNECTIONS * 2 + 64:
            raise unittest.SkipTest("open file limit too low for %d connections" % CONNECTIONS)
        super().setUpClass()

    def test_a_thousand_concurrent_keep_alive_connections_are_served(self):
        opened = asyncio.Event()
        counter = [0]

        async def client(index):
            reader, writer = await asyncio.open_connection("127.0.0.1", self.gateway.port)
            counter[0] += 1
            if counter[0] == CONNECTIONS:
                opened.set()
            await asyncio.wait_for(opened.wait(), 60)  # all connections exist at once
            statuses = []
            for path in ["/not/handled/%d" % index, DEVICE_INFO]:
                writer.write(("GET %s HTTP/1.1\r\nHost: x\r\n\r\n" % path).encode())
                await writer.drain()
                head = await reader.readuntil(b"\r\n\r\n")
                length = [int(l.split(b":")[1]) for l in head.split(b"\r\n")
                          if l.lower().startswith(b"content-length:")]
                await reader.readexactly(length[0] if length else 0)
                statuses.append(int(head.split(b" ")[1]))
            writer.close()
            await writer.wait_closed()
            return statuses

        async def run():
            return await asyncio.wait_for(
                asyncio.gather(*(client(i) for i in range(CONNECTIONS))), 120)

        self.assertEqual(asyncio.run(run()), [[403, 401]] * CONNECTIONS)
        self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 0, 30))


class SilentDeviceTest(GatewayTestCase):

    config = make_config(**users_and_devices(("admin", "Admin12345", "cam-1", {}),
                                             ("quiet", "Quiet12345", "quiet-cam",
                                              {"profile": "profiles/quiet.json"})))

    profiles = {"quiet": {"silent": ["GET " + DEVICE_INFO]}}

    def test_silent_device_answers_503_after_the_timeout_without_blocking_others(self):
        with concurrent.futures.ThreadPoolExecutor(max_workers=24) as pool:
            start = time.monotonic()
            silent = [pool.submit(self.gateway.get, DEVICE_INFO, "quiet", "Quiet12345")
                      for _ in range(8)]
            time.sleep(0.3)
            others_start = time.monotonic()
            others = [pool.submit(self.gateway.get, DEVICE_INFO) for _ in range(40)]
            self.assertEqual([f.result().status_code for f in others], [200] * 40)
            self.assertLess(time.monotonic() - others_start, 5, "working device held up")
            answers = [f.result() for f in silent]
            elapsed = time.monotonic() - start
        for answer in answers:
            self.assertEqual(answer.status_code, 503)
            self.assertIn("<subStatusCode>deviceBusy</subStatusCode>", answer.text)
        self.assertTrue(9 < elapsed < 30, elapsed)

