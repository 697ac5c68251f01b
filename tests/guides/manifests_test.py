"""The manifests for Kubernetes have only fields that the API has, and numbers that fit together."""

import copy
import os
import re
import unittest
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import yaml
from kubernetes_types import Api

SOURCE = Path(__file__).resolve().parents[2]
FOLDER = SOURCE / "servers" / "containers"
PACKAGE = Path(os.environ["KUBERNETES_TYPES"])
# The names in these are free.
FREE = ("data", "labels", "matchLabels", "selector", "requests", "limits")
UNITS = {"": 1, "K": 1 << 10, "M": 1 << 20, "G": 1 << 30}
# What the service needs besides its requests: two processes, and a margin.
OWN_MEMORY = 16 << 20
# After SIGTERM a service waits for the rest of a request. A script that takes too long gets SIGTERM
# itself, and later SIGKILL.
SECONDS_TO_ARRIVE = 5
SECONDS_TO_DIE = 2

Step = str | int


def documents() -> dict[str, Any]:
    """All manifests by kind and name."""
    return {
        f"{document['kind']} {document['metadata']['name']}": document
        for file in sorted(FOLDER.glob("*.yaml"))
        for document in yaml.safe_load_all(file.read_text(encoding="utf-8"))
    }


def fields(value: Any, *steps: Step) -> Iterator[tuple[Step, ...]]:
    """The path of each field of an object."""
    if isinstance(value, list):
        for index, item in enumerate(value):
            yield from fields(item, *steps, index)
    elif isinstance(value, dict):
        for name, item in value.items():
            yield (*steps, name)
            if name not in FREE or (name == "selector" and "matchLabels" in item):
                yield from fields(item, *steps, name)


def text(steps: tuple[Step, ...]) -> str:
    return "".join(f"[{step}]" if isinstance(step, int) else f".{step}" for step in steps)


def parent(document: Any, steps: tuple[Step, ...]) -> Any:
    for step in steps[:-1]:
        document = document[step]
    return document


def size(written: str) -> int:
    """A size as an option, Kubernetes or nginx has it."""
    number, unit = re.fullmatch(r"(\d+)([KMGkmg]?)i?", written).groups()
    return int(number) * UNITS[unit.upper()]


class Fields(unittest.TestCase):
    api: Api

    @classmethod
    def setUpClass(cls) -> None:
        cls.api = Api(PACKAGE)

    def problems(self, document: Any) -> list[str]:
        return list(self.api.problems(document))

    def test_are_those_of_the_types(self) -> None:
        self.assertGreater(len(self.api.objects), 100)
        self.assertGreater(len(documents()), 5)
        for name, document in documents().items():
            with self.subTest(name):
                self.assertEqual(self.problems(document), [])

    def test_with_another_name_are_found(self) -> None:
        count = 0
        for name, document in documents().items():
            for steps in fields(document):
                changed = copy.deepcopy(document)
                place = parent(changed, steps)
                place[f"{steps[-1]}x"] = place.pop(steps[-1])
                with self.subTest(name, field=text(steps)):
                    wanted = f"{text(steps)}x: is not a field"
                    if steps in (("apiVersion",), ("kind",)):
                        wanted = ""
                    found = self.problems(changed)
                    self.assertTrue(found)
                    self.assertTrue(not wanted or wanted in found, found)
                    count += 1
        self.assertGreater(count, 150)

    def test_with_another_type_are_found(self) -> None:
        for name, document in documents().items():
            for steps in fields(document):
                for wrong in (None, [[]], {"x": {}}):
                    changed = copy.deepcopy(document)
                    parent(changed, steps)[steps[-1]] = wrong
                    with self.subTest(name, field=text(steps), wrong=wrong):
                        self.assertTrue(self.problems(changed))

    def test_that_are_missing_are_found(self) -> None:
        required = {
            "Deployment hello": (
                ".spec.selector",
                ".spec.template",
                ".spec.template.spec.containers",
                ".spec.template.spec.containers[0].name",
                ".spec.template.spec.containers[0].ports[0].containerPort",
                ".spec.template.spec.containers[0].readinessProbe.httpGet.port",
                ".spec.template.spec.containers[0].livenessProbe.tcpSocket.port",
                ".spec.template.spec.containers[0].lifecycle.preStop.sleep.seconds",
                ".spec.template.spec.containers[0].volumeMounts[0].mountPath",
                ".spec.template.spec.securityContext.seccompProfile.type",
                ".spec.template.spec.volumes[0].name",
            ),
            "Service hello": (".spec.ports[0].port",),
            "NetworkPolicy hello": (".spec.podSelector",),
        }
        for name, paths in required.items():
            document = documents()[name]
            by_text = {text(steps): steps for steps in fields(document)}
            for path in paths:
                changed = copy.deepcopy(document)
                steps = by_text[path]
                del parent(changed, steps)[steps[-1]]
                with self.subTest(name, field=path):
                    self.assertEqual(self.problems(changed), [f"{path}: is missing"])


