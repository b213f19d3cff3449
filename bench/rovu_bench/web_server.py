"""A web server on loopback, for the files of a release."""

import pathlib
import socket
import subprocess
import time

CONFIGURATION = """
daemon off; user root; worker_processes 1; error_log error.log; pid nginx.pid;
events {{ }}
http {{
    access_log off; sendfile on;
    client_body_temp_path temp; proxy_temp_path temp; fastcgi_temp_path temp;
    uwsgi_temp_path temp; scgi_temp_path temp;
    server {{ listen 127.0.0.1:{port}; root "{root}"; }}
}}
"""


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def answers(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


class WebServer:
    """nginx, for the time of a `with` block."""

    def __init__(self, home, root):
        self.home = pathlib.Path(home)
        self.root = root
        self.port = free_port()
        self.url = f"http://127.0.0.1:{self.port}"
        self.nginx = None

    def __enter__(self):
        self.home.mkdir()
        configuration = self.home / "nginx.conf"
        configuration.write_text(CONFIGURATION.format(port=self.port, root=self.root))
        self.nginx = subprocess.Popen(["nginx", "-p", self.home, "-e", "error.log", "-c", configuration])
        while not answers(self.port):
            if self.nginx.poll() is not None:
                raise SystemExit(f"bench/run: nginx does not start: {(self.home / 'error.log').read_text()}")
            time.sleep(0.05)
        return self

    def __exit__(self, *_):
        self.nginx.terminate()
        self.nginx.wait()
