"""The workloads and our targets for them."""

import os
import re
import statistics
import subprocess
import urllib.request

import bodies
import measure
import report
from bodies import MIB
from report import Report, Target
from servers import Lighttpd

FLOORS = ["floor", "floor-static", "stub", "c++"]
SCRIPTS = ["tarn", "tarn-archive", "tarn-static"]

# Other libraries are slower, so they run in every tenth round only, and not with large bodies.
PEERS = {"CGI.pm": "peer.pl", "Python's cgi": "peer.py"}
PEER_EVERY = 10
PEER_BODY = 10 * MIB


def runs(script):
    variables = bodies.query().variables
    try:
        done = subprocess.run(script, env=variables, capture_output=True, check=False)
    except OSError:
        return False
    return done.returncode == 0


class Options:
    """The number of rounds, and the other libraries. A quick run omits the largest bodies."""

    def __init__(self, rounds, quick):
        self.given, self.quick = rounds, quick
        self.peers = {}
        for name, file in PEERS.items():
            script = os.path.join(measure.ROOT, "bench/process", file)
            if runs(script):
                self.peers[name] = script
            else:
                print(f"{name} is skipped: its script does not run here.\n")

    def rounds(self, usual, quick):
        return self.given or (quick if self.quick else usual)


def measured(options, request, names, rounds, peers=True):
    """The medians and all samples by candidate, for these names and the other libraries."""
    candidates = [
        measure.Candidate(name, f"./{name}", request.floor if name in FLOORS else request.answer)
        for name in names
    ]
    if peers and len(request.body) <= PEER_BODY:
        for name, path in options.peers.items():
            candidates.append(measure.Candidate(name, path, request.answer, PEER_EVERY))
    with measure.body_file(request.body) as body:
        samples = measure.rounds_of(candidates, request.variables, body, rounds)
    return {name: measure.median(taken) for name, taken in samples.items()}, samples


def times_floor(medians, limit):
    return Target("tarn, × floor", medians["tarn"].wall / medians["floor"].wall, limit)


# ---- Short requests ------------------------------------------------------------------------------


def counts(request, names):
    """Figures that do not depend on the load of the machine."""
    counted = {}
    with measure.body_file(request.body) as body:
        for name in names:
            answer = request.floor if name in FLOORS else request.answer
            arguments = (f"./{name}", request.variables, body, answer)
            counted[name] = {
                "instructions": measure.instructions(*arguments).total,
                "system calls": measure.system_calls(*arguments),
            }
    return counted


def short(options, title, request, counted, more_scripts=()):
    names = [*FLOORS, *SCRIPTS, *more_scripts]
    rounds = options.rounds(1000, 30)
    medians, samples = measured(options, request, names, rounds)
    more = counts(request, names) if counted else {}
    text = f"{rounds} rounds.\n\n{report.processes(medians, more)}"
    return medians, Report(title, text, [], {"samples": samples, "counts": more})


def start(options, title, request, more_scripts=()):
    medians, made = short(options, title, request, True, more_scripts)
    beyond = (medians["tarn"].wall - medians["stub"].wall) * 1e6
    static = medians["tarn-static"].wall / medians["floor"].wall
    return medians, made._replace(
        targets=[
            Target("tarn beyond stub", beyond, 20, " µs"),
            Target("tarn-static, × floor", static, 0.85),
        ]
    )


def w1(options):
    medians, made = start(options, "a GET with 3 fields", bodies.query(), ["tarn-musl"])
    counted = made.data["counts"]
    wall = medians["tarn-musl"].wall / medians["floor"].wall
    share = counted["tarn-musl"]["instructions"] / counted["floor"]["instructions"]
    size = os.path.getsize(os.path.join(measure.PROGRAMS, "greet-musl")) / 1000
    return made._replace(
        targets=[
            *made.targets,
            Target("tarn-musl, × floor, on a virtual machine", wall, 0.3),
            Target("tarn-musl, instructions, × floor's", share, 0.2),
            Target("README's script with musl", size, 80, " KB"),
        ]
    )


def w2(options):
    return start(options, "a POST with 3 fields", bodies.form())[1]


def w3(options):
    title = "an upload of 2 fields and a file of 4 KiB"
    medians, made = short(options, title, bodies.small_upload(), counted=False)
    return made._replace(targets=[times_floor(medians, 1.2)])


# ---- Growth --------------------------------------------------------------------------------------