class Pods(unittest.TestCase):
    """What belongs together in a manifest has the same names and fitting numbers."""

    def setUp(self) -> None:
        self.documents = documents()

    def spec(self, kind: str, name: str) -> Any:
        return self.documents[f"{kind} {name}"]["spec"]

    def pod(self, name: str) -> Any:
        return self.spec("Deployment", name)["template"]["spec"]

    def container(self, name: str) -> Any:
        (container,) = self.pod(name)["containers"]
        return container

    def options(self) -> dict[str, str]:
        return dict(argument[2:].split("=") for argument in self.container("hello")["args"])

    def number(self, option: str) -> int:
        return size(self.options()[option])

    def connections(self) -> int:
        return sum(map(self.number, ("children", "queue", "idle-connections")))

    def setting(self, name: str) -> str:
        (value,) = re.findall(
            rf"^ *{name} (.*);", self.documents["ConfigMap web"]["data"]["nginx.conf"], re.MULTILINE
        )
        return str(value)

    def test_are_selected_by_their_labels(self) -> None:
        for name in ("hello", "web"):
            labels = self.spec("Deployment", name)["template"]["metadata"]["labels"]
            self.assertEqual(self.spec("Deployment", name)["selector"]["matchLabels"], labels)
            self.assertEqual(self.spec("Service", name)["selector"], labels)
            budget = self.spec("PodDisruptionBudget", name)
            self.assertEqual(budget["selector"]["matchLabels"], labels)
            self.assertLess(budget["maxUnavailable"], self.spec("Deployment", name)["replicas"])

    def test_are_reached_only_by_the_web_server_and_reach_nobody(self) -> None:
        policy = self.spec("NetworkPolicy", "hello")
        labels = self.spec("Deployment", "hello")["template"]["metadata"]["labels"]
        self.assertEqual(policy["podSelector"]["matchLabels"], labels)
        self.assertEqual(policy["policyTypes"], ["Ingress", "Egress"])
        self.assertEqual(policy["egress"], [])
        requests, figures = policy["ingress"]
        (peer,) = requests["from"]
        labels = self.spec("Deployment", "web")["template"]["metadata"]["labels"]
        self.assertEqual(peer, {"podSelector": {"matchLabels": labels}})
        self.assertEqual(requests["ports"], [{"port": "fastcgi"}])
        self.assertEqual(figures["ports"], [{"port": "status"}])

    def test_use_ports_and_volumes_that_exist(self) -> None:
        for name in ("hello", "web"):
            container = self.container(name)
            ports = [port["name"] for port in container["ports"]]
            (entry,) = self.spec("Service", name)["ports"]
            self.assertEqual(entry["targetPort"], ports[0])
            for probe in ("readinessProbe", "livenessProbe"):
                probed = container[probe].get("tcpSocket") or container[probe]["httpGet"]
                self.assertIn(probed["port"], ports)
            self.assertEqual(
                [mount["name"] for mount in container["volumeMounts"]],
                [volume["name"] for volume in self.pod(name)["volumes"]],
            )
        for option, port in zip(("listen", "status"), self.container("hello")["ports"]):
            self.assertTrue(self.options()[option].endswith(f":{port['containerPort']}"))
        self.assertEqual(
            self.setting("listen"), str(self.container("web")["ports"][0]["containerPort"])
        )
        self.assertEqual(
            self.setting("fastcgi_pass"),
            f"hello:{self.spec('Service', 'hello')['ports'][0]['port']}",
        )
        self.assertIn(
            f"location = {self.container('web')['readinessProbe']['httpGet']['path']} ",
            self.documents["ConfigMap web"]["data"]["nginx.conf"],
        )

    def test_have_no_rights(self) -> None:
        for name in ("hello", "web"):
            pod = self.pod(name)["securityContext"]
            container = self.container(name)["securityContext"]
            self.assertTrue(pod["runAsNonRoot"])
            self.assertGreater(pod["runAsUser"], 0)
            self.assertEqual(pod["seccompProfile"], {"type": "RuntimeDefault"})
            self.assertIs(container["allowPrivilegeEscalation"], False)
            self.assertIs(container["readOnlyRootFilesystem"], True)
            self.assertEqual(container["capabilities"], {"drop": ["ALL"]})
            self.assertIs(self.pod(name)["automountServiceAccountToken"], False)
            self.assertIs(self.pod(name)["enableServiceLinks"], False)

    def test_have_memory_for_all_requests(self) -> None:
        scripts = self.number("children") * self.number("address-space")
        each = self.number("parameters-size") + self.number("body-in-memory")
        needed = scripts + self.connections() * each + OWN_MEMORY
        self.assertLessEqual(needed, size(self.container("hello")["resources"]["limits"]["memory"]))

    def test_have_room_for_all_bodies(self) -> None:
        # The form reader of a script keeps a large form in /tmp, too.
        bodies = self.connections() + self.number("children")
        (volume,) = self.pod("hello")["volumes"]
        needed = bodies * self.number("body-size")
        self.assertLessEqual(needed, size(volume["emptyDir"]["sizeLimit"]))
        self.assertEqual(size(self.setting("client_max_body_size")), self.number("body-size"))
        # nginx keeps the body and the answer of each connection; half of them lead to visitors.
        connections = int(self.setting("worker_connections")) // 2
        needed = connections * (
            self.number("body-size") + size(self.setting("fastcgi_max_temp_file_size"))
        )
        room = self.pod("web")["volumes"][1]["emptyDir"]["sizeLimit"]
        self.assertLessEqual(needed, size(room))

    def test_have_time_to_answer_before_they_are_killed(self) -> None:
        turns = -(-self.number("queue") // self.number("children")) + 1
        longest = turns * (self.number("seconds") + SECONDS_TO_DIE)
        pod = self.pod("hello")
        sleep = self.container("hello")["lifecycle"]["preStop"]["sleep"]["seconds"]
        needed = sleep + SECONDS_TO_ARRIVE + longest
        self.assertLess(needed, pod["terminationGracePeriodSeconds"])
        read_timeout = int(self.setting("fastcgi_read_timeout").removesuffix("s"))
        self.assertLess(longest, read_timeout)
        command = self.container("web")["lifecycle"]["preStop"]["exec"]["command"][-1]
        found = re.fullmatch(r"sleep (\d+); kill -QUIT 1; sleep (\d+)", command)
        assert found, command
        self.assertGreater(int(found[2]), read_timeout)
        self.assertLess(
            int(found[1]) + read_timeout, self.pod("web")["terminationGracePeriodSeconds"]
        )


if __name__ == "__main__":
    unittest.main()
