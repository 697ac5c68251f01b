"""The workloads of libtarn_form, and our targets for them."""

import contextlib
import os
import random
import subprocess
import tempfile

import bodies
import measure
import form_peers
import report
from bodies import KIB, MIB
from report import Report, Target

GIB = 1 << 30
FORM, STATIC = "./form", "./form-static"

# ---- Bodies --------------------------------------------------------------------------------------


def request(content_type, body, fields):
    """`fields` has the sizes of each field's name and value."""
    names, values = sum(name for name, _ in fields), sum(value for _, value in fields)
    answer = f"{len(fields)} fields, names of {names} and values of {values} bytes"
    return bodies.post(content_type, body, [])._replace(answer=bodies.page(answer))


def sizes(entries):
    return [(len(name), len(value)) for name, value in entries]


def multipart(parts, fields, boundary=bodies.BOUNDARY):
    body = b"".join([*parts, bodies.end(boundary)])
    return request(bodies.MULTIPART + boundary, body, fields)


def urlencoded(body, fields):
    return request("application/x-www-form-urlencoded", body, fields)


def small_form():
    return urlencoded(bodies.FORM.encode(), sizes(bodies.FIELDS))


def small_upload():
    fields = bodies.FIELDS[:2]
    parts = [bodies.part(bodies.FIELD.format(name), value.encode()) for name, value in fields]
    parts.append(file_part(bodies.noise(4 * KIB)))
    return multipart(parts, [*sizes(fields), (4, 4 * KIB)])


def file_part(value, boundary=bodies.BOUNDARY):
    header = bodies.FILE.format("file", "a.bin", bodies.BINARY)
    return bodies.part(header, value, boundary)


def upload_of(value, boundary=bodies.BOUNDARY):
    return multipart([file_part(value, boundary)], [(4, len(value))], boundary)


