"""The image that buildah makes of the Containerfile, in a container of crun, with the arguments of
the manifest and the filter of system calls that podman and CRI-O set by default.

The program in it is one that does what a request says.
"""

import json
import os
import shutil
import signal
import subprocess
import tarfile
import tempfile
import unittest
from pathlib import Path
from types import TracebackType
from typing import Any, Self

import container
import yaml
from fastcgi import Service, children_of, pattern, request, wait_until
from servers.server import free_port

SOURCE = Path(__file__).resolve().parents[2]
PROFILE = Path("/usr/share/containers/seccomp.json")
PROGRAM = "hello"  # in the Containerfile
IMAGE = "registry.example/hello:1"
# crun does not understand a machine with both versions of control groups.
RUN = """
if [ "$(stat -fc %T /sys/fs/cgroup)" != cgroup2fs ]; then
  umount -l /sys/fs/cgroup
  mount -t cgroup2 none /sys/fs/cgroup
fi
exec crun --root "$0/state" --cgroup-manager=disabled run -b "$0/bundle" "$1"
"""


def pod() -> Any:
    text = (SOURCE / "servers/containers/hello.yaml").read_text(encoding="utf-8")
    return next(yaml.safe_load_all(text))["spec"]["template"]["spec"]


def filter_without_capabilities() -> dict[str, Any]:
    """The default profile as a container without capabilities on this processor gets it."""
    profile = json.loads(PROFILE.read_text(encoding="utf-8"))
    processor = {"x86_64": "amd64", "aarch64": "arm64"}.get(os.uname().machine, "")
    calls = []
    for rule in profile["syscalls"]:
        includes, excludes = rule.get("includes") or {}, rule.get("excludes") or {}
        if includes.get("caps") or processor in excludes.get("arches", []):
            continue
        if processor in includes.get("arches", [processor]):
            keys = ("names", "action", "args", "errnoRet")
            calls.append({key: rule[key] for key in keys if rule.get(key)})
    return {
        "defaultAction": profile["defaultAction"],
        "defaultErrnoRet": profile["defaultErrnoRet"],
        "syscalls": calls,
    }


class Image:
    """What a registry would have: the configuration, and the files of each layer."""

    def __init__(self, folder: Path) -> None:
        for name in ("context", "oci"):
            (folder / name).mkdir()
        shutil.copy(SOURCE / "servers/containers/Containerfile", folder / "context")
        shutil.copy(os.environ["STATIC_PROBE"], folder / "context" / PROGRAM)
        policy = folder / "policy.json"
        policy.write_text('{"default": [{"type": "insecureAcceptAnything"}]}', encoding="ascii")
        for command in (
            ("bud", "--isolation=chroot", f"--tag={IMAGE}", str(folder / "context")),
            ("push", f"--signature-policy={policy}", IMAGE, f"oci:{folder / 'oci'}"),
        ):
            storage = (f"--root={folder / 'images'}", f"--runroot={folder / 'run'}")
            subprocess.run(
                ["buildah", "--storage-driver=vfs", *storage, *command],
                check=True,
                stdout=subprocess.DEVNULL,
            )
        self.folder = folder
        index = json.loads((folder / "oci/index.json").read_text(encoding="utf-8"))
        (manifest,) = (json.loads(self.blob(entry).read_text()) for entry in index["manifests"])
        self.config = json.loads(self.blob(manifest["config"]).read_text())["config"]
        self.layers = [self.blob(layer) for layer in manifest["layers"]]

    def blob(self, entry: dict[str, Any]) -> Path:
        return self.folder / "oci/blobs" / entry["digest"].replace(":", "/")

    def files(self) -> list[str]:
        names = []
        for layer in self.layers:
            with tarfile.open(layer) as archive:
                names += archive.getnames()
        return names

    def unpack(self, folder: Path) -> None:
        for layer in self.layers:
            with tarfile.open(layer) as archive:
                archive.extractall(folder)


def configuration(image: Image, arguments: list[str]) -> dict[str, Any]:
    context = pod()["securityContext"]
    kinds = ("bounding", "effective", "permitted", "ambient", "inheritable")
    return {
        "ociVersion": "1.0.0",
        "process": {
            "user": {"uid": context["runAsUser"], "gid": context["runAsGroup"]},
            "args": [*image.config["Entrypoint"], *arguments],
            "env": [*image.config["Env"], "HOSTNAME=pod"],
            "cwd": "/",
            "capabilities": {kind: [] for kind in kinds},
            "noNewPrivileges": True,
        },
        "root": {"path": "rootfs", "readonly": True},
        "hostname": "pod",
        "mounts": [
            {"destination": "/proc", "type": "proc", "source": "proc"},
            {"destination": "/dev", "type": "tmpfs", "source": "tmpfs", "options": ["mode=755"]},
            {"destination": "/tmp", "type": "tmpfs", "source": "tmpfs", "options": ["mode=1777"]},
        ],
        "linux": {
            "namespaces": [{"type": kind} for kind in ("pid", "ipc", "uts", "mount")],
            "maskedPaths": ["/proc/kcore", "/proc/keys", "/proc/timer_list"],
            "readonlyPaths": ["/proc/sys", "/proc/sysrq-trigger"],
            "seccomp": filter_without_capabilities(),
        },
    }


