"""Breaks src/ in one place at a time and shows which tests notice.

usage: scripts/mutate [--room ROOM] [--seed N] [--count N] [--jobs N] [--show]

  --room ROOM   only this folder of src/
  --seed N      which places are drawn (1); the same seed draws the same places of the same sources
  --count N     how many mutants that change the compiled code are tried (20)
  --jobs N      how many at a time, each in a copy of the sources in build/mutate (all processors)
  --show        only print the places that would be drawn first

A mutant is one changed operator, constant, condition or statement outside of log statements. One that does not
compile, or compiles to the same code, is replaced by the next one drawn. Unit and scenario tests run first, the
system tests only for what survives those. Exit status 0, also when mutants survive; 2 for a wrong option, 1 when
the unchanged sources do not build and pass.
"""

import argparse
import concurrent.futures
import hashlib
import os
import pathlib
import queue
import random
import re
import shutil
import subprocess
import sys
import threading

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "mutate"
ROOMS = sorted(p.name for p in (ROOT / "src").iterdir() if p.is_dir() and p.name != "proto")

# Test programs in the order in which they are tried; the first is the one of the mutated room.
UNIT = {"nmea": "NmeaTest", "input": "InputTest", "platform": "PlatformTest", "publish": "PublishTest", "app": "AppTest"}
FAST = ["NmeaTest", "InputTest", "PlatformTest", "SignalsTest", "PublishTest", "AppTest", "scenario_tests", "TapTest",
        "LoggingTest", "TransportTest"]
SYSTEM = ["satnavd", "SatnavdTest", "SatnavdTlsTest", "SatnavdControlTest", "SatnavdExposureTest", "ToolsTest",
          "dbc_reader"]
FAST_LIMIT_S = 90
SYSTEM_LIMIT_S = 400

