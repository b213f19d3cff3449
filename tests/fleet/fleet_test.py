"""The playbooks of the fleet, on simulated devices with real SSH servers.

usage: fleet_test.py BUILD SCRATCH [unittest options]
"""

import hashlib
import json
import os
import pathlib
import shlex
import shutil
import signal
import socket
import subprocess
import sys
import time
import unittest

FLEET = pathlib.Path(__file__).resolve().parent.parent.parent / "fleet"
sys.path.insert(0, str(FLEET))
from rovu_fleet.link import parse, script_text  # noqa: E402

BUILD = SCRATCH = None
CONTROL_PATHS = f"/tmp/rovu-fleet-test.{os.getpid()}"  # a control socket's path must be short
SHARES = ("rovu_max_fail", "rovu_max_fell_back", "rovu_max_unreachable")
LIMITS = ("rovu_link_limit", "rovu_restart_limit", "rovu_look_limit")  # seconds

KNOWN_HOSTS = """-o 'UserKnownHostsFile="{}/known_hosts"'"""

# What stands in a URL must not reach the device's shell.
FOLDER = "it's;$(id)"

MANIFEST = """{ version = 1, hardware = 'mast-4,cellar-2,roof-1', clone_overlay = 1,
  { type = 'kernel', update = 'mandatory', version = '2.0', image = 'k.img', preinst = 'before.sh' },
  { type = 'rootfs', update = 'mandatory', version = '2.0', image = 'r.img' },
}
"""

# In place of the device's program: an update that has ended.
PROGRAM = """#!/bin/sh
mkdir /tmp/rovu && echo spec >/tmp/rovu/rovu.lua
printf '"STATE":"complete",\\n"DL_PERCENT":"45",\\n' >/tmp/rovu.progress
echo "$@"
exit 3
"""

# Its paths are relative to the folder of the world, whose path may have spaces.
SERVER = """user root; pid nginx.pid; error_log error.log; events {{}}
http {{ access_log off; client_body_temp_path t; proxy_temp_path t; fastcgi_temp_path t; uwsgi_temp_path t; scgi_temp_path t;
server {{ listen 127.0.0.1:{port}; root www; limit_rate {rate}; }} }}
"""


