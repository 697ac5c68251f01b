"""Runs the same scenarios under the servers named by SERVERS.

With SCENARIOS=examples, only those of each example.
"""

import os
import unittest

import abuse_test
import contact_test
import counter_test
import faults_test
import form_echo_test
import guestbook_test
import poll_test
import upload_test
from servers import SERVERS

EXAMPLES: tuple[type[unittest.TestCase], ...] = (
    contact_test.Contact,
    contact_test.ContactInCpp,
    counter_test.Counter,
    form_echo_test.FormEcho,
    guestbook_test.Guestbook,
    guestbook_test.GuestbookInCpp,
    poll_test.Poll,
    upload_test.RefusedUploads,
    upload_test.Upload,
)
if "TODO" in os.environ:  # it needs libsodium
    import todo_test

    EXAMPLES += (todo_test.WalkThrough, todo_test.AttacksThroughServers)
SCENARIOS = (
    *EXAMPLES,
    abuse_test.Readers,
    abuse_test.ReadersInCpp,
    abuse_test.Refusals,
    faults_test.ClientsThatDisconnect,
    faults_test.FullDisk,
)


def load_tests(loader, _tests, _pattern):
    names = os.environ.get("SERVERS", "apache nginx busybox").split()
    scenarios = EXAMPLES if os.environ.get("SCENARIOS") == "examples" else SCENARIOS
    cases = [
        type(
            f"{scenario.__name__}Under{name.title().replace('-', '')}",
            (scenario,),
            {"SERVER": SERVERS[name]},
        )
        for name in names
        for scenario in scenarios
    ]
    return unittest.TestSuite(map(loader.loadTestsFromTestCase, cases))


if __name__ == "__main__":
    unittest.main()
