"""scripts/nightly says what it ran, and never more, also when a night is spread over sittings.

Which changes scripts/mutate tries each night, and which targets scripts/fuzz leaves out. The steps
are programs of this test: the report is of interest here. Nothing is installed or built.
"""

import importlib.machinery
import importlib.util
import os
import re
import shutil
import signal
import subprocess
import tempfile
import unittest
from pathlib import Path
from typing import Any

from servers.server import wait_until

SOURCE = Path(__file__).resolve().parent.parent
ALL = (
    "coverage valgrind musl aarch64 armhf riscv64 s390x sanitizers debian tidy header abi servers "
    "load soak mutate compare fuzz"
)

COMMON = ("fuzz", "common.sh")

# Those that do not go through .ci/run.
MEASURED = set("load soak mutate compare fuzz".split())

# Of a row: the minutes, and when the step began.
WHEN = r"\d+:\d\d \| \d{4}-\d\d-\d\d \d\d:\d\d"

ROW = "| `soak` | passed | 1:00 | 2026-01-02 03:04 | `1111111111` |\n" + (
    "| `mutate` | passed | 1:00 | 2026-01-02 03:04 | `{}` and uncommitted changes |\n"
)

# Each step prints its arguments; the one in the file "failing" fails.
STEP = """#!/bin/bash
echo "$0 $* TARN_NIGHTLY=${TARN_NIGHTLY-}" >>calls
if [ "$(cat failing 2>/dev/null)" = "$(basename "$0") $1" ]; then exit 1; fi
case "$(basename "$0") $1" in
  'fuzz --all')
    if [ "$2" = --continue ]; then shift; fi
    echo "25 targets, for $2 seconds each"
    echo 'cookies         #1234 DONE cov: 99 exec/s: 10 (2026-01-02 03:04, 2222222)'
    ;;
  'load 200000')
    # After the name of the test, if it took no line of its own.
    echo '523: test_under_apache (__main__.Load) ... Apache: 200000 requests in 70.0 s'
    echo '523: lighttpd: 200000 requests by 32 clients in 60.0 s'
    ;;
  'soak 1000000')
    echo '524:   requests  a second   supervisor    worker   descriptors  processes'
    echo '524:     50,000     5,000      900 KiB 1,100 KiB      9 and 12          3'
    echo '524:  1,000,000     4,900      901 KiB 1,101 KiB      9 and 12          3'
    ;;
  'fuzz --merge')
    echo 'cookies: the archive has 12 inputs, and had 11'
    echo 'calls: the archive has 12 inputs, and had 12'
    ;;
  'run valgrind') echo '15 of 16 tests of internal_tests' ;;
  'mutate --since') printf '400 changes\\n97.5 %% of those that compile are noticed\\n' ;;
esac
"""
GIT = """#!/bin/bash
case $1 in
  status) ;;
  rev-list) echo 1111111111 ;;
  cat-file) [ "$3" = '2222222222^{commit}' ] ;;
  *) cat revision ;;
esac
"""
# A fuzz target that takes no time.
TARGET = """#!/bin/bash
echo "$0 $*" | grep -o 'fuzz_.*max_total_time=[0-9]*' >>calls
if [ "$(cat failing 2>/dev/null)" = "$(basename "$0")" ]; then exit 1; fi
printf '#99\tDONE   cov: 7\n'
"""


