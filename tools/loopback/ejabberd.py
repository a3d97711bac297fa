"""ejabberd as the broker, one node or a cluster: children of the caller, on free loopback ports."""

import contextlib
import glob
import os
import subprocess

from processes import DEMO_UNIT, Broker, await_that, end, free_port, scaled

SHIPPED = (DEMO_UNIT.parent / "broker/ejabberd.yml").read_text()
ACCOUNTS = "4711", "4712", "engineer", "lefty"


class Node:
    def __init__(self, name, home, environment):
        self.name, self.home, self.port = f"{name}@localhost", home, free_port()
        home.mkdir()
        local = SHIPPED.replace("tls: true", 'ip: "127.0.0.1"\n    backlog: 1000')
        config, log = home / "ejabberd.yml", home / "ejabberd.log"
        config.write_text("hosts: [localhost]\n" + local.replace("8883", str(self.port)))
        self.env = {**environment, "HOME": home,
                    "EJABBERD_CONFIG_PATH": config, "EJABBERD_LOG_PATH": log}
        self.process = self.erlang(subprocess.Popen, self.name, "-mnesia", "dir", f'"{home}"',
                                   "-s", "ejabberd")

    def erlang(self, run, name, *words, **more):
        return run(["erl", "-sname", name, "-setcookie", "bench", "-start_epmd", "false",
                    "-noinput", "-kernel", "inet_dist_use_interface", "{127,0,0,1}", *words],
                   cwd=self.home, env=self.env, stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT, **more)

    def control(self, *words):
        ask = [f"ask{os.urandom(8).hex()}@localhost", "-hidden", "-s", "ejabberd_ctl",
               "-extra", self.name, *words]
        # A node that is asked before it has started up may hang, and who asks with it; a little
        # later it refuses.
        await_that(lambda: Broker.accepts(self), f"{self.name} listens", 90)
        await_that(lambda: self.erlang(subprocess.call, *ask, timeout=scaled(90)) == 0, words, 90)


class Cluster:
    """Nodes with the shipped configuration; `port` is their name service's."""

    def __init__(self, directory, nodes):
        self.port, self.nodes, self.password = free_port(), [], directory / "password"
        self.password.touch(0o600)
        self.password.write_text("only-on-loopback")
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
            for account in ACCOUNTS:
                self.nodes[-1].control("register", account, "localhost", self.password.read_text())
            self.stop = started.pop_all().close

    def settings(self, account, unit="4711"):
        """What a client or a unit needs, beside the port of a node."""
        return {"username": f"{account}@localhost", "password_file": self.password,
                "topic_prefix": f"units/{unit}/"}

    def processes(self):
        """What runs of all that was started, by its surroundings."""
        return subprocess.run(["grep", "-las", f"ERL_EPMD_PORT={self.port}",
                               *glob.glob("/proc/[0-9]*/environ")], stdout=subprocess.PIPE).stdout
