"""korva-gateway under load on loopback, bounded in time: many concurrent keep-alive
connections, and a silent device that never blocks the requests of other devices."""

import asyncio
import concurrent.futures
import resource
import time
import unittest

from gateway_fixture import GatewayTestCase, make_config

DEVICE_INFO = "/KORVA/System/deviceInfo"
CONNECTIONS = 1000


def raise_open_file_limit():
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    wanted = min(hard, max(soft, CONNECTIONS * 2 + 256))
    resource.setrlimit(resource.RLIMIT_NOFILE, (wanted, hard))
    return wanted


async def read_answer(reader):
    head = await reader.readuntil(b"\r\n\r\n")
    length = 0
    for line in head.split(b"\r\n"):
        if line.lower().startswith(b"content-length:"):
            length = int(line.split(b":")[1])
    body = await reader.readexactly(length)
    return int(head.split(b" ")[1]), body


class ManyConnectionsTest(GatewayTestCase):

    @classmethod
    def setUpClass(cls):
        if raise_open_file_limit() < CONNECTIONS * 2 + 64:
            raise unittest.SkipTest("open file limit too low for %d connections" % CONNECTIONS)
        super().setUpClass()

    def test_a_thousand_concurrent_keep_alive_connections_are_served(self):
        port = self.gateway.port
        opened = asyncio.Event()
        counter = {"open": 0}

        async def client(index):
            reader, writer = await asyncio.open_connection("127.0.0.1", port)
            counter["open"] += 1
            if counter["open"] == CONNECTIONS:
                opened.set()
            await asyncio.wait_for(opened.wait(), 60)  # all connections exist at once
            statuses = []
            for path in ["/not/handled/%d" % index, DEVICE_INFO]:
                writer.write(("GET %s HTTP/1.1\r\nHost: x\r\n\r\n" % path).encode())
                await writer.drain()
                statuses.append((await read_answer(reader))[0])
            writer.close()
            await writer.wait_closed()
            return statuses

        async def run():
            return await asyncio.wait_for(
                asyncio.gather(*(client(i) for i in range(CONNECTIONS))), 120)

        start = time.monotonic()
        results = asyncio.run(run())
        self.assertEqual(results, [[403, 401]] * CONNECTIONS)
        self.assertLess(time.monotonic() - start, 120)
        self.assertTrue(self.gateway.wait_for(lambda: self.gateway.open_connections() == 0, 30))


class SilentDeviceTest(GatewayTestCase):

    @classmethod
    def config(cls):
        return make_config(
            users=[{"name": "admin", "password": "Admin12345", "device": "cam-1"},
                   {"name": "quiet", "password": "Quiet12345", "device": "quiet-cam"}],
            devices=[{"devIndex": "cam-1"},
                     {"devIndex": "quiet-cam", "profile": "profiles/quiet.json"}])

    @classmethod
    def profiles(cls):
        return {"quiet": {"silent": ["GET /KORVA/System/deviceInfo"]}}

    def test_silent_device_answers_503_after_the_timeout_without_blocking_others(self):
        with concurrent.futures.ThreadPoolExecutor(max_workers=24) as pool:
            start = time.monotonic()
            silent = [pool.submit(self.gateway.get, DEVICE_INFO, "quiet", "Quiet12345")
                      for _ in range(8)]
            time.sleep(0.3)
            others_start = time.monotonic()
            others = [pool.submit(self.gateway.get, DEVICE_INFO) for _ in range(40)]
            statuses = [f.result().status_code for f in others]
            others_took = time.monotonic() - others_start
            self.assertEqual(statuses, [200] * 40)
            self.assertLess(others_took, 5, "requests to a working device were held up")
            answers = [f.result() for f in silent]
            elapsed = time.monotonic() - start
        for answer in answers:
            self.assertEqual(answer.status_code, 503)
            self.assertIn("<subStatusCode>deviceBusy</subStatusCode>", answer.text)
        self.assertGreater(elapsed, 9)
        self.assertLess(elapsed, 30)


if __name__ == "__main__":
    unittest.main()
