"""ejabberd as the broker, one node or a cluster: children of the caller, on free loopback ports, epmd too."""

import contextlib
import glob
import os
import subprocess

from harness import await_that, end, free_port, scaled

CONFIGURATION = """hosts: [localhost]
auth_method: [internal]
listen: [{{port: {port}, ip: "127.0.0.1", module: mod_mqtt, backlog: 1000}}]
modules: {{mod_mqtt: {{access_publish: {{"#": [{{allow: all}}]}}, access_subscribe: {{"#": [{{allow: all}}]}}}}}}
"""


class Node:
    def __init__(self, name, home, environment):
        self.name, self.home, self.port = f"{name}@localhost", home, free_port()
        home.mkdir()
        (home / "ejabberd.yml").write_text(CONFIGURATION.format(port=self.port))
        self.env = {**environment, "HOME": home, "EJABBERD_CONFIG_PATH": home / "ejabberd.yml",
                    "EJABBERD_LOG_PATH": home / "ejabberd.log"}
        self.process = self.erlang(subprocess.Popen, self.name, "-mnesia", "dir", f'"{home}"', "-s", "ejabberd")

    def erlang(self, run, name, *words, **more):
        return run(["erl", "-sname", name, "-setcookie", "bench", "-start_epmd", "false", "-noinput", "-kernel",
                    "inet_dist_use_interface", "{127,0,0,1}", *words], cwd=self.home, env=self.env,
                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT, **more)

    def control(self, *words):
        asking = f"ask{os.urandom(8).hex()}@localhost", "-hidden", "-s", "ejabberd_ctl", "-extra", self.name, *words
        await_that(lambda: self.erlang(subprocess.run, *asking, timeout=scaled(30)).returncode == 0, words, 60)


class Cluster:
    """`settings` are what a client or a unit needs, beside the port of a node."""

    def __init__(self, directory, nodes):
        self.names_port, self.nodes, password = free_port(), [], directory / "password"
        password.touch(0o600)
        password.write_text("only-on-loopback")
        self.settings = {"username": "bench@localhost", "password_file": password}
        env = {"PATH": os.environ["PATH"], "ERL_LIBS": glob.glob("/usr/lib/*/ejabberd-*/..")[0],
               "ERL_EPMD_PORT": str(self.names_port), "ERL_EPMD_ADDRESS": "127.0.0.1"}
        with contextlib.ExitStack() as started:
            started.callback(end, subprocess.Popen(["epmd"], env=env))
            for number in range(nodes):
                self.nodes.append(Node(f"node{number}", directory / f"node{number}", env))
                started.callback(end, self.nodes[-1].process)
                self.nodes[-1].control("status")
            for node in self.nodes[1:]:
                node.control("join_cluster", self.nodes[0].name)
            self.nodes[0].control("register", "bench", "localhost", password.read_text())
            self.stop = started.pop_all().close

    def processes(self):
        """What runs of all that was started, by its surroundings."""
        return subprocess.run(["grep", "-las", f"ERL_EPMD_PORT={self.names_port}", *glob.glob("/proc/[0-9]*/environ")],
                              stdout=subprocess.PIPE).stdout