class Container(Service):
    """The probe in a container of crun, for a with statement."""

    def __init__(self, image: Image, *more: str) -> None:
        self.port = free_port()
        self.bundle = tempfile.TemporaryDirectory(prefix="tarn-crun-")
        arguments = [
            argument.replace("0.0.0.0:9000", f"127.0.0.1:{self.port}").replace(
                "0.0.0.0:9001", f"127.0.0.1:{free_port()}"
            )
            for argument in pod()["containers"][0]["args"]
        ]
        root = Path(self.bundle.name, "bundle/rootfs")
        root.mkdir(parents=True)
        image.unpack(root)
        Path(self.bundle.name, "bundle/config.json").write_text(
            json.dumps(configuration(image, [*arguments, *more])), encoding="utf-8"
        )
        name = os.path.basename(self.bundle.name)
        super().__init__(
            self.bundle.name,
            name,
            program=RUN,
            wrapper=("unshare", "--mount", "sh", "-ec"),
            listens=False,
        )

    def __enter__(self) -> Self:
        super().__enter__()
        self.address = ("127.0.0.1", self.port)
        wait_until(
            lambda: container.connects(*self.address) or self.process.poll() is not None,
            "nobody listens",
        )
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.end()
        super().__exit__(kind, error, trace)
        self.bundle.cleanup()

    def end(self) -> None:
        for process in children_of(self.process.pid):
            os.kill(process, signal.SIGTERM)
        self.process.wait(100)

    def status(self) -> dict[str, str]:
        """What /proc says about process 1."""
        (process,) = children_of(self.process.pid)
        lines = Path(f"/proc/{process}/status").read_text(encoding="ascii").splitlines()
        return dict(line.split(":\t", 1) for line in lines)


def setUpModule() -> None:
    if not container.is_allowed():
        raise unittest.SkipTest("mounting is not allowed here")


class Runtime(unittest.TestCase):
    image: Image

    @classmethod
    def setUpClass(cls) -> None:
        cls.image = Image(Path(cls.enterClassContext(tempfile.TemporaryDirectory())))

    def test_gets_an_image_of_one_file(self) -> None:
        self.assertEqual(self.image.files(), [PROGRAM])
        context = pod()["securityContext"]
        self.assertEqual(
            self.image.config["User"], f"{context['runAsUser']}:{context['runAsGroup']}"
        )
        port = pod()["containers"][0]["ports"][0]["containerPort"]
        self.assertEqual(self.image.config["ExposedPorts"], {f"{port}/tcp": {}})
        # Kubernetes replaces these by the manifest's.
        arguments = pod()["containers"][0]["args"]
        self.assertLess(set(self.image.config["Cmd"]), set(arguments))

    def test_runs_the_service_without_rights(self) -> None:
        with Container(self.image) as service:
            status = service.status()
            self.assertEqual(status["NSpid"].split()[-1], "1")
            self.assertEqual(status["Seccomp"], "2")
            self.assertEqual(status["NoNewPrivs"], "1")
            self.assertEqual(status["Uid"].split()[0], str(pod()["securityContext"]["runAsUser"]))
            for kind in ("Inh", "Prm", "Eff", "Bnd", "Amb"):
                self.assertEqual(int(status[f"Cap{kind}"], 16), 0)
            self.assertEqual(service.ask("header&text=Hello").body, b"Hello")
            body = pattern(5 << 20)
            self.assertEqual(service.ask("header&body", body).body, body)

    def test_confines_scripts(self) -> None:
        with Container(self.image, "--confine", "--write=/tmp") as service:
            body = pattern(5 << 20)
            self.assertEqual(service.ask("header&body", body).body, body)
            self.assertEqual(service.ask("header&status").status, 99)
            self.assertIn("/proc/self/status: Permission denied", service.log())

    def test_ends_after_the_running_request(self) -> None:
        with Container(self.image) as service, service.client() as running:
            running.send(request("header&text=begin&flush&sleep=500&text=end"))
            self.assertTrue(next(running.records()))
            service.end()
            self.assertIn(b"end", running.answer().output)
            self.assertEqual(service.process.returncode, 0)


if __name__ == "__main__":
    unittest.main()
