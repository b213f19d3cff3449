"""A web server on loopback, for the files of a release."""

import os
import pathlib
import socket
import subprocess

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


class WebServer:
    """nginx, for the time of a `with` block."""

    def __init__(self, home, root):
        self.home = pathlib.Path(home)
        self.root = root
        self.socket = socket.create_server(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        self.url = f"http://127.0.0.1:{self.port}"
        self.nginx = None

    def __enter__(self):
        self.home.mkdir()
        configuration = self.home / "nginx.conf"
        configuration.write_text(CONFIGURATION.format(port=self.port, root=self.root))
        # It takes the port over, which listens already.
        self.nginx = subprocess.Popen(
            ["nginx", "-p", self.home, "-e", "error.log", "-c", configuration],
            env={**os.environ, "NGINX": f"{self.socket.fileno()};"},
            pass_fds=[self.socket.fileno()],
        )
        self.socket.close()
        return self

    def __exit__(self, *_):
        self.nginx.terminate()
        self.nginx.wait()