class Nightly(unittest.TestCase):
    def setUp(self):
        self.root = Path(self.enterContext(tempfile.TemporaryDirectory()))
        (self.root / "docs").mkdir()
        for name, text in (
            ("scripts/nightly", (SOURCE / "scripts" / "nightly").read_text(encoding="utf-8")),
            ("scripts/common.sh", (SOURCE / "scripts" / "common.sh").read_text(encoding="utf-8")),
            ("revision", "2222222222\n"),
            ("bin/git", GIT),
            ("bin/cmake", STEP),
            (".ci/run", STEP),
            *((f"scripts/{name}", STEP) for name in "setup load soak mutate compare fuzz".split()),
        ):
            path = self.root / name
            path.parent.mkdir(exist_ok=True)
            path.write_text(text, encoding="utf-8")
            path.chmod(0o755)

    def run_nightly(self, *steps, **variables):
        environment = {k: v for k, v in os.environ.items() if not k.startswith("TARN_")}
        environment["PATH"] = f"{self.root}/bin:{environment['PATH']}"
        done = subprocess.run(
            [self.root / "scripts" / "nightly", *steps],
            env=environment | variables,
            capture_output=True,
            text=True,
            check=False,
        )
        calls = self.root / "calls"
        self.calls = calls.read_text(encoding="utf-8") if calls.exists() else ""
        return done

    def calls_of(self, *steps, **variables):
        """Runs it, and returns what it called of the steps' programs, without their arguments."""
        (self.root / "calls").unlink(missing_ok=True)
        self.done = self.run_nightly(*steps, **variables)
        calls = re.findall(r"(?m)^(?:\S*/)?(?:run|fuzz|soak|load) \S+", self.calls)
        return [call.rpartition("/")[2].removeprefix("run ") for call in calls]

    def report(self, place):
        return (self.root / place).read_text(encoding="utf-8")

    def test_whole_run_writes_the_page(self):
        done = self.run_nightly()
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        page = self.report("docs/nightly.md")
        self.assertTrue(page.startswith("# The last night\n"), page)
        self.assertNotIn("sittings", page)
        self.assertEqual(1, page.count("\n- Machine: "))
        for step in ALL.split():
            self.assertRegex(page, rf"(?m)^\| `{step}` \| passed \| {WHEN} \| `2222222222` \|$")
        for figure in (
            "15 of 16 tests of internal_tests",
            "25 targets, for 1800 seconds each",
            "cookies: 1234 runs, cov: 99 exec/s: 10 (2026-01-02 03:04, 2222222)",
            "lighttpd: 200000 requests by 32 clients in 60.0 s",
            "Apache: 200000 requests in 70.0 s",
            "1,000,000 requests, 4,900 a second, supervisor 901 KiB, worker 1,101 KiB",
            "cookies: the archive has 12 inputs, and had 11",
            "97.5 % of those that compile are noticed",
        ):
            self.assertIn(f"\n- {figure}\n", page)
        self.assertNotIn("calls", page)
        self.assertLess(len(page.splitlines()), 60)
        for call in (
            "/load 200000 ",
            "/soak 1000000 ",
            "/run valgrind TARN_NIGHTLY=1",
            "/run armhf TARN_NIGHTLY=1",
            "/run s390x TARN_NIGHTLY=1",
            "/mutate --since 1111111111 --sample 300 --turn ",
            "/compare --requests 20000 --seed 20",
            "/fuzz --merge --all",
        ):
            self.assertIn(call, self.calls.replace("\nscripts/", "\n/").replace(".ci/", "/"))

    def test_some_steps_leave_the_page_alone(self):
        done = self.run_nightly("tidy", "load")
        self.assertEqual(0, done.returncode, done.stderr)
        self.assertFalse((self.root / "docs" / "nightly.md").exists())
        first = self.report("build/nightly/report.md").splitlines()[0]
        self.assertEqual(
            "# A shortened night: without the steps coverage valgrind musl aarch64 armhf riscv64 "
            "s390x sanitizers debian header abi servers soak mutate compare fuzz",
            first,
        )

    def test_shorter_steps_leave_the_page_alone(self):
        for name in ("FUZZ_SECONDS", "LOAD", "SOAK", "MUTANTS", "COMPARE"):
            with self.subTest(name):
                done = self.run_nightly(**{f"TARN_{name}": "7"})
                self.assertEqual(0, done.returncode, done.stderr)
                self.assertFalse((self.root / "docs" / "nightly.md").exists())
                first = self.report("build/nightly/report.md").splitlines()[0]
                self.assertEqual(f"# A shortened night: with TARN_{name}=7", first)

    def test_report_says_how_long_each_target_was_fuzzed(self):
        done = self.run_nightly("fuzz", TARN_FUZZ_SECONDS="60")
        self.assertEqual(0, done.returncode, done.stderr)
        page = self.report("build/nightly/report.md")
        self.assertIn("; with TARN_FUZZ_SECONDS=60\n", page)
        self.assertIn("\n- 25 targets, for 60 seconds each\n", page)

    # On a new machine, too.
    def test_packages_are_installed_before_they_are_needed(self):
        self.run_nightly()
        calls = self.calls.splitlines()
        for need, groups in (
            ("cmake --preset release", "build test"),
            ("run sanitizers", "build test sanitizers e2e guides"),
            ("run valgrind", "build test memory fuzz"),
            ("run header", "build header"),
            ("run tidy", "build test lint"),
            ("run debian", "build test e2e guides"),
            ("mutate --since", "build test"),
        ):
            first = next(i for i, call in enumerate(calls) if f"/{need}" in call)
            installed = [call for call in calls[:first] if call.startswith("scripts/setup ")]
            self.assertLessEqual(set(groups.split()), set(" ".join(installed).split()), need)

    def test_goes_on_after_a_failure_and_fails(self):
        for failing, step in (("run s390x", "s390x"), ("fuzz --merge", "fuzz")):
            with self.subTest(step):
                (self.root / "failing").write_text(f"{failing}\n", encoding="utf-8")
                done = self.run_nightly()
                self.assertEqual(1, done.returncode)
                page = self.report("docs/nightly.md")
                self.assertRegex(page, rf"(?m)^\| `{step}` \| FAILED \|")
                self.assertEqual(17, page.count("| passed |"))

    def test_changes_since_the_last_report_are_tried(self):
        (self.root / "docs" / "nightly.md").write_text(ROW.format("2222222222"))
        self.run_nightly("mutate")
        self.assertIn("--since 2222222222 ", self.calls)

    def test_report_of_an_unknown_revision_does_not_count(self):
        (self.root / "docs" / "nightly.md").write_text(ROW.format("3333333333"))
        self.run_nightly("mutate")
        self.assertIn("--since 1111111111 ", self.calls)

    def test_next_report_knows_the_revision_of_the_last(self):
        self.run_nightly()
        (self.root / "revision").write_text("4444444444\n")
        self.run_nightly("mutate")
        self.assertIn("--since 2222222222 ", self.calls.splitlines()[-1])

    def test_night_can_be_spread_over_sittings(self):
        first, failing, rest = ALL.split()[:4], ALL.split()[4], ALL.split()[5:]
        (self.root / "failing").write_text(f"run {failing}\n")
        self.assertEqual([*first, failing], self.calls_of(*first, failing))
        self.assertEqual(1, self.done.returncode)
        # Steps that passed are kept; the one that failed runs again.
        self.assertEqual([failing], self.calls_of("--continue", *first, failing))
        self.assertEqual(1, self.done.returncode)
        self.assertRegex(self.done.stdout, rf"(?m)^{first[0]} +passed +\d+:\d\d minutes, on 20")
        page = self.report("build/nightly/report.md")
        self.assertIn(f"# A shortened night: without the steps {' '.join(rest)}\n", page)
        self.assertFalse((self.root / "docs" / "nightly.md").exists())
        # In another minute, and after a commit.
        record = self.root / "build" / "nightly" / f"{first[0]}.record"
        record.write_text(
            re.sub(r"(?m)^sitting: .*", "sitting: 2026-01-02 03:04", record.read_text())
        )
        (self.root / "failing").unlink()
        (self.root / "revision").write_text("4444444444\n")
        called = self.calls_of("--continue")
        self.assertEqual(0, self.done.returncode, self.done.stderr)
        self.assertEqual({failing, *rest} - MEASURED, set(called) & set(ALL.split()))
        self.assertIn("fuzz --all", called)
        page = self.report("docs/nightly.md")
        self.assertTrue(page.startswith("# The last night\n"), page)
        self.assertRegex(page, r"\nThis night was spread over [23] sittings\.")
        for step in ALL.split():
            revision = "2222222222" if step in first else "4444444444"
            self.assertRegex(page, rf"(?m)^\| `{step}` \| passed \| {WHEN} \| `{revision}` \|$")
        self.assertIn("\n- 15 of 16 tests of internal_tests\n", page)
        # That night is over.
        self.assertIn(first[0], self.calls_of("--continue", first[0]))

    def test_night_can_be_spread_over_machines(self):
        first, rest = ALL.split()[:4], ALL.split()[4:]
        (self.root / "failing").write_text(f"run {first[1]}\n")
        self.calls_of("--continue", *first)
        target = self.root / "build" / "fuzz" / "cookies" / "passed"
        target.parent.mkdir(parents=True)
        target.write_text("1800\ncookies #1234 DONE cov: 99\n")
        self.calls_of("--continue", first[0])
        shutil.rmtree(self.root / "build")
        (self.root / "failing").unlink()
        (self.root / "revision").write_text("4444444444\n")
        self.assertEqual([first[1]], self.calls_of("--continue", *first))
        self.assertEqual("1800\ncookies #1234 DONE cov: 99\n", target.read_text("utf-8"))
        self.calls_of("--continue", *rest)
        page = self.report("docs/nightly.md")
        for step in ALL.split():
            revision = "2222222222" if step in set(first) - {first[1]} else "4444444444"
            self.assertRegex(page, rf"(?m)^\| `{step}` \| passed \| {WHEN} \| `{revision}` \|$")
        self.assertIn("\n- 15 of 16 tests of internal_tests\n", page)
        # The records of a night that is over do not count for the next.
        self.assertFalse((self.root / "docs" / "nightly-records.txt").exists())
        shutil.rmtree(self.root / "build")
        self.assertIn(first[0], self.calls_of("--continue", first[0]))

    def test_own_records_count_more_than_those_of_another_machine(self):
        self.calls_of("--continue", "tidy")
        records = self.root / "docs" / "nightly-records.txt"
        records.write_text(records.read_text("utf-8").replace("tidy.record", "abi.record"))
        self.assertEqual(["tidy", "abi"], ["tidy", *self.calls_of("--continue", "tidy", "abi")])

    def test_stopped_sitting_keeps_its_records(self):
        (self.root / ".ci" / "run").write_text("#!/bin/bash\ntouch began\nexec sleep 600\n")
        target = self.root / "build" / "fuzz" / "cookies" / "passed"
        target.parent.mkdir(parents=True)
        target.write_text("1800\ncookies #1234 DONE cov: 99\n")
        with subprocess.Popen(
            [self.root / "scripts" / "nightly", "--continue", "load", "tidy"],
            env=os.environ | {"PATH": f"{self.root}/bin:{os.environ['PATH']}"},
            stdout=subprocess.DEVNULL,
            start_new_session=True,
        ) as stopped:
            wait_until((self.root / "began").exists, "the step does not begin")
            os.killpg(stopped.pid, signal.SIGTERM)
        saved = self.report("docs/nightly-records.txt")
        self.assertIn("==> build/nightly/load.record\nresult: passed\n", saved)
        self.assertIn("==> build/fuzz/cookies/passed\n1800\ncookies ", saved)
        self.assertNotIn("tidy.record", saved)

    def test_page_of_a_spread_night_says_what_failed(self):
        (self.root / "failing").write_text("run s390x\n")
        self.assertIn("s390x", self.calls_of())
        self.assertEqual(1, self.done.returncode)
        self.assertEqual([], self.calls_of("--continue", "tidy"))
        self.assertEqual(0, self.done.returncode)
        self.assertIn("\n| `s390x` | FAILED |", self.report("docs/nightly.md"))
        (self.root / "failing").unlink()
        self.assertEqual(["s390x"], self.calls_of("--continue"))
        page = self.report("docs/nightly.md")
        self.assertEqual(18, page.count("| passed |"))

    def test_shortened_steps_do_not_count(self):
        rest = [step for step in ALL.split() if step != "soak"]
        self.run_nightly(*rest)
        self.assertEqual(["soak 7"], self.calls_of("--continue", TARN_SOAK="7"))
        first = self.report("build/nightly/report.md").splitlines()[0]
        self.assertEqual("# A shortened night: with TARN_SOAK=7", first)
        self.assertFalse((self.root / "docs" / "nightly.md").exists())
        self.assertEqual(["soak 1000000"], self.calls_of("--continue"))
        self.assertTrue((self.root / "docs" / "nightly.md").exists())

    def test_new_night_forgets_the_last(self):
        self.run_nightly("tidy")
        self.assertIn("tidy", self.calls_of())
        self.assertIn("fuzz --all 1800 ", self.calls)

    def test_fuzz_targets_are_continued(self):
        self.calls_of("--continue", "fuzz")
        self.assertIn("fuzz --all --continue 1800 ", self.calls)

    def test_refuses_unknown_steps(self):
        done = self.run_nightly("tea")
        self.assertEqual(2, done.returncode)
        self.assertIn("no step tea; there are coverage ", done.stderr)
        self.assertEqual("", self.calls)


