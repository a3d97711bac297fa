"""ejabberd as the broker, one node or a cluster: children of the caller, on free loopback ports, epmd too."""

import contextlib
import glob
import os
import subprocess

from harness import Broker, await_that, end, free_port, scaled

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
        # A node that is asked before it has started up may hang, and who asks with it.
        await_that(lambda: Broker.accepts(self), f"{self.name} listens", 90)
        assert self.erlang(subprocess.run, *asking, timeout=scaled(90)).returncode == 0, words


class Cluster:
    """`settings` are what a client or a unit needs, beside the port of a node; `port` is the name service's."""

    def __init__(self, directory, nodes):
        self.port, self.nodes, password = free_port(), [], directory / "password"
        password.touch(0o600)
        password.write_text("only-on-loopback")
        self.settings = {"username": "bench@localhost", "password_file": password}
        env = {"PATH": os.environ["PATH"], "ERL_LIBS": glob.glob("/usr/lib/*/ejabberd-*/..")[0],
               "ERL_EPMD_PORT": str(self.port), "ERL_EPMD_ADDRESS": "127.0.0.1"}
        with contextlib.ExitStack() as started:
            started.callback(end, subprocess.Popen(["epmd"], env=env, stderr=subprocess.DEVNULL))
            await_that(lambda: Broker.accepts(self), "epmd listens: a node ends without it")
            for number in range(nodes):
                self.nodes.append(Node(f"node{number}", directory / f"node{number}", env))
                started.callback(self.nodes[-1].process.wait)
                started.callback(self.nodes[-1].process.kill)
                self.nodes[-1].control("status")
            for node in self.nodes[1:]:
                node.control("join_cluster", self.nodes[0].name)
            self.nodes[-1].control("register", "bench", "localhost", password.read_text())
            self.stop = started.pop_all().close

    def processes(self):
        """What runs of all that was started, by its surroundings."""
        return subprocess.run(["grep", "-las", f"ERL_EPMD_PORT={self.port}", *glob.glob("/proc/[0-9]*/environ")],
                              stdout=subprocess.PIPE).stdout
