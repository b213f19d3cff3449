"""A simulated device, on which an update can run again and again, and a web server on loopback for the files of a release."""

import json
import os
import pathlib
import shutil
import socket
import subprocess

from .pairs import Cost, run

LEB = 126976  # bytes of an erase block in the simulator
HERE = pathlib.Path(__file__).resolve().parent

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


class Device:
    """A device with the programs that it runs in /app0, so that nothing of the host's /tmp must be visible.

    `room` is the bytes of one set's images.
    """

    def __init__(self, build, state, keys, room):
        self.sim = build / "rovu-sim"
        self.state = pathlib.Path(state)
        lebs = 2 * room // LEB + 256
        run([self.sim, "init", state, "--host-tools", "--lebs", str(lebs), "--key", keys.public, "--preshared", keys.secrets])
        for program in (build / "rovu", HERE / "measured.py", HERE.parent / "by_hand/update"):
            shutil.copy(program, self.state / "app0")

    def update(self, command, watch=False):
        """Runs a program of /app0 that updates the device, and boots the new set.

        Long waits take no time, whoever waits. Returns what measured.py writes.
        """
        measured = ["/usr/bin/python3", "/app0/measured.py"] + (["--watch"] if watch else []) + ["/app0/result"]
        run([self.sim, "run", self.state, "--no-wait", "--network", "--", *measured, *command])
        run([self.sim, "restart", self.state])
        return json.loads((self.state / "app0/result").read_text())

    def cost_of_update(self, command):
        result = self.update(command)
        return Cost(result["wall"], result["processor"])

    def holds(self, active_set, source):
        """Whether the volumes of a set hold the release's images."""
        for kind, suffix in (("kernel", ""), ("rootfs", "_root")):
            if kind not in source.images:
                continue
            copy = self.state / "volume"
            run([self.sim, "volume", "get", self.state, f"k{active_set}{suffix}", copy])
            same = copy.read_bytes() == (source.folder / f"{kind}.img").read_bytes()
            copy.unlink()
            if not same:
                return False
        return True


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