class Fuzz(unittest.TestCase):
    """scripts/fuzz with --continue."""

    def setUp(self):
        self.root = Path(self.enterContext(tempfile.TemporaryDirectory()))
        for name, text in (
            *(
                (f"scripts/{name}", (SOURCE / "scripts" / name).read_text("utf-8"))
                for name in COMMON
            ),
            ("scripts/setup", STEP),
            ("revision", "2222222222\n"),
            ("bin/git", GIT),
            ("bin/cmake", STEP),
            ("fuzz/words.dict", ""),
            *((f"build/fuzz/fuzz/fuzz_{name}", TARGET) for name in "abc"),
            *((f"fuzz/corpus/{name}/empty", "") for name in "abc"),
        ):
            path = self.root / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")
            path.chmod(0o755)

    def fuzz(self, *arguments):
        """Returns what it printed, and the targets that it ran."""
        calls = self.root / "calls"
        calls.unlink(missing_ok=True)
        done = subprocess.run(
            [self.root / "scripts" / "fuzz", *arguments],
            env=os.environ | {"PATH": f"{self.root}/bin:{os.environ['PATH']}"},
            capture_output=True,
            text=True,
            check=False,
        )
        self.status = done.returncode
        ran = re.findall(r"(?m)^fuzz_(\S+) .*max_total_time=(\d+)", calls.read_text("utf-8"))
        return done.stdout + done.stderr, sorted(ran)

    def test_targets_that_passed_do_not_run_again(self):
        (self.root / "failing").write_text("fuzz_b\n")
        printed, ran = self.fuzz("--all", "5")
        self.assertEqual([("a", "5"), ("b", "5"), ("c", "5")], ran)
        self.assertEqual(1, self.status)
        self.assertIn("b failed.", printed)
        (self.root / "failing").unlink()
        (self.root / "revision").write_text("4444444444\n")
        printed, ran = self.fuzz("--all", "--continue", "5")
        self.assertEqual([("b", "5")], ran)
        self.assertEqual(0, self.status, printed)
        self.assertIn("3 targets, for 5 seconds each\n", printed)
        for target, revision in (("a", 2222222222), ("b", 4444444444), ("c", 2222222222)):
            self.assertRegex(
                printed,
                rf"(?m)^{target} +#99 DONE cov: 7 \(\d{{4}}-\d\d-\d\d \d\d:\d\d, {revision}\)$",
            )
        self.assertEqual([], self.fuzz("--all", "--continue", "4")[1])
        self.assertEqual(3, len(self.fuzz("--all", "4")[1]))

    def test_shorter_runs_do_not_count(self):
        self.fuzz("a", "4")
        self.fuzz("b", "5")
        self.assertEqual([("a", "5"), ("c", "5")], self.fuzz("--all", "--continue", "5")[1])

    def test_failure_ends_an_earlier_record(self):
        self.fuzz("a", "5")
        (self.root / "failing").write_text("fuzz_a\n")
        self.fuzz("a", "1")
        (self.root / "failing").unlink()
        self.assertIn(("a", "5"), self.fuzz("--all", "--continue", "5")[1])


