#!/usr/bin/env python3
"""Compares queries of a file on a server with those of the same local file: bench/remote.py FILE.vxl

The server is nginx (scripts/dependencies.sh --all) on the loopback address. A proxy delays each request by 50 ms. The
programs are those of build/release, or of the folder VX_PROGRAMS. For each query, prints the seconds of both, the bytes
that the local run reads, the bytes that the server sends, and the requests.
"""

import asyncio
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time

DELAY = 0.05  # seconds
PROGRAMS = pathlib.Path(os.environ.get("VX_PROGRAMS", "build/release"))


def find_nginx():
    cache = os.environ.get("XDG_CACHE_HOME", os.path.expanduser("~/.cache"))
    return shutil.which("nginx", path=f"{cache}/vxunpack/nginx/usr/sbin:/usr/sbin:{os.environ['PATH']}")


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def serve(folder, port):
    config = folder / "nginx.conf"
    config.write_text(f"""
        daemon off; pid {folder}/pid; error_log {folder}/error.log; worker_processes 1;
        events {{ worker_connections 256; }}
        http {{ access_log off; client_body_temp_path t; proxy_temp_path t; fastcgi_temp_path t; uwsgi_temp_path t;
               scgi_temp_path t; server {{ listen 127.0.0.1:{port}; root {folder}; }} }}""")
    return subprocess.Popen([find_nginx(), "-e", folder / "error.log", "-c", config, "-p", folder])


async def delay(listen, target):
    async def pump(reader, writer):
        try:
            while data := await reader.read(1 << 18):
                writer.write(data)
                await writer.drain()
        finally:
            writer.close()

    async def handle(reader, writer):
        upstream, to_server = await asyncio.open_connection("127.0.0.1", target)
        answers = asyncio.create_task(pump(upstream, writer))
        try:
            while True:
                request = await reader.readuntil(b"\r\n\r\n")
                await asyncio.sleep(DELAY)
                to_server.write(request)
        except (asyncio.IncompleteReadError, ConnectionError):
            to_server.close()
        await asyncio.gather(answers, return_exceptions=True)

    async with await asyncio.start_server(handle, "127.0.0.1", listen, limit=1 << 20) as proxy:
        await proxy.serve_forever()


def run(*command):
    """Seconds, bytes that system calls read, and what was printed on standard error."""
    begin = time.perf_counter()
    with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as process:
        printed = process.stderr.read().decode()
        os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT)
        seconds = time.perf_counter() - begin
        io = pathlib.Path(f"/proc/{process.pid}/io").read_text()
    return seconds, int(re.search(r"rchar: (\d+)", io)[1]), printed


def main():
    file = pathlib.Path(sys.argv[1]).resolve()
    report = subprocess.run([PROGRAMS / "vxinfo", file], check=True, capture_output=True, text=True).stdout
    low, high = (list(map(float, re.search(name + r":\s+(\S+) (\S+) ", report).groups()))
                 for name in ("Bounds Min", "Bounds Max"))
    middle = [(a + b) / 2 for a, b in zip(low, high)]
    half = [(b - a) / 20 for a, b in zip(low, high)]  # a tenth of each side
    box = [str(v) for m, h in zip(middle, half) for v in (m - h, m + h)] + ["-inf", "+inf"]
    queries = {
        "vxinfo": ["vxinfo", "-i"],
        "window of 1 %": ["vxunpack", "-o", "null", "-c", *box, "-i"],
        "1 point in 64": ["vxunpack", "-o", "null", "-s", "64", "-i"],
        "1 point in 8": ["vxunpack", "-o", "null", "-s", "8", "-i"],
        "x, y, z": ["vxunpack", "-o", "null", "-ofld", "xyz", "-i"],
        "all": ["vxunpack", "-o", "null", "-i"],
    }
    port, proxied = free_port(), free_port()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        folder.chmod(0o755)
        (folder / file.name).symlink_to(file)
        server = serve(folder, port)
        threading.Thread(target=lambda: asyncio.run(delay(proxied, port)), daemon=True).start()
        time.sleep(0.5)
        try:
            print(f"{'query':<14} {'local s':>8} {'remote s':>9} {'local bytes':>12} {'received':>12} {'requests':>9}")
            for title, (program, *options) in queries.items():
                local, read, _ = run(PROGRAMS / program, *options, file, "-V")
                remote, _, printed = run(PROGRAMS / program, *options, f"http://127.0.0.1:{proxied}/{file.name}", "-V")
                requests, received = re.search(r"remote: (\d+) requests, (\d+) bytes", printed).groups()
                print(f"{title:<14} {local:8.2f} {remote:9.2f} {read:12,} {int(received):12,} {requests:>9}")
        finally:
            server.terminate()
            server.wait()


if __name__ == "__main__":
    main()
