"""Several machines behind a balancer, with the configurations in servers/. One is removed
and restored while clients send requests: none is lost, answered wrongly or carried out twice.

The machines run web servers with CGI scripts, or FastCGI services.
"""

import collections
import http.client
import itertools
import os
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest
from typing import NamedTuple

from servers.server import CONFIGURATIONS, MANY_TIMES, as_ordinary_user, free_port, read

ADD = os.path.join(os.path.dirname(os.path.abspath(__file__)), "add.sh")
MACHINES = ("127.0.0.2", "127.0.0.3", "127.0.0.4")
CLIENTS = 12


class Request(NamedTuple):
    method: str
    line: str
    begin: float
    status: int  # 0 if there is no answer
    answered: list  # the line and the machine


class HAProxy(unittest.TestCase):
    FILES = CONFIGURATIONS / "several-machines"
    MACHINE_PORT = "8080"
    BALANCER: tuple[str, ...] = ("/usr/sbin/haproxy", "-db", "-f", "haproxy.cfg")

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory(prefix="tarn-e2e-"))
        self.port, self.requests, self.done = free_port(), [], threading.Event()
        self.machine_port = free_port()
        for printed in self.FILES.iterdir():
            with open(self.path(printed.name), "w", encoding="utf-8") as file:
                text = printed.read_text(encoding="utf-8")
                for configured, port in (
                    ("8000", self.port),
                    (self.MACHINE_PORT, self.machine_port),
                ):
                    text = re.sub(rf"\b{configured}\b", str(port), text)
                file.write(text)
        os.mkdir(self.path("shared"))
        for machine in MACHINES:
            os.makedirs(self.path(machine, "www/cgi-bin"))
            shutil.copy(ADD, self.path(machine, "www/cgi-bin/add"))
            with open(self.path(machine, "www/up"), "w", encoding="utf-8"):
                pass
        self.user = as_ordinary_user(self.folder)
        self.processes = {}
        for machine in MACHINES:
            self.start_machine(machine)
        self.start("balancer", ".", *self.BALANCER)
        for machine in MACHINES:
            self.wait_for(machine)

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def start(self, name, folder, *command, **variables):
        process = subprocess.Popen(
            ["setpriv", "--pdeathsig", "TERM", *self.user, *command],
            cwd=self.path(folder),
            env=os.environ | variables,
        )
        self.addCleanup(process.wait, 100)
        self.addCleanup(process.terminate)
        self.processes[name] = process

    def start_machine(self, machine):
        lighttpd = ("/usr/sbin/lighttpd", "-D", "-f", "../machine.conf")
        self.start(machine, machine, *lighttpd, ADDRESS=machine)

    def stop_machine(self, machine, how):
        self.processes[machine].send_signal(how)
        return self.processes[machine].wait(100)

    def take_away(self, machine):
        os.rename(self.path(machine, "www/up"), self.path(machine, "www/down"))

    def bring_back(self, machine):
        os.rename(self.path(machine, "www/down"), self.path(machine, "www/up"))

    def ask(self, method, line, timeout=100):
        begin = time.monotonic()
        client = http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)
        try:
            if method == "GET":
                client.request(method, f"/cgi-bin/add?{line}")
            else:
                client.request(method, "/cgi-bin/add", line)
            answer = client.getresponse()
            return Request(method, line, begin, answer.status, answer.read().decode().split())
        except (ConnectionError, TimeoutError, http.client.HTTPException):
            return Request(method, line, begin, 0, [])
        finally:
            client.close()

    def wait_for(self, machine):
        """Waits until the balancer sends requests to a machine."""
        for _ in range(MANY_TIMES):
            if machine in self.ask("GET", "wait").answered:
                return
            time.sleep(0.01)
        self.fail(f"{machine} gets no requests")

    def client(self, number):
        for count in itertools.count():
            if self.done.is_set():
                return
            method = ("GET", "POST")[(number + count) % 2]
            self.requests.append(self.ask(method, f"{number}-{count}"))

    def with_clients(self, act):
        """Calls `act` while clients send requests; returns the requests that failed."""
        clients = [threading.Thread(target=self.client, args=[n]) for n in range(CLIENTS)]
        for client in clients:
            client.start()
        try:
            time.sleep(0.5)
            act()
            time.sleep(0.5)
        finally:
            self.done.set()
            for client in clients:
                client.join()
        added = collections.Counter(read(self.path("shared/lines")).decode().split())
        for request in self.requests:
            if request.status == 200:
                self.assertEqual(request.line, request.answered[0])
                self.assertIn(request.answered[1], MACHINES)
            if request.method == "POST":
                wanted = (1,) if request.status == 200 else (0, 1)
                self.assertIn(added.pop(request.line, 0), wanted, request)
        self.assertEqual({}, added)
        return [request for request in self.requests if request.status != 200]

    def check_absence(self, machine):
        """Checks that the machine gets no requests for a while, and starts it again."""
        before = len(self.requests)
        for _ in range(MANY_TIMES):
            if len(others := self.requests[before + CLIENTS :]) > 20:
                break
            time.sleep(0.01)
        self.assertGreater(len(others), 20)
        self.assertNotIn(machine, [name for request in others for name in request.answered])
        self.start_machine(machine)

    def test_removing_and_restoring_a_machine_loses_no_request(self):
        def act():
            self.take_away(MACHINES[0])
            time.sleep(2)
            self.assertEqual(0, self.stop_machine(MACHINES[0], signal.SIGINT))
            self.check_absence(MACHINES[0])
            self.bring_back(MACHINES[0])
            self.wait_for(MACHINES[0])

        self.assertEqual([], self.with_clients(act))

    def test_crashed_machine_loses_only_its_unfinished_posts(self):
        killed = []

        def act():
            self.stop_machine(MACHINES[1], signal.SIGKILL)
            killed.append(time.monotonic())
            self.check_absence(MACHINES[1])
            self.wait_for(MACHINES[1])

        for request in self.with_clients(act):
            self.assertEqual("POST", request.method)
            self.assertLess(request.begin, killed[0])


