"""The examples under Apache, which starts a script before the body is there."""

import unittest

import faults_test
import form_echo_test
import guestbook_test
import upload_test
from server import Apache


class FormEcho(form_echo_test.FormEcho):
    SERVER = Apache


class Guestbook(guestbook_test.Guestbook):
    SERVER = Apache


class GuestbookInCpp(guestbook_test.GuestbookInCpp):
    SERVER = Apache


class Upload(upload_test.Upload):
    SERVER = Apache


class ClientsThatBreakOff(faults_test.ClientsThatBreakOff):
    SERVER = Apache


class FullDisk(faults_test.FullDisk):
    SERVER = Apache


if __name__ == "__main__":
    unittest.main()