def growing(options, title, unit, make, sizes):
    """Medians by size, and the report. `sizes` has (size, words, rounds); a quick run leaves out
    those with fewer than ten rounds."""
    texts, data, medians, lines = [], {}, {}, {}
    for size, words, usual in sizes:
        if options.quick and usual < 10:
            continue
        request = make(size)
        rounds = options.rounds(usual, 3)
        medians[size], data[words] = measured(options, request, ["floor", *SCRIPTS], rounds)
        sent = f"a body of {report.mebibytes(len(request.body))} MiB"
        texts.append(f"{words}, {sent}, {rounds} rounds:\n\n{report.processes(medians[size])}")
        for name, sample in medians[size].items():
            lines.setdefault(name, []).append((size, sample.wall))
    lines = {name: points for name, points in lines.items() if len(points) > 1}
    if lines:
        texts.append(report.growth(lines))
    return medians, Report(title, "\n".join(texts), [], data, lines, unit)


def exponent_target(made):
    return Target("tarn, exponent of growth", report.exponent(made.lines["tarn"]), 1.05)


def w4(options):
    sizes = [
        (10**4, "10,000 pairs", 40),
        (10**5, "100,000 pairs", 20),
        (10**6, "1,000,000 pairs", 7),
    ]
    medians, made = growing(options, "URL-encoded pairs", "pairs", bodies.pairs, sizes)
    usual = medians[10**5]
    memory = (usual["tarn"].memory - usual["floor"].memory) / 10**5
    return made._replace(
        targets=[
            times_floor(usual, 5),
            Target("tarn, memory per pair, minus the floor's", memory, 120, " bytes"),
            exponent_target(made),
        ]
    )


def without_fields(options):
    """What a script takes that reads a request without fields."""
    nothing = bodies.get("", [])
    return measured(options, nothing, ["tarn"], options.rounds(200, 20), peers=False)[0]["tarn"]


def w5(options):
    sizes = [(8, "8 MiB", 40), (64, "64 MiB", 20), (256, "256 MiB", 7)]
    title = "an upload of one file"
    medians, made = growing(options, title, "MiB", lambda size: bodies.upload(size * MIB), sizes)
    usual = medians[64]
    base = without_fields(options).memory
    rounds = options.rounds(20, 3)
    piped, samples = from_a_pipe(bodies.upload(64 * MIB), ["floor", *SCRIPTS], rounds)
    table = report.processes(piped)
    return made._replace(
        text=f"{made.text}\n64 MiB from a pipe, {rounds} rounds:\n\n{table}",
        data=made.data | {"64 MiB from a pipe": samples},
        targets=[
            times_floor(usual, 0.6),
            memory_target("tarn", usual, base),
            exponent_target(made),
            Target("tarn from a pipe, × floor", piped["tarn"].wall / piped["floor"].wall, 1.2),
            memory_target("tarn from a pipe", piped, base),
        ],
    )


def from_a_pipe(request, names, rounds):
    """The same as measured(), but another process writes the body to a pipe meanwhile."""
    candidates = [
        measure.Candidate(name, f"|./{name}", request.floor if name in FLOORS else request.answer)
        for name in names
    ]
    with measure.body_file(request.body) as body:
        samples = measure.rounds_of(candidates, request.variables, body, rounds)
    return {name: measure.median(taken) for name, taken in samples.items()}, samples


def memory_target(name, medians, base):
    """Of 64 MiB. The program and the C library take the same memory whatever is sent."""
    memory = (medians["tarn"].memory - base) / (64 * MIB)
    return Target(f"{name}, memory per byte sent, minus an empty request's", memory, 1.02, " bytes")


def w6(options):
    sizes = [
        (10**3, "1,000 parts", 40),
        (10**4, "10,000 parts", 40),
        (10**5, "100,000 parts", 20),
    ]
    medians, made = growing(options, "many small parts", "parts", bodies.parts, sizes)
    return made._replace(targets=[times_floor(medians[10**4], 2.2), exponent_target(made)])


def w7(options):
    sizes = [(16 * MIB, "16 MiB", 20)]
    medians, made = growing(options, "one field of escapes", "bytes", bodies.escapes, sizes)
    usual = medians[16 * MIB]
    return made._replace(
        targets=[
            times_floor(usual, 1.5),
            Target("tarn, memory per byte sent", usual["tarn"].memory / (16 * MIB), 1.6, " bytes"),
        ]
    )


# ---- Worst cases ---------------------------------------------------------------------------------

FRIENDLY = {"one long field": bodies.friendly_form, "one text file": bodies.friendly_upload}
WORST = {
    "nearly a boundary, over and over": bodies.near_misses,
    "dashes, and a boundary of dashes": bodies.dashes,
    "& after &": bodies.ampersands,
    "a value that never ends": bodies.endless,
}