class Nginx(HAProxy):
    BALANCER = ("/usr/sbin/nginx", "-p", ".", "-c", "balancer.conf", "-e", "error.log")

    def change(self, old, new):
        with open(self.path("balancer.conf"), encoding="utf-8") as file:
            text = file.read()
        self.assertIn(old, text)
        with open(self.path("balancer.conf"), "w", encoding="utf-8") as file:
            file.write(text.replace(old, new))
        self.processes["balancer"].send_signal(signal.SIGHUP)

    def take_away(self, machine):
        address = f"{machine}:{self.machine_port}"
        self.change(address, f"{address} down")

    def bring_back(self, machine):
        self.change(f"{machine}:{self.machine_port} down", f"{machine}:{self.machine_port}")


class Fastcgi(HAProxy):
    """Each machine is a service. It is removed by SIGTERM, and the balancer is not told."""

    FILES = CONFIGURATIONS / "several-machines-fastcgi"
    MACHINE_PORT = "9000"

    def start_machine(self, machine):
        address = f"tcp:{machine}:{self.machine_port}"
        service = (os.environ["TARN_SERVE"], "--listen", address, "--errors", "own")
        variables = {"MACHINE": machine, "SHARED": self.path("shared")}
        self.start(machine, machine, *service, "--", "www/cgi-bin/add", **variables)

    def stop_machine(self, machine, how):
        status = super().stop_machine(machine, how)
        # The worker outlives the supervisor for a moment.
        for _ in range(MANY_TIMES):
            try:
                socket.create_connection((machine, self.machine_port)).close()
            except ConnectionRefusedError:
                return status
            except ConnectionResetError:  # while it stops listening
                pass
            time.sleep(0.01)
        raise AssertionError(f"{machine} still listens")

    def test_removing_and_restoring_a_machine_loses_no_request(self):
        def act():
            for machine in MACHINES[:2]:
                self.assertEqual(0, self.stop_machine(machine, signal.SIGTERM))
                self.check_absence(machine)
                self.wait_for(machine)

        self.assertEqual([], self.with_clients(act))


class HAProxyFastcgi(Fastcgi):
    def test_machine_that_hangs_gets_no_requests(self):
        """It accepts connections, so only a check that is a request finds out."""
        supervisor = self.processes[MACHINES[2]].pid
        (worker,) = children_of(supervisor)
        for process in (supervisor, worker):
            os.kill(process, signal.SIGSTOP)
        try:
            for _ in range(100):
                answers = [self.ask("GET", "hang", timeout=5) for _ in range(20)]
                if all(answer.status == 200 for answer in answers):
                    break
            self.assertEqual({200}, {answer.status for answer in answers})
            names = {name for answer in answers for name in answer.answered[1:]}
            self.assertEqual(set(MACHINES[:2]), names)
        finally:
            for process in (supervisor, worker):
                os.kill(process, signal.SIGCONT)
        self.wait_for(MACHINES[2])


class NginxFastcgi(Fastcgi):
    BALANCER = Nginx.BALANCER


def children_of(process):
    with open(f"/proc/{process}/task/{process}/children", encoding="ascii") as file:
        return [int(word) for word in file.read().split()]


def load_tests(loader, _tests, _pattern):
    """The classes that have a balancer and machines."""
    cases = [HAProxy, Nginx, HAProxyFastcgi, NginxFastcgi]
    return unittest.TestSuite(map(loader.loadTestsFromTestCase, cases))


if __name__ == "__main__":
    unittest.main()