class Mutants(unittest.TestCase):
    mutate: Any
    mutants: list[Any]

    @classmethod
    def setUpClass(cls):
        loader = importlib.machinery.SourceFileLoader("mutate", str(SOURCE / "scripts" / "mutate"))
        cls.mutate = importlib.util.module_from_spec(
            importlib.util.spec_from_loader("mutate", loader)
        )
        loader.exec_module(cls.mutate)
        text = "  if (a == b) return 1;\n" * 20
        mutations = list(cls.mutate.mutations(text))
        cls.mutants = [
            cls.mutate.Mutant(file, text, *mutation)
            for file in ("core/a.cpp", "core/b.cpp", "core/c.cpp")
            for mutation in mutations
        ]

    def keys(self, always, count, turn):
        return {each.key for each in self.mutate.chosen(self.mutants, always, count, 1, turn)}

    def test_turns_try_all_changes(self):
        everything = {each.key for each in self.mutants}
        turns = -(-len(everything) // 7)
        tried = [self.keys(set(), 7, turn) for turn in range(turns)]
        self.assertGreater(turns, 10)
        self.assertEqual([7] * turns, [len(keys) for keys in tried])
        self.assertEqual(everything, set().union(*tried))
        # A day in the far future is a turn, too.
        self.assertEqual(7, len(self.keys(set(), 7, 20000)))

    def test_changed_files_are_tried_in_whole(self):
        of_b = {each.key for each in self.mutants if each.file == "core/b.cpp"}
        for turn in (0, 5):
            keys = self.keys({"core/b.cpp"}, 7, turn)
            self.assertLess(of_b, keys)
            self.assertEqual(len(of_b) + 7, len(keys))


if __name__ == "__main__":
    unittest.main()