SWAPS = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">="], ">": [">=", "<="], "<=": ["<", ">"], ">=": [">", "<"],
    "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
    "&": ["|"], "|": ["&"], "<<": [">>"], ">>": ["<<"],
    "+=": ["-="], "-=": ["+="], "|=": ["&="], "&=": ["|="], "^=": ["|="],
}
BINARY = re.compile(r"(?<= )(==|!=|<=|>=|&&|\|\||<<|>>|\+=|-=|\|=|&=|\^=|[<>+\-*/%&|])(?= )")
STEP = re.compile(r"\+\+|--")
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f']+|\d[\d']*)([uUlL]*)(?![\w.'])")
TRUTH = re.compile(r"\b(true|false)\b")
CONDITION = re.compile(r"\b(if|while) \(")
NEGATION = re.compile(r"(?<=[ (])!(?=[\w(])")
STATEMENT = re.compile(r"^ {2,}(?!return\b|using\b|case\b|break\b|continue\b|static\b|const\b|constexpr\b|else\b|for\b|if\b)"
                       r"(?:[\w.\->:\[\]()*&]+ [-+|&^]?= .*|(?:\+\+|--)[\w.\->]+|[\w.:\->\[\]()*]+\(.*\));$")


def masked(text):
    """The text with comments, literals, preprocessor lines, assertions and log statements blanked, lengths kept."""
    def blank(match):
        return re.sub(r"[^\n]", " ", match[0])
    text = re.sub(r'//[^\n]*|/\*.*?\*/|R"\((?:.*?)\)"|"(?:\\.|[^"\\\n])*"|(?<![0-9A-Fa-f])\'(?:\\.|[^\'\\\n])+\'',
                  blank, text, flags=re.S)
    text = re.sub(r"^[ \t]*#[^\n]*(?:\\\n[^\n]*)*", blank, text, flags=re.M)
    text = re.sub(r"^\w[^\n]*\b(?:log[A-Z]\w*|log|print_\w+)\([^;{]*\{$.*?^\}$", blank, text, flags=re.M | re.S)
    text = re.sub(r"^[^\n]* virtual [^\n]* = 0;$", blank, text, flags=re.M)
    out = list(text)
    for match in re.finditer(r"\b(?:LOG\.\w+|complain|static_assert|debugIt|logDispatch|logCommands|template|hexDumpMessage) ?[(<]", text):
        opening = text[match.end() - 1]
        closing = {"(": ")", "<": ">"}[opening]
        depth, i = 1, match.end()
        while i < len(text) and depth > 0:
            depth += (text[i] == opening) - (text[i] == closing)
            i += 1
        for k in range(match.start(), i):
            if out[k] != "\n":
                out[k] = " "
    return "".join(out)


def matching(text, start):
    """Index of the parenthesis that closes the one at `start`."""
    depth = 0
    for i in range(start, len(text)):
        depth += (text[i] == "(") - (text[i] == ")")
        if depth == 0:
            return i
    return len(text)


def places(path):
    """Every mutation of a file: (begin, end, new text)."""
    text = path.read_text()
    code = masked(text)
    found = []
    for match in BINARY.finditer(code):
        found += [(match.start(), match.end(), new) for new in SWAPS[match[1]]]
    for match in STEP.finditer(code):
        found.append((match.start(), match.end(), "--" if match[0] == "++" else "++"))
    for match in NUMBER.finditer(code):
        value = int(match[1].replace("'", ""), 16 if match[1].startswith("0x") else 10)
        for new in {value + 1, max(value - 1, 0)} - {value}:
            found.append((match.start(), match.end(), f"{new:#x}" if match[1].startswith("0x") else str(new)))
    for match in TRUTH.finditer(code):
        found.append((match.start(), match.end(), "false" if match[0] == "true" else "true"))
    for match in CONDITION.finditer(code):
        begin = match.end() - 1
        end = matching(code, begin)
        condition = text[begin + 1:end]
        if ";" not in condition and code[begin + 1:end].strip(" !") not in ("", "log"):
            found.append((begin + 1, end, f"!({condition})"))
    for match in NEGATION.finditer(code):
        found.append((match.start(), match.end(), ""))
    at = 0
    for line in code.split("\n"):
        if STATEMENT.match(line) and line.count("(") == line.count(")"):
            begin = at + len(line) - len(line.lstrip())
            found.append((begin, at + len(line), ";"))
        at += len(line) + 1
    return text, found


class Mutant:
    def __init__(self, path, begin, end, new):
        self.path, self.begin, self.end, self.new = path, begin, end, new
        self.text = (ROOT / path).read_text()
        self.line = self.text.count("\n", 0, begin) + 1
        self.room = path.split("/")[1]

    def changed(self):
        return self.text[:self.begin] + self.new + self.text[self.end:]

    def __str__(self):
        old = " ".join(self.text[self.begin:self.end].split())
        source = self.text.split("\n")[self.line - 1].strip()
        return f"{self.path}:{self.line}: '{old}' -> '{self.new if self.new != ';' else ''}'   {source}"


def draw(room, seed):
    """All mutants of the room in the order of the seed."""
    folders = [room] if room else ROOMS
    mutants = []
    for folder in folders:
        for path in sorted((ROOT / "src" / folder).rglob("*")):
            if path.suffix in (".cpp", ".h"):
                name = str(path.relative_to(ROOT))
                mutants += [(name, *place) for place in places(path)[1]]
    random.Random(seed).shuffle(mutants)
    for mutant in mutants:
        yield Mutant(*mutant)


class Bench:
    """A copy of the sources, with a build folder inside."""

    def __init__(self, number):
        self.tree = WORK / f"tree{number}"
        self.build = self.tree / "build" / "t"  # so deep, and inside, that the compiler cache knows both

    def prepare(self):
        names = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, check=True,
                               capture_output=True, text=True).stdout.split("\n")
        for name in filter(None, names):
            source, copy = ROOT / name, self.tree / name
            if not source.is_file():
                continue
            if copy.is_file() and copy.read_bytes() == source.read_bytes():
                continue
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(source, copy, follow_symlinks=False)
        flags = ["-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1", "-DSATNAVD_BENCH=OFF"]
        self.run(["cmake", "-S", str(self.tree), "-B", str(self.build), "-G", "Ninja", *flags], 300)
        built, output = self.make(FAST + SYSTEM, 3000)
        if not built:
            sys.exit(f"mutate: the unchanged sources do not build\n{output}")

    def run(self, command, limit):
        """(it succeeded, its output); one that does not end in time has failed."""
        environment = dict(os.environ, CCACHE_BASEDIR=str(self.tree), CCACHE_NOHASHDIR="1")
        with subprocess.Popen(command, cwd=self.build if self.build.is_dir() else ROOT, env=environment, text=True,
                              errors="replace", stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              start_new_session=True) as process:
            try:
                output, _ = process.communicate(timeout=limit)
                return process.returncode == 0, output
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, 9)
                process.communicate()
                return False, "it did not end"

    def make(self, targets, limit=900):
        return self.run(["ninja", "-j1", *targets], limit)

    def objects(self):
        """What the compiler made of the sources."""
        digest = hashlib.sha256()
        for path in sorted(self.build.glob("src/**/*.o")):
            if not path.name.startswith("Version."):  # it has the time of its build
                digest.update(path.read_bytes())
        return digest.hexdigest()

    def first_failure(self, room):
        """Which test notices, or nothing."""
        first = UNIT.get(room, "scenario_tests")
        for program in [first] + [each for each in FAST if each != first]:
            built, output = self.make([program])
            if not built:
                return "the build of " + program
            passed, output = self.run([f"tests/{program}", "--gtest_fail_fast", "--gtest_brief=1"], FAST_LIMIT_S)
            if not passed:
                return failed_case(output) or f"{program} ({output.strip()[-40:]})"
        built, output = self.make(SYSTEM)
        if not built:
            return "the build of the programs"
        passed, output = self.run(["ctest", "-L", "system", "--stop-on-failure", "--repeat", "until-pass:2"], SYSTEM_LIMIT_S)
        if passed:
            return None
        failed = re.search(r"Test +#\d+: (\S+) \.+ *(?:\*\*\*\w+|Subprocess)", output)
        return "system: " + (failed[1] if failed else output.strip()[-60:])

    def judge(self, mutant):
        """None for a mutant that is none; else what noticed it ("" for nothing)."""
        path = self.tree / mutant.path
        before = self.objects()
        path.write_text(mutant.changed())
        try:
            compiled, _ = self.make(["src/all"])
            if not compiled or self.objects() == before:
                return None
            return self.first_failure(mutant.room) or ""
        finally:
            path.write_text(mutant.text)
            self.make(["src/all"])


