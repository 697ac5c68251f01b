"""Runs the same scenarios under the servers named by SERVERS."""

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

SCENARIOS = (
    abuse_test.Readers,
    abuse_test.ReadersInCpp,
    abuse_test.Refusals,
    contact_test.Contact,
    counter_test.Counter,
    faults_test.ClientsThatDisconnect,
    faults_test.FullDisk,
    form_echo_test.FormEcho,
    guestbook_test.Guestbook,
    guestbook_test.GuestbookInCpp,
    poll_test.Poll,
    upload_test.RefusedUploads,
    upload_test.Upload,
)


def load_tests(loader, _tests, _pattern):
    names = os.environ.get("SERVERS", "apache nginx busybox").split()
    cases = [
        type(f"{scenario.__name__}Under{name.title()}", (scenario,), {"SERVER": SERVERS[name]})
        for name in names
        for scenario in SCENARIOS
    ]
    return unittest.TestSuite(map(loader.loadTestsFromTestCase, cases))


if __name__ == "__main__":
    unittest.main()