def w8(options):
    rounds = options.rounds(10, 3)
    walls, data = {}, {}
    rows = [["", "wall, ms", "CPU, ms", "× floor", "× friendliest", "peak, MiB"]]
    for name, make in (FRIENDLY | WORST).items():
        request = make(64 * MIB)
        medians, data[name] = measured(options, request, ["floor", "tarn"], rounds)
        tarn, floor = medians["tarn"], medians["floor"]
        walls[name] = tarn.wall
        friendliest = min(walls[name] for name in FRIENDLY if name in walls)
        rows.append(
            [
                name,
                report.milliseconds(tarn.wall),
                report.milliseconds(tarn.cpu),
                f"{tarn.wall / floor.wall:.2f}",
                f"{tarn.wall / friendliest:.2f}" if name in WORST else "",
                report.mebibytes(tarn.memory),
            ]
        )
    text = f"The cost of `tarn` for bodies of 64 MiB, {rounds} rounds.\n\n{report.table(rows)}"
    targets = [Target(f"{name}, × friendliest", walls[name] / friendliest, 3) for name in WORST]
    return Report("worst cases", text, targets, data)


# ---- Hostile input of growing size ---------------------------------------------------------------

KIB64 = 1 << 16
FLOODS = {
    "pairs, k=v": bodies.smallest_pairs,
    "& after &": bodies.ampersands,
    "small parts": bodies.smallest_parts,
    "header lines in one part": bodies.header_lines,
    "nearly a boundary, over and over": bodies.near_misses,
    "% after %": bodies.percents,
    "one long field": bodies.friendly_form,
    "one long file": bodies.friendly_upload,
    "; after ; in the cookies": bodies.semicolons,
}