def failed_case(output):
    failed = re.search(r"\[  FAILED  \] ([\w/]+\.[\w/]+)", output)
    return failed[1] if failed else None


def positive(text):
    if not re.fullmatch("[1-9][0-9]{0,4}", text):
        raise argparse.ArgumentTypeError(f"'{text}' is not a number from 1 to 99999")
    return int(text)


def main():
    parser = argparse.ArgumentParser(prog="mutate", usage=__doc__.split("\n\n")[1].removeprefix("usage: "), add_help=False)
    parser.add_argument("--room", choices=ROOMS)
    parser.add_argument("--seed", type=positive, default=1)
    parser.add_argument("--count", type=positive, default=20)
    parser.add_argument("--jobs", type=positive, default=os.cpu_count())
    parser.add_argument("--show", action="store_true")
    parser.add_argument("--help", action="store_true")
    options = parser.parse_args()
    if options.help:
        print(__doc__.strip())
        return
    drawn = draw(options.room, options.seed)
    if options.show:
        for _, mutant in zip(range(options.count), drawn):
            print(mutant)
        return

    benches = queue.Queue()
    for number in range(options.jobs):
        bench = Bench(number)
        bench.prepare()
        if number == 0 and (failure := bench.first_failure("nmea")):
            sys.exit(f"mutate: {failure} fails without a change")
        benches.put(bench)
    lock = threading.Lock()
    results = []

    def try_next():
        while True:
            with lock:
                mutant = next(drawn, None) if len(results) < options.count else None
            if mutant is None:
                return
            bench = benches.get()
            try:
                noticed = bench.judge(mutant)
            finally:
                benches.put(bench)
            with lock:
                if noticed is None or len(results) == options.count:
                    continue
                results.append((mutant, noticed))
                print(f"{len(results):3} {noticed or 'SURVIVED':60} {mutant}", flush=True)

    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        for future in [pool.submit(try_next) for _ in range(options.jobs)]:
            future.result()
    survivors = [mutant for mutant, noticed in results if not noticed]
    by_system = sum(noticed.startswith("system: ") for _, noticed in results)
    print(f"{len(results)} mutants of seed {options.seed}: {len(results) - by_system - len(survivors)} noticed by unit and "
          f"scenario tests, {by_system} by system tests, {len(survivors)} survived")
    for mutant in survivors:
        print("  " + str(mutant))


if __name__ == "__main__":
    main()
