"""Pods of the manifests without a cluster: containers of tests/serve/container.py, each on a
loopback address, and a proxy that stands for a Service. They keep their files in HERE.
"""

import json
import os
import random
import signal
import socket
import subprocess
import threading
from pathlib import Path
from typing import Any, Self

import container
import yaml
from fastcgi import children_of, wait_until

SOURCE = Path(__file__).resolve().parents[2]
FILES = SOURCE / "servers" / "containers"
# A file system that only the tests see.
HERE = Path("/mnt")
# Where nginx listens.
WEB = "127.0.0.1"


def manifest(file: str, kind: str) -> Any:
    for document in yaml.safe_load_all((FILES / file).read_text(encoding="utf-8")):
        if document["kind"] == kind:
            return document
    raise AssertionError(f"{file} has no {kind}")


def pod(file: str) -> Any:
    return manifest(file, "Deployment")["spec"]["template"]["spec"]


def image() -> dict[str, str]:
    """The instructions of the Containerfile."""
    lines = (FILES / "Containerfile").read_text(encoding="utf-8").splitlines()
    return {word: rest for word, _, rest in (line.partition(" ") for line in lines)}


class Process:
    """Process 1 of a container, for a with statement. Its log is what it printed."""

    def __init__(self, name: str, command: list[str], user: int) -> None:
        self.log_file = HERE / f"{name}.log"
        self.log_file.unlink(missing_ok=True)
        with open(self.log_file, "ab") as log:
            # Container runtimes do that, too.
            os.fchown(log.fileno(), user, user)
            self.process = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, cwd="/"
            )

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        if self.process.poll() is None:
            self.signal(signal.SIGKILL)
        self.process.wait(100)

    def signal(self, number: int) -> None:
        for child in children_of(self.process.pid):
            os.kill(child, number)

    def log(self) -> str:
        return self.log_file.read_text(encoding="utf-8", errors="replace")

    def wait_until_ready(self, host: str, port: int) -> None:
        wait_until(
            lambda: container.connects(host, port) or self.process.poll() is not None,
            f"does not listen: {self.log()}",
        )

    def ends_after(self, number: int, seconds: int) -> int:
        """Its status after a signal; fails if it takes longer than Kubernetes would wait."""
        self.signal(number)
        return self.process.wait(seconds)


class Pod(Process):
    """A pod of the Deployment hello, on an address of its own."""

    PORT = pod("hello.yaml")["containers"][0]["ports"][0]["containerPort"]
    STATUS_PORT = pod("hello.yaml")["containers"][0]["ports"][1]["containerPort"]
    GRACE = pod("hello.yaml")["terminationGracePeriodSeconds"]

    def __init__(self, number: int, program: Path | None = None, *more: str) -> None:
        self.host = f"127.0.0.{number}"
        instructions = image()
        source, target = instructions["COPY"].split()
        assert instructions["FROM"] == "scratch"
        assert json.loads(instructions["ENTRYPOINT"]) == [target] == [f"/{source}"]
        context = pod("hello.yaml")["securityContext"]
        user = context["runAsUser"]
        assert instructions["USER"] == f"{user}:{context['runAsGroup']}"
        (volume,) = pod("hello.yaml")["volumes"]
        options = (
            f"--tmp={volume['emptyDir']['sizeLimit'].removesuffix('Mi')}m",
            f"--user={user}",
            f"--name=pod-{number}",
        )
        arguments = [
            argument.replace("0.0.0.0", self.host)
            for argument in pod("hello.yaml")["containers"][0]["args"]
        ]
        # The image's own arguments are a beginning of them.
        assert set(json.loads(instructions["CMD"])) <= set(
            pod("hello.yaml")["containers"][0]["args"]
        )
        command = [*container.command(*options), str(program or HERE / source), *arguments, *more]
        super().__init__(f"pod-{number}", command, user)
        self.wait_until_ready(self.host, self.PORT)


class Web(Process):
    """A pod of the Deployment web. It finds the service hello on 127.0.0.1."""

    PORT = pod("web.yaml")["containers"][0]["ports"][0]["containerPort"]
    GRACE = pod("web.yaml")["terminationGracePeriodSeconds"]

    def __init__(self) -> None:
        user = pod("web.yaml")["securityContext"]["runAsUser"]
        for name, text in manifest("web.yaml", "ConfigMap")["data"].items():
            (HERE / name).write_text(text, encoding="utf-8")
        mounts = pod("web.yaml")["containers"][0]["volumeMounts"]
        command = [
            argument.replace(mounts[0]["mountPath"], str(HERE))
            for argument in pod("web.yaml")["containers"][0]["command"]
        ]
        rights = (
            "--pdeathsig=KILL",
            "--bounding-set=-all",
            "--inh-caps=-all",
            "--no-new-privs",
            "--clear-groups",
        )
        run = [
            "sh",
            "-ec",
            'mount -t tmpfs tarn-tmp /tmp; exec setpriv "$@"',
            "sh",
            *rights,
            f"--reuid={user}",
            f"--regid={user}",
            *command,
        ]
        super().__init__("web", [*container.NAMESPACES, *run], user)
        self.wait_until_ready(WEB, self.PORT)


def copy_bytes(source: socket.socket, target: socket.socket) -> None:
    try:
        while data := source.recv(65536):
            target.sendall(data)
        target.shutdown(socket.SHUT_WR)
    except OSError:
        pass


class Service:
    """The Service hello: passes each connection to one of the pods that are ready."""

    def __init__(self, *pods: Pod) -> None:
        self.connections = {each: 0 for each in pods}
        self.leaving: set[Pod] = set()
        self.lock = threading.Lock()
        self.listener = socket.create_server(("127.0.0.1", Pod.PORT), backlog=100)
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self.listener.shutdown(socket.SHUT_RDWR)
        self.thread.join()
        self.listener.close()

    def add(self, pod: Pod) -> None:
        with self.lock:
            self.connections[pod] = 0

    def remove(self, pod: Pod) -> None:
        """Sends no more connections to a pod, and waits until it has none."""
        with self.lock:
            self.leaving.add(pod)
        wait_until(lambda: self.connections[pod] == 0, "a connection stays")

    def run(self) -> None:
        while True:
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            threading.Thread(target=self.serve, args=[client]).start()

    def serve(self, client: socket.socket) -> None:
        with self.lock:
            pod = random.choice([each for each in self.connections if each not in self.leaving])
            self.connections[pod] += 1
        try:
            with client, socket.create_connection((pod.host, Pod.PORT)) as server:
                back = threading.Thread(target=copy_bytes, args=[server, client])
                back.start()
                copy_bytes(client, server)
                back.join()
        except ConnectionRefusedError:
            pass
        finally:
            with self.lock:
                self.connections[pod] -= 1