def w11(options):
    """Processor time and memory per byte sent, minus those of a request without fields."""
    sizes = [KIB64 << step for step in range(0, 5 if options.quick else 11)]
    # Linux allows at most 128 KiB for a variable.
    cookie_sizes = [KIB64 >> step for step in (4, 3, 2, 1, 0)]
    base = without_fields(options)
    heading = ["KiB sent", *(f"{size >> 10:,}" for size in sizes)]
    times, memories = [heading], [heading]
    lines, data, targets = {}, {}, []
    for name, make in FLOODS.items():
        cookies = make is bodies.semicolons
        cells = {}
        for size in cookie_sizes if cookies else sizes:
            rounds = options.rounds(max(3, min(40, (256 << 20) // size)), 3)
            request = make(size)
            medians, samples = measured(options, request, ["tarn"], rounds, peers=False)
            tarn, data[f"{name}, {size}"] = medians["tarn"], samples
            # At least one tick of the clock, and one page.
            time = max(tarn.cpu - base.cpu, 1e-6)
            memory = max(tarn.memory - base.memory, 4096)
            cells[size] = (f"{time / size * 1e9:.1f}", f"{memory / size:.1f}")
            lines.setdefault(name, []).append((size, time))
        if cookies:
            heading = ["KiB of ; in the cookies", *(f"{size >> 10}" for size in cookie_sizes)]
            flood = [heading]
            for what, column in zip(["ns per byte", "bytes per byte"], zip(*cells.values())):
                flood.append([what, *column])
        else:
            times.append([name, *(cells[size][0] for size in sizes)])
            memories.append([name, *(cells[size][1] for size in sizes)])
        large = [point for point in lines[name] if cookies or point[0] >= 1 << 20] or lines[name]
        if len(large) > 1:
            targets.append(Target(f"{name}, exponent of growth", report.exponent(large), 1.05))
    text = (
        "Processor time and memory per byte sent, minus those of a request without fields.\n\n"
        f"Processor time, in ns per byte:\n\n{report.table(times)}\n"
        f"Memory, in bytes per byte:\n\n{report.table(memories)}\n"
        f"Cookies, whose header Linux limits to 128 KiB:\n\n{report.table(flood)}\n"
        "The exponents of growth come from bodies of 1 MiB and more, and from all cookies.\n"
    )
    return Report(
        "hostile input of growing size", text, targets, data, lines, "bytes", "processor time"
    )


# ---- HTML trees ----------------------------------------------------------------------------------


def tree(options, breadth, elements):
    """Seconds to clone a tree and to set one, each with deleting the copy, and all samples.

    Compares processor time, because on a busy machine wall time varies more than the difference
    between two processes. Returns at least one tick of that clock.
    """
    variables = {"ELEMENTS": str(elements), "BREADTH": str(breadth)}
    candidates = [
        measure.Candidate(
            f"tree-{operation}",
            f"./tree-{operation}",
            bodies.page(f"{elements} elements, {elements if operation != 'build' else 0} copied"),
        )
        for operation in ("build", "clone", "set")
    ]
    with measure.body_file(b"") as body:
        samples = measure.rounds_of(candidates, variables, body, options.rounds(40, 5))
    build, clone, put = (measure.median(taken).cpu for taken in samples.values())
    return max(clone - build, 1e-6), max(put - build, 1e-6), samples


def w9(options):
    shapes = [
        ("breadth 10", 10, 10**4),
        ("breadth 10", 10, 10**5),
        ("chain", 1, 10**4),
        ("chain", 1, 10**5),
    ]
    rows = [["", "elements", "clone, delete", "µs per element", "set, delete", "µs per element"]]
    data, each, lines = {}, {}, {}
    for shape, breadth, elements in shapes:
        clone, put, data[f"{shape}, {elements}"] = tree(options, breadth, elements)
        each[shape, elements] = clone / elements * 1e6
        lines.setdefault(f"{shape}, clone", []).append((elements, clone))
        lines.setdefault(f"{shape}, set", []).append((elements, put))
        cells = [
            cell
            for seconds in (clone, put)
            for cell in (f"{report.milliseconds(seconds)} ms", f"{seconds / elements * 1e6:.3f}")
        ]
        rows.append([shape, f"{elements:,}", *cells])
    text = (
        "Processor time of a script that builds and copies a tree, minus that of one that only "
        "builds it.\n\n"
        f"{report.table(rows)}\n{report.growth(lines)}"
    )
    targets = [
        Target(f"{shape}, {elements:,}: clone and delete an element", value, 2.5, " µs")
        for (shape, elements), value in each.items()
    ]
    return Report("HTML trees", text, targets, data, lines, "elements", "processor time")


# ---- Under a web server --------------------------------------------------------------------------


def requests_per_second(address, count):
    """Measures with ab, two requests at a time. ab checks that all answers have the same length."""
    command = ["ab", "-q", "-n", str(count), "-c", "2", address]
    done = subprocess.run(command, capture_output=True, check=True, text=True)
    complete = int(re.search(r"^Complete requests: +(\d+)$", done.stdout, re.MULTILINE)[1])
    failed = int(re.search(r"^Failed requests: +(\d+)$", done.stdout, re.MULTILINE)[1])
    if complete != count or failed or "Non-2xx" in done.stdout:
        raise SystemExit(f"ab: {done.stdout}")
    return float(re.search(r"^Requests per second: +([\d.]+) ", done.stdout, re.MULTILINE)[1])


def check_answer(address, expected):
    with urllib.request.urlopen(address) as answer:
        text = answer.read().decode()
    if expected not in text:
        raise SystemExit(f"{address}: {text}")


def w10(options):
    page = "cold, clear &#38; deep"
    # form-echo is linked statically, like the examples.
    expected = {"floor": "0 bytes", "form-echo": page, "form-echo-shared": page}
    programs = [*expected, "libtarn_here.so", "libtarn_form_here.so"]
    rounds, count = options.rounds(20, 3), 200 if options.quick else 1000
    rates = {name: [] for name in expected}
    with Lighttpd({name: os.path.join(measure.PROGRAMS, name) for name in programs}) as web:
        addresses = {n: f"{web.address()}/{n}?{bodies.FORM}" for n in expected}
        for name, address in addresses.items():
            check_answer(address, expected[name])
        for _ in range(rounds):
            for name, address in addresses.items():
                rates[name].append(requests_per_second(address, count))
    medians = {name: statistics.median(taken) for name, taken in rates.items()}
    rows = [["", "requests per second", "× floor"]]
    rows += [[n, f"{rate:,.0f}", f"{rate / medians['floor']:.2f}"] for n, rate in medians.items()]
    text = f"{rounds} rounds of {count} requests, two at a time.\n\n{report.table(rows)}"
    ratio = medians["form-echo"] / medians["floor"]
    target = Target("form-echo, × floor", ratio, 0.95, at_least=True)
    return Report("a form under lighttpd", text, [target], {"requests per second": rates})


# ---- Other builds of the library -----------------------------------------------------------------

BUILDS = ["stub", "tarn", "tarn-plain", "tarn-apart"]


def w12(options):
    request = bodies.query()
    rounds = options.rounds(3000, 30)
    medians, samples = measured(options, request, BUILDS, rounds, peers=False)
    counted = counts(request, BUILDS)
    rows = [["", "wall, µs", "beyond tarn, µs", "CPU, µs", "instructions", "system calls"]]
    for name, sample in medians.items():
        beyond = (sample.wall - medians["tarn"].wall) * 1e6
        figures = [f"{value:,}" for value in counted[name].values()]
        wall, cpu = sample.wall * 1e6, sample.cpu * 1e6
        rows.append([name, f"{wall:.1f}", f"{beyond:+.1f}", f"{cpu:.1f}", *figures])
    text = (
        "W1 with the library as shipped (tarn), without TARN_HARDENING (tarn-plain), and without\n"
        f"TARN_ONE_MAPPING (tarn-apart). {rounds} rounds.\n\n{report.table(rows)}"
    )
    return Report("other builds of the library", text, [], {"samples": samples, "counts": counted})


ALL = {f.__name__.upper(): f for f in (w1, w2, w3, w4, w5, w6, w7, w8, w9, w10, w11, w12)}