def upload(size):
    """Unlike bodies.upload(), the file contains every byte."""
    block = random.Random(1).randbytes(min(size, MIB))
    return upload_of(block * (size // len(block)))


def pairs(count):
    entries = [(f"field{i}", f"some value & {i}") for i in range(count)]
    body = "&".join(f"{name}=some+value+%26+{i}" for i, (name, _) in enumerate(entries))
    return urlencoded(body.encode(), sizes(entries))


def parts(count, size=300):
    """Parts of this size, with delimiter and header."""
    made, fields = [], []
    for i in range(count):
        name = f"field{i}"
        header = bodies.FIELD.format(name)
        value = bodies.letters(size - len(bodies.part(header, b"")))
        made.append(bodies.part(header, value))
        fields.append((len(name), len(value)))
    return multipart(made, fields)


# ---- Running -------------------------------------------------------------------------------------


def command(*words, pipe=False):
    return ("|" if pipe else "") + "\n".join(words)


def candidate(name, words, answer, pipe=False, every=1):
    return measure.Candidate(name, command(*words, pipe=pipe), answer, every)


def run(made, candidates, body, rounds, folder=None):
    variables = made.variables | ({"FOLDER": folder, "TMPDIR": folder} if folder else {})
    samples = measure.rounds_of(candidates, variables, body, rounds)
    return {name: measure.median(taken) for name, taken in samples.items()}, samples


@contextlib.contextmanager
def folder_for_files():
    """A folder in the build folder, to save files in."""
    with tempfile.TemporaryDirectory(dir=measure.PROGRAMS) as folder:
        yield folder


@contextlib.contextmanager
def file_in(folder, name, content):
    path = os.path.join(folder, name)
    with open(path, "wb") as file:
        file.write(content)
        file.flush()
        os.fsync(file.fileno())
    with open(path, "rb") as file:
        yield path, file.fileno()


def file_system(folder):
    command = ["df", "--output=fstype", folder]
    found = subprocess.run(command, check=True, capture_output=True, text=True)
    return found.stdout.split()[-1]


# ---- One large file ------------------------------------------------------------------------------


def same_bytes(made, value, folder):
    """Checks once that what is saved is the file that was sent."""
    with measure.body_file(made.body) as body:
        for operation in ("write", "save", "cache"):
            words = candidate(operation, [FORM, operation], made.answer)
            run(made, [words], body, 1, folder)
            path = os.path.join(folder, "saved")
            with open(path, "rb") as file:
                if file.read() != value:
                    raise SystemExit(f"scripts/bench: form {operation} wrote other bytes")
            os.unlink(path)


def table(medians):
    rows = [["", "wall, ms", "× floor", "CPU, ms", "× floor", "peak, MiB", "faults"]]
    for name, sample in medians.items():
        floor = medians["floor, pipe" if name.endswith(", pipe") else "floor"]
        cells = [
            report.milliseconds(sample.wall),
            f"{sample.wall / floor.wall:.2f}",
            report.milliseconds(sample.cpu),
            f"{sample.cpu / floor.cpu:.2f}",
            report.mebibytes(sample.memory),
            f"{sample.faults:,.0f}",
        ]
        rows.append([name, *cells])
    return report.table(rows)


def ratio(medians, name, base):
    return medians[name].wall / medians[base].wall


def f1(options):
    rounds = options.rounds(20, 3)
    made = upload(64 * MIB)
    start = made.body.index(b"\r\n\r\n") + 4
    value = made.body[start : start + 64 * MIB]
    whole = bodies.page(f"1 fields, names of 0 and values of {made.size} bytes")
    with folder_for_files() as folder:
        same_bytes(made, value, folder)
        copy = os.path.join(folder, "saved")
        with file_in(folder, "body", made.body) as (_, body), file_in(
            folder, "file", value
        ) as file:
            with_sync = 'cp "$0" "$1" && sync "$1"'
            candidates = [
                candidate("floor", ["./floor"], made.floor),
                candidate("skip", [FORM, "skip"], made.answer),
                candidate("block", [FORM, "block"], made.answer),
                candidate("raw body", [FORM, "body"], whole),
                candidate("write", [FORM, "write"], made.answer),
                candidate("cp", ["/bin/cp", file[0], copy], ""),
                candidate("save", [FORM, "save"], made.answer),
                candidate("save, not durable", [FORM, "cache"], made.answer),
                candidate("cp, sync", ["/bin/sh", "-c", with_sync, file[0], copy], ""),
            ]
            for name in ("floor", "skip", "write", "save"):
                words = ["./floor"] if name == "floor" else [FORM, name]
                answer = made.floor if name == "floor" else made.answer
                candidates.append(candidate(f"{name}, pipe", words, answer, pipe=True))
            medians, samples = run(made, candidates, body, rounds, folder)
        kind = file_system(folder)
    text = (
        f"A file part of 64 MiB, {rounds} rounds. The file system is {kind}. `write` writes to a "
        "file that the\nscript opened, `save` is `TarnFormField_save()`, which ends when the file "
        "is on the disk. `save, not\ndurable` ends before that. `cp, sync` is `cp FILE COPY && "
        "sync COPY`.\n\n"
        f"{table(medians)}"
    )
    targets = [
        *(Target(f"{n}, × floor", ratio(medians, n, "floor"), 0.6) for n in ("skip", "block")),
        *(Target(f"{n}, × floor", ratio(medians, n, "floor"), 0.6) for n in ("write", "save")),
        Target("write, × cp", ratio(medians, "write", "cp"), 1.3),
        Target("save, × cp", ratio(medians, "save", "cp"), 1.3),
        Target("save, × cp and sync", ratio(medians, "save", "cp, sync"), 1.3),
    ]
    name = "save, not durable"
    targets += [
        Target(f"{name}, × floor", ratio(medians, name, "floor"), 0.6),
        Target(f"{name}, × cp", ratio(medians, name, "cp"), 1.3),
    ]
    for name in ("skip", "write", "save"):
        value = ratio(medians, f"{name}, pipe", "floor, pipe")
        targets.append(Target(f"{name} from a pipe, × floor from a pipe", value, 0.8))
    return Report("a file of 64 MiB", text, targets, samples)


# ---- Many fields ---------------------------------------------------------------------------------


def f2(options):
    rounds = options.rounds(40, 3)
    texts, targets, data = [], [], {}
    for title, count, made in (
        ("100,000 URL-encoded fields", 10**5, pairs(10**5)),
        ("10,000 parts of 300 bytes", 10**4, parts(10**4)),
    ):
        candidates = [
            candidate("floor", ["./floor"], made.floor),
            candidate("text", [FORM, "text"], made.answer),
            candidate("load", [FORM, "load"], made.answer),
            candidate("load, static", [STATIC, "load"], made.answer),
        ]
        with measure.body_file(made.body) as body:
            medians, data[title] = run(made, candidates, body, rounds)
        sent = report.mebibytes(made.size)
        texts.append(f"{title}, a body of {sent} MiB, {rounds} rounds:\n\n{table(medians)}")
        kept = sum(int(made.answer.split()[i]) for i in (6, 10))
        more = (medians["load"].memory - medians["text"].memory - kept) / count
        targets += [
            Target(f"{title}: {n}, × floor", ratio(medians, n, "floor"), 2)
            for n in ("text", "load")
        ]
        targets.append(Target(f"{title}: memory beyond name and value", more, 48, " bytes each"))
    text = (
        "`text` reads each value as a text; `load` keeps all, and looks up three by name.\n\n"
        + "\n".join(texts)
    )
    return Report("many fields", text, targets, data)


# ---- Memory --------------------------------------------------------------------------------------


def f3(options):
    """A body that is a hole in a file takes no memory, so only the script's counts."""
    size = (1 if options.quick else 10) * GIB
    rounds = options.rounds(3, 1)
    nothing = bodies.get("", [])
    empty = bodies.page("0 fields, names of 0 and values of 0 bytes")
    with measure.body_file(b"") as body:
        candidates = [
            candidate("smallest script", ["./floor"], nothing.floor),
            candidate("form without fields", [FORM, "text"], empty),
        ]
        medians, samples = run(nothing, candidates, body, rounds)
    head, tail = file_part(b"")[:-2], b"\r\n" + bodies.end()
    length = len(head) + size + len(tail)
    made = multipart([], [(4, size)])
    made.variables["CONTENT_LENGTH"] = str(length)
    whole = bodies.page(f"1 fields, names of 0 and values of {length} bytes")
    with measure.sparse_file(head, size, tail) as body:
        candidates = [
            candidate("skip", [FORM, "skip"], made.answer),
            candidate("block", [FORM, "block"], made.answer),
            candidate("raw body", [FORM, "body"], whole),
            candidate("skip, pipe", [FORM, "skip"], made.answer, pipe=True),
        ]
        large, more = run(made, candidates, body, rounds)
    medians |= large
    smallest = medians["smallest script"].memory
    rows = [["", "wall, s", "GB/s", "peak, MiB", "beyond the smallest, MiB"]]
    for name, sample in medians.items():
        speed = f"{length / sample.wall / 1e9:.1f}" if name in large else ""
        beyond = f"{(sample.memory - smallest) / MIB:.2f}"
        rows.append([name, f"{sample.wall:.3f}", speed, report.mebibytes(sample.memory), beyond])
    text = f"A body of {size // GIB} GiB, a hole in a file.\n\n{report.table(rows)}"
    targets = [
        Target(f"{name}, memory beyond the smallest script", (s.memory - smallest) / MIB, 2, " MiB")
        for name, s in large.items()
    ]
    return Report("memory for a body of 10 GiB", text, targets, samples | more)


# ---- Worst cases ---------------------------------------------------------------------------------


def near_misses(size):
    near = f"\r\n--{bodies.BOUNDARY[:-1]}".encode()
    return upload_of(near * (size // len(near)))


def false_heads(size):
    """The bytes at which the search looks, over and over, without the ones between."""
    last = bodies.BOUNDARY[-1]
    piece = f"\r\n--{'x' * (len(bodies.BOUNDARY) - 1)}{last}".encode()
    return upload_of(piece * (size // len(piece)))


def dashes(size):
    return upload_of(b" " + b"-" * size, "-" * 70)


def line_ends(size):
    return upload_of(b"\r\n" * (size // 2))


def line_ends_and_dashes(size):
    """Each line may be the delimiter up to its last dash."""
    near = b"\r\n--" + b"-" * 67
    return upload_of(near * (size // len(near)), "-" * 69 + "x")


def one_header(size):
    part = f'--{bodies.BOUNDARY}\r\nContent-Disposition: form-data; name="a"\r\nX: '.encode()
    return multipart([part, b"x" * size, b"\r\n\r\nvalue\r\n"], [(1, 5)])


def header_lines(size):
    part = f'--{bodies.BOUNDARY}\r\nContent-Disposition: form-data; name="a"\r\n'.encode()
    return multipart([part, b"X-Flood: y\r\n" * (size // 12), b"\r\nvalue\r\n"], [(1, 5)])


def long_name(size):
    name = "%22" * (size // 3)
    header = f'--{bodies.BOUNDARY}\r\nContent-Disposition: form-data; name="{name}"\r\n\r\n'
    return multipart([header.encode(), b"value\r\n"], [(size // 3, 5)])


def preamble(size):
    near = f"\r\n--{bodies.BOUNDARY[:-1]}".encode()
    made = multipart([near * (size // len(near)) + b"\r\n", file_part(b"value")], [(4, 5)])
    return made


def preamble_of_dashes(size):
    """Almost every place has the ends of the boundary."""
    near = b"-" * 71 + b"x"
    part = file_part(b"value", "-" * 70)
    return multipart([near * (size // len(near)) + b"\r\n", part], [(4, 5)], "-" * 70)


def preamble_like_the_end(size):
    """The end of the boundary begins like every place."""
    boundary = "-" * 68 + "x-"
    return multipart([b"-" * size + b"\r\n", file_part(b"value", boundary)], [(4, 5)], boundary)


def preamble_of_runs(size):
    """The start of the boundary, and no telling how much of it."""
    chance = random.Random(1)
    runs = b"".join(b"-" * chance.randrange(16, 26) + b"x" for _ in range(50000))
    near = (runs * (size // len(runs) + 1))[:size]
    return multipart([near + b"x\r\n", file_part(b"value", "-" * 70)], [(4, 5)], "-" * 70)


def epilogue(size):
    made = upload_of(b"value")
    return request(made.variables["CONTENT_TYPE"], made.body + bodies.letters(size), [(4, 5)])


def smallest_parts(size):
    piece = bodies.part(bodies.FIELD.format("f"), b"v")
    count = size // len(piece)
    return multipart([piece * count], [(1, 1)] * count)


def smallest_pairs(size):
    count = size // 4
    return urlencoded(b"&".join([b"k=v"] * count), [(1, 1)] * count)


def percents(size):
    return urlencoded(b"text=" + b"%%4" * (size // 3), [(4, size // 3 * 3)])


def escapes(size):
    return urlencoded(b"text=" + b"%41" * (size // 3), [(4, size // 3)])


# The friendliest first.
FILES = {
    "a text file": lambda size: upload_of(bodies.letters(size)),
    "a picture": upload,
    "nearly a delimiter, over and over": near_misses,
    "what the search looks at, over and over": false_heads,
    "dashes, and a boundary of dashes": dashes,
    "lines of dashes, and a boundary of dashes": line_ends_and_dashes,
    "CR LF, over and over": line_ends,
    "a preamble of nearly delimiters": preamble,
    "a preamble of dashes, and a boundary of dashes": preamble_of_dashes,
    "a preamble of dashes, and a boundary that ends in x-": preamble_like_the_end,
    "a preamble of runs of dashes, and a boundary of dashes": preamble_of_runs,
    "an epilogue": epilogue,
    "one long header": one_header,
    "many headers": header_lines,
    "a long name": long_name,
    "smallest parts": smallest_parts,
}
TEXTS = {
    "one long field": lambda size: urlencoded(b"text=" + bodies.letters(size), [(4, size)]),
    "% and no digits, over and over": percents,
    "escapes": escapes,
    "& after &": lambda size: urlencoded(b"&" * size, []),
    "smallest pairs": smallest_pairs,
}
# What must cost at most three times as much as the first of its list, byte for byte.
LIKE_THE_FRIENDLIEST = {
    "a picture",
    "nearly a delimiter, over and over",
    "what the search looks at, over and over",
    "dashes, and a boundary of dashes",
    "lines of dashes, and a boundary of dashes",
    "CR LF, over and over",
    "a preamble of nearly delimiters",
    "a preamble of dashes, and a boundary of dashes",
    "a preamble of dashes, and a boundary that ends in x-",
    "a preamble of runs of dashes, and a boundary of dashes",
    "an epilogue",
}
AT_ONCE = 16 * MIB  # so much is read in one process, if need be in several forms


def cost(options, made):
    """The processor time for one form, and all samples."""
    times = max(1, AT_ONCE // made.size)
    words = candidate("form", [FORM, "block", str(times)], made.answer)
    with measure.body_file(made.body) as body:
        medians, samples = run(made, [words], body, options.rounds(5, 3))
    return medians["form"].cpu / times, samples["form"]


def megabyte_of_header(options):
    """The wall time of a process, divided by that for a file of the same size; and all samples."""
    walls, samples = [], {}
    for name in ("one long header", "a text file"):
        made = FILES[name](MIB)
        with measure.body_file(made.body) as body:
            words = [candidate(name, [FORM, "block"], made.answer)]
            medians, taken = run(made, words, body, options.rounds(100, 20))
        walls.append(medians[name].wall)
        samples |= taken
    return walls[0] / walls[1], samples


def f4(options):
    """Processor time for one form."""
    steps = [64 * KIB << step for step in range(0, 5 if options.quick else 11)]
    heading = ["KiB sent", *(f"{size >> 10:,}" for size in steps), "× friendliest"]
    texts, lines, data, targets = [], {}, {}, []
    for title, group in (("multipart/form-data", FILES), ("URL-encoded", TEXTS)):
        rows = [heading]
        friendliest = None
        for name, make in group.items():
            lines[name] = []
            for size in steps:
                seconds, data[f"{name}, {size}"] = cost(options, make(size))
                lines[name].append((size, seconds))
            friendliest = friendliest or lines[name][-1][1]
            worst = lines[name][-1][1] / friendliest
            cells = [f"{seconds / size * 1e9:.2f}" for size, seconds in lines[name]]
            rows.append([name, *cells, f"{worst:.2f}"])
            exponent = report.exponent(lines[name])
            targets.append(Target(f"{name}, exponent of growth", exponent, 1.05))
            if name in LIKE_THE_FRIENDLIEST:
                targets.append(Target(f"{name}, × friendliest", worst, 3))
        texts.append(f"{title}, in ns per byte:\n\n{report.table(rows)}")
    header, data["1 MiB"] = megabyte_of_header(options)
    targets.append(Target("a process: a header of 1 MiB, × a text file of 1 MiB", header, 3))
    text = (
        "Processor time to read every value. A process reads 16 MiB, if need be as several forms. "
        "The last\ncolumn compares the largest bodies with the first line.\n\n" + "\n".join(texts)
    )
    title = "hostile forms of growing size"
    return Report(title, text, targets, data)


# ---- Other libraries -----------------------------------------------------------------------------

# What is read and how; how many rounds; how often in one process, by slow readers and fast ones.
COMPARED = {
    "3 URL-encoded fields": (small_form, "text", 30, 1000, 30000),
    "2 fields and a file of 4 KiB": (small_upload, "text", 30, 1000, 10000),
    "100,000 URL-encoded fields": (lambda: pairs(10**5), "text", 9, 4, 40),
    "10,000 parts of 300 bytes": (lambda: parts(10**4), "text", 9, 5, 100),
    "a file of 64 MiB, skipped": (lambda: upload(64 * MIB), "skip", 7, 4, 20),
    "a file of 64 MiB, written": (lambda: upload(64 * MIB), "write", 7, 4, 12),
}
READERS = ["Tarn", *form_peers.COMMANDS]
FAST = {"Tarn", "Go", "libmicrohttpd"}


def reader(name, operation, answer, times=1):
    if name == "Tarn":
        return candidate(name, [FORM, operation, str(times)], answer)
    words = form_peers.command(name, operation, times)
    return candidate(name, words, form_peers.answer(name, answer, times))


def compared(options):
    """Medians and samples for each workload: of processes that read a form once, and several times.

    With them comes how often in the latter case, by name."""
    for title, (make, operation, usual, slow, fast) in COMPARED.items():
        rounds = options.rounds(usual, 2)
        made = make()
        made = made._replace(variables=made.variables | form_peers.variables(operation))
        with folder_for_files() as folder, measure.body_file(made.body) as body:
            once = [reader(name, operation, made.answer) for name in READERS]
            medians, samples = run(made, once, body, rounds, folder)
            often = {name: fast if name in FAST else slow for name in READERS}
            again = [reader(name, operation, made.answer, often[name]) for name in READERS]
            many, more = run(made, again, body, min(rounds, 3), folder)
        yield title, made, often, (medians, samples), (many, more)


def first(title, values):
    """The target to be first; the smallest value is the best."""
    others = min(value for name, value in values.items() if name != "Tarn")
    return Target(f"{title}: Tarn, × the fastest other", values["Tarn"] / others, 1)


def f5(options):
    """One more form is given in processor time: it depends less on what else the machine does."""
    heading = ["", *READERS]
    walls, cpus, peaks, each, speeds = [heading], [heading], [heading], [heading], [heading]
    targets, data = [], {}
    for title, made, often, (medians, samples), (many, more) in compared(options):
        data[title] = {"once": samples, "often": more, "times": often}
        wall = {name: medians[name].wall for name in READERS}
        cpu = {name: medians[name].cpu for name in READERS}
        # At least one tick of the clock for all of them.
        one = {n: max(many[n].cpu - cpu[n], 1e-6) / (often[n] - 1) for n in READERS}
        walls.append([title, *map(report.milliseconds, wall.values())])
        cpus.append([title, *map(report.milliseconds, cpu.values())])
        peaks.append([title, *(report.mebibytes(medians[name].memory) for name in READERS)])
        each.append([title, *(f"{seconds * 1e6:,.1f}" for seconds in one.values())])
        speeds.append([title, *(f"{made.size / seconds / 1e6:,.0f}" for seconds in one.values())])
        targets += [
            first(f"{title}, a process, wall", wall),
            first(f"{title}, a process, CPU", cpu),
            first(f"{title}, one more form, CPU", one),
        ]
    sections = {
        "Wall time of a process that reads one form, in ms": walls,
        "Its processor time, in ms": cpus,
        "Its peak memory, in MiB": peaks,
        "Processor time for one more form in the same process, in µs": each,
        "The same as MB/s": speeds,
    }
    text = "\n".join(f"{what}:\n\n{report.table(rows)}" for what, rows in sections.items())
    return Report("other form readers", text, targets, data)


ALL = {f.__name__.upper(): f for f in (f1, f2, f3, f4, f5)}
WITH_PEERS = ["F5"]
