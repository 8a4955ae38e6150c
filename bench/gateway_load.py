#!/usr/bin/python3
"""Load on a running korva-gateway: authenticated GETs over keep-alive connections.

Each connection takes one digest challenge, then sends requests back to back, answering the
same nonce with a rising nonce count. Prints requests per second and latency percentiles, and
the gateway's own relay latency histogram from /metrics.

  bench/gateway_load.py --url http://127.0.0.1:8080 --admin http://127.0.0.1:8081 \
      --user admin --password Admin12345 --connections 32 --seconds 10
"""

import argparse
import asyncio
import hashlib
import re
import time
import urllib.parse
import urllib.request


def authorization(challenge, method, uri, user, password, nc):
    fields = dict(re.findall(r'(\w+)="?([^",]*)"?', challenge))
    algorithm = fields.get("algorithm", "MD5")
    digest = hashlib.sha256 if algorithm.upper().startswith("SHA-256") else hashlib.md5

    def h(text):
        return digest(text.encode()).hexdigest()

    count = "%08x" % nc
    response = h("%s:%s:%s:%s:auth:%s" % (h("%s:%s:%s" % (user, fields["realm"], password)),
                                          fields["nonce"], count, "b3nch", h(method + ":" + uri)))
    value = ('Digest username="%s", realm="%s", nonce="%s", uri="%s", qop=auth, nc=%s, '
             'cnonce="b3nch", response="%s"' % (user, fields["realm"], fields["nonce"], uri,
                                               count, response))
    return value + (", algorithm=" + algorithm if "algorithm" in fields else "")


async def read_answer(reader):
    head = await reader.readuntil(b"\r\n\r\n")
    headers = {}
    for line in head.decode("latin-1").split("\r\n")[1:]:
        name, _, value = line.partition(":")
        headers[name.strip().lower()] = value.strip()
    await reader.readexactly(int(headers.get("content-length", "0")))
    return int(head.split(b" ")[1]), headers


async def connection(args, host, port, deadline, latencies, statuses):
    reader, writer = await asyncio.open_connection(host, port)
    request = "GET %s HTTP/1.1\r\nHost: %s\r\n%s\r\n"
    writer.write((request % (args.path, host, "")).encode())
    status, headers = await read_answer(reader)
    challenge = headers.get("www-authenticate", "")
    nc = 0
    while time.monotonic() < deadline:
        nc += 1
        line = "Authorization: %s\r\n" % authorization(challenge, "GET", args.path, args.user,
                                                        args.password, nc)
        start = time.monotonic()
        writer.write((request % (args.path, host, line)).encode())
        status, _ = await read_answer(reader)
        latencies.append(time.monotonic() - start)
        statuses[status] = statuses.get(status, 0) + 1
    writer.close()


def percentile(values, fraction):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(len(ordered) * fraction))] if ordered else 0.0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--url", default="http://127.0.0.1:8080")
    parser.add_argument("--admin", default="http://127.0.0.1:8081")
    parser.add_argument("--user", default="admin")
    parser.add_argument("--password", required=True)
    parser.add_argument("--path", default="/KORVA/System/deviceInfo")
    parser.add_argument("--connections", type=int, default=32)
    parser.add_argument("--seconds", type=float, default=10)
    args = parser.parse_args()
    url = urllib.parse.urlparse(args.url)
    latencies, statuses = [], {}

    async def run():
        deadline = time.monotonic() + args.seconds
        await asyncio.gather(*(connection(args, url.hostname, url.port, deadline, latencies,
                                          statuses) for _ in range(args.connections)))

    start = time.monotonic()
    asyncio.run(run())
    elapsed = time.monotonic() - start
    print("requests: %d in %.1f s = %.0f/s, statuses %s" % (len(latencies), elapsed,
                                                           len(latencies) / elapsed, statuses))
    print("client latency ms: p50 %.2f  p90 %.2f  p99 %.2f  max %.2f" % tuple(
        1000 * percentile(latencies, f) for f in (0.5, 0.9, 0.99, 1.0)))
    metrics = urllib.request.urlopen(args.admin + "/metrics", timeout=10).read().decode()
    for line in metrics.splitlines():
        if line.startswith("korva_relay_latency_seconds"):
            print(line)


if __name__ == "__main__":
    main()
