"""HTTP servers on this machine: nginx, and one with faults."""

import http.client
import http.server
import os
import pathlib
import re
import shutil
import socket
import subprocess
import threading
import time

NGINX = """
daemon off; master_process off; pid nginx.pid; error_log error.log;
events {{ worker_connections 64; }}
http {{
  log_format ranges '$uri|$status|$body_bytes_sent|$http_range';
  access_log access.log ranges;
  client_body_temp_path t; proxy_temp_path t; fastcgi_temp_path t; uwsgi_temp_path t; scgi_temp_path t;
  server {{
    listen 127.0.0.1:{port}; root {www};
    location /one/ {{ alias {www}/; max_ranges 1; }}
    location /few/ {{ alias {www}/; max_ranges 200; }}
    location /none/ {{ alias {www}/; max_ranges 0; }}
    location /301/ {{ rewrite ^/301/(.*) /302/$1 permanent; }}
    location /302/ {{ rewrite ^/302/(.*) /$1 redirect; }}
    location /loop/ {{ rewrite ^(.*)$ $1 redirect; }}
    location /denied/ {{ return 403; }}
  }}
}}
"""


def find_nginx() -> str:
    """Installed, or unpacked by scripts/dependencies.sh --all."""
    cache = os.environ.get("XDG_CACHE_HOME", os.path.expanduser("~/.cache"))
    found = shutil.which("nginx", path=f"{cache}/vxunpack/nginx/usr/sbin:/usr/sbin:{os.environ['PATH']}")
    assert found, "scripts/dependencies.sh --all provides nginx"
    return found


class Nginx:
    def __init__(self, www, folder):
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.address = free.getsockname()
        self.url = f"http://127.0.0.1:{self.address[1]}"
        self.folder = folder
        (folder / "nginx.conf").write_text(NGINX.format(port=self.address[1], www=www))
        self.lines = 0

    def __enter__(self):
        self.process = subprocess.Popen([find_nginx(), "-e", "error.log", "-p", f"{self.folder}/", "-c",
                                         "nginx.conf"])
        for _ in range(200):
            with socket.socket() as probe:
                if probe.connect_ex(self.address) == 0:
                    return self
            time.sleep(0.02)
        raise RuntimeError((self.folder / "error.log").read_text())

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()

    def take_log(self) -> list[tuple[str, int, int, str]]:
        """Path, status, bytes and header "Range" of the requests since the last call."""
        marker = f"/marker-{self.lines}"
        connection = http.client.HTTPConnection(*self.address)
        connection.request("GET", marker)
        connection.getresponse().read()
        connection.close()
        log = pathlib.Path(self.folder / "access.log")
        while f"{marker}|404" not in (text := log.read_text()):
            time.sleep(0.01)
        lines = text.splitlines()
        new = [line.split("|") for line in lines[self.lines:]]
        self.lines = len(lines)
        return [(path, int(status), int(size), ranges) for path, status, size, ranges in new if path != marker]


class Answer:
    """An answer to a request for ranges, before it is sent. A fault changes it."""

    def __init__(self, content, ranges, number, headers):
        self.number = number  # of requests for this URL before
        self.requested = headers
        self.status = 206
        self.size = len(content)
        self.headers = {"ETag": '"one"'}
        self.parts = [(first, min(last, len(content) - 1)) for first, last in ranges]
        self.content = content
        self.boundary = "BOUNDARY"
        self.limit = None  # bytes of the body that are sent before the connection is closed
        self.forever = b""  # repeated after the first line of the header
        self.delay = 0  # seconds

    def describe(self, first, last):
        return f"bytes {first}-{last}/{self.size}"

    def get_part(self, first, last):
        return self.content[first:last + 1]

    def make_body(self):
        if self.status != 206:
            return self.content if self.status == 200 else b""
        if len(self.parts) == 1:
            self.headers["Content-Range"] = self.describe(*self.parts[0])
            return self.get_part(*self.parts[0])
        self.headers["Content-Type"] = "multipart/byteranges; boundary=BOUNDARY"
        return b"".join(f"\r\n--{self.boundary}\r\nContent-Range: {self.describe(*part)}\r\n\r\n".encode()
                        + self.get_part(*part) for part in self.parts) + f"\r\n--{self.boundary}--\r\n".encode()


class FaultyServer:
    """Serves the files of a folder at paths that have a fault: a function that changes an answer."""

    def __init__(self, www):
        lock = threading.Lock()
        self.faults = faults = {}  # by path
        self.counts = counts = {}  # index of the last request, by path
        self.happened = happened = set()  # paths whose faults have changed an answer

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_GET(self):
                content = (www / self.path.rsplit("/", 1)[1]).read_bytes()
                ranges = [tuple(map(int, pair)) for pair in re.findall(r"(\d+)-(\d+)", self.headers["Range"])]
                with lock:
                    number = counts[self.path] = counts.get(self.path, -1) + 1
                answer = Answer(content, ranges, number, self.headers)
                usual = vars(answer) | {"headers": dict(answer.headers)}
                try:
                    faults[self.path](answer)
                    if vars(answer) != usual:
                        happened.add(self.path)
                    self.send(answer)
                except OSError:  # the client has seen enough
                    self.close_connection = True

            def send(self, answer):
                time.sleep(answer.delay)
                if answer.forever:
                    self.wfile.write(b"HTTP/1.1 206 Partial Content\r\n")
                while answer.forever:
                    self.wfile.write(1000 * answer.forever)
                body = answer.make_body()
                self.send_response(answer.status)
                for name, value in answer.headers.items():
                    self.send_header(name, value)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body[:answer.limit])
                self.close_connection = answer.limit is not None

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.server.daemon_threads = True
        self.url = f"http://127.0.0.1:{self.server.server_port}"

    def __enter__(self):
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        return self

    def __exit__(self, *_):
        self.server.shutdown()
        self.server.server_close()