class World:
    """An update, its web server and a fleet. Everything is ended by close()."""

    def __init__(self, name, kinds, faults=(), rate="400k", options=()):
        self.home = SCRATCH / name
        shutil.rmtree(self.home, ignore_errors=True)
        (self.home / "source").mkdir(parents=True)
        self.fleet = self.home / "fleet"
        self.fleet.mkdir()
        self.socket = socket.create_server(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        self.make_update()
        self.serve(rate)
        for device, fault in faults:
            with open(self.fleet / f"{device}.fault", "a") as file:
                file.write(fault + "\n")
        words = [str(FLEET / "simulation/devices"), str(self.fleet), "--build", str(BUILD), *options]
        words += ["--key", str(self.home / "keys/rovu_pub.pem")]
        for kind in kinds:
            words += ["--kind", kind]
        self.devices = subprocess.Popen(words, stdout=subprocess.PIPE, text=True)
        if self.devices.stdout.readline() != "ready\n":
            raise RuntimeError("the devices do not answer")

    def close(self):
        self.devices.terminate()
        self.devices.communicate()
        self.stop_serving()
        self.socket.close()
        shutil.rmtree(CONTROL_PATHS, ignore_errors=True)

    def pack(self, *words):
        subprocess.run([str(BUILD / "rovu-pack"), *words], cwd=self.home, check=True, stdout=subprocess.DEVNULL)

    def make_update(self):
        for name, size in (("k.img", 300000), ("r.img", 500000)):
            (self.home / "source" / name).write_bytes(b"version=2.0\n" + os.urandom(size))
        (self.home / "source/before.sh").write_text("while [ -e /tmp/hold ]; do sleep 0.1; done\n")
        (self.home / "source/m.lua").write_text(MANIFEST)
        self.pack("keygen", "keys")
        (self.home / "www").mkdir()
        base = f"http://127.0.0.1:{self.port}"
        self.pack("build", "source/m.lua", "--out", f"www/{FOLDER}", "--key", "keys/private.pem", "--base-url", base)
        # The spec names the tars at the top, and lies in a folder of its own.
        for tar in ("kernel.tar", "rootfs.tar"):
            shutil.move(self.home / "www" / FOLDER / tar, self.home / "www" / tar)
        self.url = f"{base}/{FOLDER}/update.lua"
        self.spec = self.home / "www" / FOLDER / "update.lua"

    def serve(self, rate):
        """Takes the connections to the port, which the socket keeps."""
        (self.home / "nginx.conf").write_text(SERVER.format(port=self.port, rate=rate))
        self.server = subprocess.Popen(
            ["nginx", "-p", str(self.home), "-e", "error.log", "-c", str(self.home / "nginx.conf")],
            env={**os.environ, "NGINX": f"{self.socket.fileno()};"},
            pass_fds=[self.socket.fileno()],
        )

    def stop_serving(self):
        self.server.terminate()
        self.server.wait()

    def hold(self, *hosts):
        """Lets their updates wait before they flash the kernel, until go_on() or a restart."""
        for host in hosts:
            (self.fleet / host / "tmp/hold").touch()

    def go_on(self, *hosts):
        for host in hosts:
            (self.fleet / host / "tmp/hold").unlink()

    def play(self, book, *options, records="records", output=None, **variables):
        """Starts a playbook, as the leader of a process group of its own."""
        settings = {
            "rovu_url": self.url,
            "rovu_spec": str(self.spec),
            "rovu_pub": str(self.home / "keys/rovu_pub.pem"),
            "rovu_pack": str(BUILD / "rovu-pack"),
            "rovu_records": str(self.home / records),
            "rovu_report": str(self.home / f"{records}.html"),
            "rovu_files": str(self.home / "www"),
            "rovu_soak": 0,
            "rovu_poll": 0.5,
            # The one device that never comes back is waited for no longer than it takes.
            **dict.fromkeys(LIMITS, "{{ 15 if inventory_hostname == 'mast-5' else 120 }}"),
            **variables,
        }
        words = ["ansible-playbook", "-i", str(self.fleet / "inventory.yml"), str(FLEET / f"{book}.yml")]
        environment = {**os.environ, "ANSIBLE_CONFIG": str(FLEET / "ansible.cfg"), "ANSIBLE_NOCOLOR": "1"}
        environment["ANSIBLE_SSH_CONTROL_PATH_DIR"] = CONTROL_PATHS
        return subprocess.Popen(
            words + ["-e", json.dumps(settings), *options],
            cwd=FLEET,
            env=environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE if output is None else open(output, "w"),
            stderr=subprocess.STDOUT,
            text=True,
            start_new_session=True,
        )

    def run(self, book, *options, **more):
        """Runs a playbook to its end. Returns its status and what it printed."""
        process = self.play(book, *options, **more)
        said, _ = process.communicate()
        return process.returncode, said

    def recorded(self, value, records="records"):
        """What each device's record has by that name."""
        made = [json.loads(path.read_text()) for path in sorted((self.home / records).glob("*.json"))]
        return {record["host"]: record.get(value) for record in made}

    def outcomes(self, records="records"):
        return self.recorded("outcome", records)

    def record(self, host, records="records"):
        return json.loads((self.home / records / f"{host}.json").read_text())

    def ssh(self, host):
        port = next(line for line in (self.fleet / host / "ssh/sshd_config").read_text().splitlines() if "Port" in line)
        return f"ssh -F none -i {shlex.quote(str(self.fleet / 'operator'))} -p {port.split()[1]} {KNOWN_HOSTS.format(self.fleet)}"

    def switches(self, host):
        """How often the device's boot loader was given another set."""
        calls = (self.fleet / host / "calls.log").read_text()
        return sum(line.split("\t")[-1].startswith("fw_setenv") for line in calls.splitlines())

    def active(self, host):
        return (self.fleet / host / "device").read_text().split("running=")[1].strip()

    def is_in(self, host, state):
        try:
            return f'"{state}"' in (self.fleet / host / "tmp/rovu.progress").read_text()
        except OSError:
            return False


def wait_until(condition, process):
    """For as long as the process runs."""
    while not condition():
        if process.poll() is not None:
            raise AssertionError(f"it did not come:\n{process.stdout.read()}")
        time.sleep(0.05)


class Rollout(unittest.TestCase):
    maxDiff = None

    def test_every_fault_ends_as_it_should_and_hurts_nobody_else(self):
        kinds = ["mast:9:mast-4:1.0:1.0", "cellar:9:cellar-2:1.0:1.0", "roof:4:roof-1:1.5:1.0:--lebs 34"]
        kinds += ["small:1:roof-1:1.0:1.0:--tmp 600K", "attic:1:attic-1:1.0:1.0"]
        faults = [
            ("mast-2", "fail ubiupdatevol:2=exit:4"),
            ("mast-3", "link-cut flashing images"),
            ("mast-4", "power-cut flashing images"),
            ("mast-5", "never-back"),
            ("mast-6", "old-set"),
        ]
        world = World("faults", kinds, faults, rate="4k")
        self.addCleanup(world.close)
        other_key = self.make_other_key(world)
        shutil.copy(other_key, world.fleet / "cellar-2/ssh/rovu_pub.pem")
        (world.fleet / "cellar-3/tmp/rovu").mkdir()
        (world.fleet / "cellar-4/tmp/rovu").mkdir()
        self.start_other_update(world, "cellar-4")

        status, said = world.run("plan")
        self.assertEqual(status, 0, said)
        self.assertIn('"9        mast-4    1.0     1.0     an earlier one  2.0 new      2.0 new      copied     switches"', said)
        self.assertIn("attic-1", said)
        status, said = world.run("rollout", "--check")
        self.assertEqual(status, 0, said)
        self.assertFalse((world.fleet / "mast-1/tmp/rovu.progress").exists())

        # The canary is well, and the second wave has each other kind. Of the third, one fails, and one stays away.
        rollout = world.play("rollout", rovu_waves=[1, 4, 4, "100%"], rovu_max_fell_back=24, rovu_max_fail=25, rovu_soak="1 s")
        wait_until(lambda: world.is_in("mast-1", "downloading images"), rollout)
        world.stop_serving()
        world.serve("400k")
        world.hold("mast-3", "mast-4")
        wait_until(lambda: (world.fleet / "mast-3.fault").read_text() == "", rollout)
        world.go_on("mast-3")
        said, _ = rollout.communicate()
        self.assertNotEqual(rollout.returncode, 0, said)
        for words in ("15 not reached yet", "\nstopped in wave 3: 1 of 4 devices", "mast-5: gone\nto go on: ansible-playbook"):
            self.assertIn(words, said)
        outcomes = {"mast-1": "updated", "mast-2": "failed", "mast-3": "updated", "mast-4": "updated", "mast-5": "gone"}
        outcomes.update({"cellar-1": "updated", "roof-1": "updated", "small-1": "failed", "attic-1": "refused"})
        self.assertEqual(world.outcomes(), outcomes, said)
        attempts = {host: number for host, number in world.recorded("attempts").items() if host.startswith("mast")}
        self.assertEqual(attempts, {"mast-1": 2, "mast-2": 1, "mast-3": 1, "mast-4": 2, "mast-5": 1})

        # With another threshold, to the end: what is done is skipped.
        status, said = world.run("rollout", rovu_waves=["100%"], **dict.fromkeys(SHARES, 100))
        self.assertNotEqual(status, 0, said)
        expected = {f"{kind}-{n}": "updated" for kind, count in (("mast", 9), ("cellar", 9), ("roof", 4)) for n in range(1, count + 1)}
        expected.update({"mast-1": "current", "mast-3": "current", "mast-4": "current", "mast-5": "gone"})
        expected.update({"cellar-1": "current", "roof-1": "current"})
        expected.update({"mast-6": "fell back", "cellar-2": "failed", "cellar-4": "busy"})
        expected.update({"small-1": "failed", "attic-1": "refused"})
        self.assertEqual(world.outcomes(), expected, said)
        for host, outcome in expected.items():
            with self.subTest(host):
                well = outcome in ("updated", "current")
                self.assertEqual(world.switches(host), 2 if host == "mast-6" else 1 if well or host == "mast-5" else 0)
                self.assertEqual(world.active(host), "1" if well else "0")
        self.assertIn("Signature", world.record("cellar-2")["why"])

    @staticmethod
    def make_other_key(world):
        world.pack("keygen", "other")
        return world.home / "other/rovu_pub.pem"

    @staticmethod
    def start_other_update(world, host):
        """A process by the name of the device's program."""
        command = "cd /tmp/rovu && cp /bin/cat rovu && mkfifo f && (./rovu f >/dev/null 2>&1 </dev/null &)"
        subprocess.run([*shlex.split(world.ssh(host)), "root@127.0.0.1", command], check=True, stderr=subprocess.DEVNULL)

    def test_scripts_on_a_device_need_no_more_than_busybox(self):
        device = SCRATCH / "busybox"
        shutil.rmtree(device, ignore_errors=True)
        SCRATCH.mkdir(parents=True, exist_ok=True)
        words = ["--model", "mast-4", "--kernel", "1.0", "--rootfs", "2.0", "--tmp", "64M"]
        subprocess.run([BUILD / "rovu-sim", "init", device, *words], check=True, stdout=subprocess.DEVNULL)
        for name in (".ubiRefChk1", ".ubiRefChk2"):
            (device / "app0" / name).write_text(f"{32 * 'a'}\tk0\n{32 * 'b'} k0_root\n#FLET32:0\n")
        (device / "tmp/rovu").mkdir()
        program = device / "tmp/program"
        program.write_text(PROGRAM)
        program.chmod(0o755)
        own = {"URL": "http://a/u", "DIGEST": "d1", "TOKEN": "t1", "BEFORE": "", "PROGRAM": "/tmp/program", "OPTIONS": "-v -v", "CLEAR": "yes"}
        runs = [("look", {}), ("health", {"COMMAND": "echo ill; exit 3"}), ("start", own), ("follow", {}), ("start", own), ("digests", {}), ("back", {"SET": 1})]
        expected = [
            {"model": "mast-4", "rootfs": "2.0", "active": "0", "bootswitcher": "0A0A00", "references": "agree", "reference.k0": 32 * "a",
             "reference.k0_root": 32 * "b", "tmp": str((64 << 20) - 4096), "leb_size": "126976", "work_directory": "yes"},
            {"health": "3", "log": ["ill"]},
            {"started": "now"},
            {"run_digest": "d1", "run_token": "t1", "run_status": "3", "state": "complete", "percent": "45", "log": ["-v -v http://a/u"],
             "spec": hashlib.md5(b"spec\n").hexdigest()},
            {"started": "before"},
            {"k0": hashlib.md5((device / "ubi/volume.0").read_bytes()).hexdigest()},
            {"switched": "yes"},
        ]
        # The update has ended when it is looked at.
        text = "".join(f"(sleep {int(run[0] == 'follow')}\n{script_text(*run)})\necho\necho\n" for run in runs)
        done = subprocess.run([BUILD / "rovu-sim", "run", device, "--no-wait", "--", "/bin/sh", "-c", text], capture_output=True, text=True, check=False)
        for run, said, values in zip(runs, done.stdout.split("\n\n"), expected, strict=False):
            with self.subTest(run[0]):
                self.assertLessEqual(values.items(), parse(said).items(), done)
        self.assertEqual(done.stderr, "")

    def test_ended_control_machine_and_second_operator_lose_nothing(self):
        # Dropbear and `become` on one device, which can be reached through another one only.
        world = World("resumed", ["mast:4:mast-4:1.0:1.0", "cellar:2:cellar-2:1.0:1.0"], options=["--dropbear", "mast-2"])
        self.addCleanup(world.close)
        jump = f"{world.ssh('mast-1')} -W %h:%p root@127.0.0.1"
        ways = {"ansible_ssh_common_args": f"-F none {KNOWN_HOSTS.format(world.fleet)} -o ProxyCommand={shlex.quote(jump)}"}
        ways.update({"ansible_become": True, "ansible_become_method": "su"})
        (world.fleet / "host_vars").mkdir()
        (world.fleet / "host_vars/mast-2.json").write_text(json.dumps(ways))

        # Ctrl-C lets those that are at work come to their end, and starts no other.
        canaries = ["mast-1", "cellar-1"]
        hosts = [f"mast-{n}" for n in range(2, 5)] + ["cellar-2"]
        world.hold(*canaries, *hosts)
        interrupted = world.play("rollout", rovu_waves=[2, "100%"])
        wait_until(lambda: all(world.is_in(host, "downloading images") for host in canaries), interrupted)
        os.killpg(interrupted.pid, signal.SIGINT)
        world.go_on(*canaries)
        said, _ = interrupted.communicate()
        self.assertEqual(world.outcomes(), dict.fromkeys(canaries, "updated"), said)
        for words in ("2 updated, 4 not reached yet", "\nstopped in wave 1: Ctrl-C was pressed\nto go on: ansible-playbook"):
            self.assertIn(words, said)

        # One of its processes is killed, which ends the control machine.
        killed = world.play("rollout", rovu_waves=["100%"])
        wait_until(lambda: world.is_in("mast-3", "downloading images") and world.record("mast-3").get("attempts"), killed)
        workers = subprocess.run(["pgrep", "-P", str(killed.pid), "ansible-playboo"], capture_output=True, text=True, check=True)
        os.kill(int(workers.stdout.split()[-1]), signal.SIGKILL)
        said, _ = killed.communicate()
        self.assertIn("stopped the playbook was ended amid a wave\nto go on:", said)
        self.assertIn("amid a wave. To go on", (world.home / "records.html").read_text())

        names = ("records", "second")
        both = [world.play("rollout", rovu_waves=["100%"], records=name, rovu_downloads=4) for name in names]
        once = dict.fromkeys(hosts, 1)
        wait_until(lambda: all(once.items() <= world.recorded("attempts", name).items() for name in names), both[0])
        world.go_on(*hosts)
        for operator in both:
            said, _ = operator.communicate()
            self.assertEqual(operator.returncode, 0, said)
        for name in names:
            self.assertLessEqual(once.items(), world.recorded("attempts", name).items())
            self.assertEqual(world.outcomes(name), {**dict.fromkeys(canaries, "current"), **dict.fromkeys(hosts, "updated")})
        hosts += canaries
        for host in hosts:
            with self.subTest(host):
                self.assertEqual(world.switches(host), 1)
                self.assertEqual(world.active(host), "1")

        # Back to the old set, but for one that is not whole any more.
        broken = world.fleet / "mast-3/ubi/volume.0"
        with open(broken, "r+b") as file:
            file.write(b"damaged")
        status, said = world.run("back", rovu_waves=["100%"])
        self.assertEqual(status, 0, said)
        expected = {host: "refused" if host == "mast-3" else "returned" for host in hosts}
        self.assertEqual(world.outcomes(), expected, said)
        # What was brought back stays there, until the operator says otherwise.
        for book, retry, active in (("back", "", "0"), ("rollout", "", "0"), ("rollout", "returned", "1")):
            for host in hosts:
                self.assertEqual(world.active(host), "1" if host == "mast-3" else "0")
            status, said = world.run(book, "-l", "mast-1,mast-3", rovu_waves=["100%"], rovu_retry=retry)
            self.assertEqual(status != 0, (book, retry) == ("rollout", ""), said)
            self.assertEqual(world.active("mast-1"), active)


if __name__ == "__main__":
    BUILD, SCRATCH = (pathlib.Path(word).resolve() for word in sys.argv[1:3])
    del sys.argv[1:3]
    unittest.main(verbosity=2)
