#!/usr/bin/env python3
"""Which faults would the tests let through? Mutation analysis of the library.

Plants one small fault (a mutant) at a time in a library source file: a comparison turned round, && and ||
swapped, true and false swapped, + and - swapped, a negation dropped, a call statement left out. Rebuilds
only the library (every test links it as a shared library, so none needs a rebuild), runs every test, and
records which cases fail. A mutant that no case notices is a fault the suite would let through; a mutant
that one case alone notices says what that case is for.

Usage: scripts/mutation.py BUILD_DIR [--sample N] [--seed S] [--files REGEX] [--covered GCOVR_JSON]
                                      [--select PER_TEST_JSON] [--exclude REGEX] [--survivors EARLIER_TSV]
                                      [--caught EARLIER_TSV REGEX] [--out TSV]
BUILD_DIR is a configured build of this checkout (a Debug build at -O0 rebuilds fastest). Run it in a
checkout of its own (git worktree add): it edits the sources while it runs, restores every file after its
mutants, and refuses to start on library sources with uncommitted changes. --covered (scripts/coverage.sh's
coverage.json) keeps to lines the suite reaches: a mutant on a line no test runs survives by construction.
--select (scripts/coverage-per-test.py's JSON) runs for each mutant only the cases that run its line, and
every case the JSON does not know: a case that never runs the line sees the fault only through what an
earlier case of its process left behind, so the outcome is nearly always the same and a mutant costs a
fraction of the suite. --survivors tries again what an earlier run's tests let through, say once tests
were added for it. --caught tries again what an earlier run caught only with cases that REGEX matches, say
once those cases were merged or shortened: each must still be caught, or the run fails. --exclude leaves out
the tests and cases it matches, say the slow tool runs when the question is which unit tests a fault needs.
Each run gives the tests a temp folder of its own, so two runs side by side do not share files.

Writes TSV: id, file:line, operator, outcome (killed, survived, nobuild, timeout), the cases that failed.
Prints the score (killed of killed and survived), every survivor, and per case the mutants it alone kills.
"""
import argparse, atexit, collections, concurrent.futures, json, os, random, re, shutil, subprocess, sys, tempfile
import time

from gtest_binary import is_gtest, list_cases

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SOURCES = ("ModelCore", "foundation", "platform")
# A mutant may make a test loop: each test binary gets this many times its clean run, and never fewer seconds
# than the floor.
TIME_FACTOR, TIME_FLOOR = 5, 10

# (name, pattern, replacement): each match on a line is one mutant. Binary operators are written with a
# space either side (clang-format), which keeps templates, shifts and arrows out.
OPERATORS = [
    ("eq", r" == ", " != "), ("ne", r" != ", " == "),
    ("lt", r" < ", " >= "), ("ge", r" >= ", " < "), ("gt", r" > ", " <= "), ("le", r" <= ", " > "),
    ("and", r" && ", " || "), ("or", r" \|\| ", " && "),
    ("true", r"\btrue\b", "false"), ("false", r"\bfalse\b", "true"),
    ("plus", r" \+ ", " - "), ("minus", r" - ", " + "), ("inc", r" \+= ", " -= "), ("dec", r" -= ", " += "),
    ("not", r"(?<=\()!(?!=)", ""),
]
# A GoogleTest binary with no other test property than these is run directly; any other test goes through
# ctest, which applies what its properties ask (an expected failure, an output to match).
DIRECT_PROPERTIES = {"ENVIRONMENT", "WORKING_DIRECTORY", "_BACKTRACE_TRIPLES"}
# A whole line that is one call statement: left out, it is the "forgot to call" fault.
CALL = re.compile(r"^(\s*)(?!return\b|delete\b|throw\b|case\b|else\b)[\w:.>\-\[\]*&]+(<[^;]*>)?\(.*\);\s*$")


def code_part(line):
    """The line up to a // comment, with string and character literals blanked so nothing inside matches."""
    out, quote, i = [], None, 0
    while i < len(line):
        c = line[i]
        if quote:
            if c == "\\":
                out.append("  ")
                i += 2
                continue
            if c == quote:
                quote = None
            out.append(c if quote is None else " ")
        elif c in "\"'":
            quote = c
            out.append(c)
        elif line.startswith("//", i):
            break
        else:
            out.append(c)
        i += 1
    return "".join(out)


def sites(path, covered):
    """Every mutant of one file: (line number, operator, mutated line)."""
    found = []
    with open(path) as source:
        lines = source.read().split("\n")
    for number, line in enumerate(lines, 1):
        stripped = line.strip()
        if covered is not None and number not in covered:
            continue
        if not stripped or stripped.startswith(("#", "//", "*", "/*", "static_assert")):
            continue
        code = code_part(line)
        for name, pattern, replacement in OPERATORS:
            for match in re.finditer(pattern, code):
                found.append((number, name, line[: match.start()] + replacement + line[match.end():]))
        call = CALL.match(code)
        if call and code.count("(") == code.count(")"):
            found.append((number, "call", call.group(1) + ";"))
    return found


def covered_lines(report):
    """{absolute path: set of lines run at least once} from a gcovr JSON report."""
    with open(report) as stream:
        data = json.load(stream)
    result = {}
    for entry in data["files"]:
        path = entry["file"] if os.path.isabs(entry["file"]) else os.path.join(ROOT, entry["file"])
        result[os.path.realpath(path)] = {line["line_number"] for line in entry["lines"] if line["count"] > 0}
    return result


class Suite:
    """The build's tests: GoogleTest binaries run directly and read case by case, the rest through ctest."""

    def __init__(self, build, exclude=None):
        self.build = build
        listing = json.loads(
            subprocess.run(["ctest", "--show-only=json-v1"], cwd=build, capture_output=True, text=True).stdout)
        self.units, self.others = [], []
        # Some tests write files of fixed names in the test temp folder: a run beside another gets its own.
        self.env = dict(os.environ, TEST_TMPDIR=tempfile.mkdtemp(prefix="mutation-") + "/")
        atexit.register(shutil.rmtree, self.env["TEST_TMPDIR"], True)
        for test in listing["tests"]:
            name, command = test["name"], test.get("command", [])
            properties = {p["name"]: p["value"] for p in test.get("properties", [])}
            # InstallConsumer builds a host against an installed tree: minutes, and no library logic of its own.
            if name == "InstallConsumer" or (exclude and re.search(exclude, name)):
                continue
            if command and is_gtest(command[0]) and set(properties) <= DIRECT_PROPERTIES:
                env = dict(self.env)
                env.update(v.split("=", 1) for v in properties.get("ENVIRONMENT", []))
                self.units.append((name, command, env, properties.get("WORKING_DIRECTORY", build)))
            else:
                self.others.append(name)
        self.limits = {}
        self.cases = list(self.others)
        for name, command, env, cwd in self.units:
            self.cases += [name + ":" + case for case in list_cases(command, env, cwd)
                           if not (exclude and re.search(exclude, name + ":" + case))]

    def run_unit(self, unit, only=None):
        """(failed cases, timed out) of one binary, of the cases in `only` when given. A case that takes the
        binary down is left out of a run again, so that the cases after it are judged too."""
        name, command, env, cwd = unit
        failed, skipped = set(), []
        for _ in range(4):
            filtered = command + ["--gtest_filter=" + (":".join(only) if only else "*") + "-" + ":".join(skipped)]
            try:
                done = subprocess.run(filtered, env=env, cwd=cwd, capture_output=True, text=True,
                                      errors="replace", timeout=self.limits.get(name))
            except subprocess.TimeoutExpired as expired:
                out = expired.stdout or ""
                out = out.decode(errors="replace") if isinstance(out, bytes) else out
                return failed | self.last_running(name, out), True
            failed |= {name + ":" + m for m in re.findall(r"^\[  FAILED  \] (\S+\.\S+)", done.stdout, re.M)}
            if done.returncode == 0 or "[  PASSED  ]" in done.stdout or "FAILED TEST" in done.stdout:
                break
            down = self.last_running(name, done.stdout)  # died: the case that was running
            failed |= down
            case = next(iter(down)).split(":", 1)[1]
            if "." not in case or "GTEST_FILTER" in env:
                break
            skipped.append(case)
        return failed, False

    @staticmethod
    def last_running(name, out):
        running = re.findall(r"^\[ RUN      \] (\S+)", out, re.M)
        finished = set(re.findall(r"^\[ +(?:OK|FAILED) +\] (\S+)", out, re.M))
        open_cases = [case for case in running if case not in finished]
        return {name + ":" + (open_cases[-1] if open_cases else "(whole binary)")}

    def run(self, selected=None):
        """(every failed case or failed non-GoogleTest test, whether anything timed out), of the cases in
        `selected` when given."""
        failed, timed_out, others = set(), False, None
        names = [n for n in self.others if selected is None or n in selected]
        if names:  # alongside the binaries: the longest of them runs a tool on a large input
            pattern = "^(" + "|".join(re.escape(n) for n in names) + ")$"
            others = subprocess.Popen(["ctest", "-R", pattern, "--timeout", str(TIME_FLOOR * 2)], cwd=self.build,
                                      env=self.env, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        chosen = self.cases if selected is None else selected
        jobs = [(unit, [c.split(":", 1)[1] for c in chosen if c.split(":", 1)[0] == unit[0]]) for unit in self.units]
        jobs = [(unit, only) for unit, only in jobs if only]
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            for cases, late in pool.map(lambda job: self.run_unit(*job), jobs):
                failed |= cases
                timed_out |= late
        if others:
            failed |= set(re.findall(r"^\s*\d+ - (\S+) \(", others.communicate()[0], re.M))
        return failed, timed_out

    def calibrate(self):
        """Runs each test on the unmutated library, which must pass, and sets each binary's time limit from
        that. A test that fails here (one whose binary was never built, say) would count as catching every
        mutant."""
        failed = self.run(set(self.others))[0] if self.others else set()
        for unit in self.units:
            start = time.monotonic()
            failed |= self.run_unit(unit)[0]
            self.limits[unit[0]] = max(TIME_FLOOR, TIME_FACTOR * (time.monotonic() - start))
        if failed:
            sys.exit("the unmutated build fails: " + ", ".join(sorted(failed)))


def cases_by_line(per_case_json, cases):
    """{"file:line": the cases that run it alone, and every case the JSON does not know} from
    scripts/coverage-per-test.py's JSON."""
    with open(per_case_json) as stream:
        runs = json.load(stream)
    known = collections.defaultdict(set)
    for case, lines in runs.items():
        for line in lines:
            known[line].add(case)
    cases = set(cases)
    unknown = {case for case in cases if case not in runs}
    chosen = {line: (found & cases) | unknown for line, found in known.items()}
    return {line: found for line, found in chosen.items() if found}  # none: the whole suite runs


def build_library(build):
    """Whether the library builds; the tests link it as a shared library and need no rebuild."""
    return subprocess.run(["cmake", "--build", build, "--target", "modelcore", "-j2"],
                          capture_output=True).returncode == 0


def read_rows(tsv):
    """The rows of an earlier run's TSV, split into their columns."""
    with open(tsv) as earlier:
        return [line.rstrip("\n").split("\t") for line in earlier][1:]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("build")
    parser.add_argument("--sample", type=int, default=0, help="mutants to try, drawn at random (0: all)")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--files", default=r"\.cpp$", help="regex on the path below the checkout")
    parser.add_argument("--covered", help="gcovr JSON: mutate only lines it shows run")
    parser.add_argument("--select", help="per-case line JSON: run only the cases that run a mutant's line")
    parser.add_argument("--exclude", help="regex on test and case names (Binary:Suite.Case) not to run")
    parser.add_argument("--survivors", help="a TSV of an earlier run: try again only the mutants that survived it")
    parser.add_argument("--caught", nargs=2, metavar=("EARLIER_TSV", "REGEX"),
                        help="try again only the mutants an earlier run caught with no case outside REGEX")
    parser.add_argument("--out", default="mutation.tsv")
    parser.add_argument("--report", action="store_true", help="only print the report of the TSV --out names")
    args = parser.parse_args()
    build = os.path.abspath(args.build)
    if args.report:
        report([row[:4] + [set(row[4].split()) if len(row) > 4 else set()] for row in read_rows(args.out)],
               Suite(build).cases)
        return

    dirty = subprocess.run(["git", "status", "--porcelain", "--", *SOURCES], cwd=ROOT, capture_output=True,
                           text=True).stdout
    if dirty:
        sys.exit("uncommitted library changes; run in a checkout of its own:\n" + dirty)
    covered = covered_lines(args.covered) if args.covered else None
    mutants = []
    for top in SOURCES:
        for folder, _, files in os.walk(os.path.join(ROOT, top)):
            for file in sorted(files):
                path = os.path.join(folder, file)
                relative = os.path.relpath(path, ROOT)
                if re.search(args.files, relative) and file.endswith(".cpp"):
                    lines = covered.get(os.path.realpath(path), set()) if covered is not None else None
                    mutants += [(relative,) + site for site in sites(path, lines)]
    # A mutant by the site and operator that an earlier run's TSV names it with.
    key = lambda mutant: (f"{mutant[0]}:{mutant[1]}", mutant[2])
    if args.survivors:
        wanted = {(row[1], row[2]) for row in read_rows(args.survivors) if row[3] == "survived"}
        mutants = [m for m in mutants if key(m) in wanted]
    caught = collections.Counter()
    if args.caught:
        tsv, only = args.caught
        caught.update((row[1], row[2]) for row in read_rows(tsv)
                      if row[3] == "killed" and len(row) > 4 and all(re.search(only, case) for case in row[4].split()))
        mutants = [m for m in mutants if key(m) in caught]
    per_key = collections.Counter(map(key, mutants))
    random.Random(args.seed).shuffle(mutants)
    if args.sample:
        mutants = mutants[: args.sample]
    mutants.sort(key=lambda m: (m[0], m[1]))  # a file's mutants together: one rebuild to restore it
    print(f"{len(mutants)} mutants", flush=True)

    suite = Suite(build, args.exclude)
    select = cases_by_line(args.select, suite.cases) if args.select else {}
    if not build_library(build):
        sys.exit("the unmutated library does not build")
    suite.calibrate()
    results = []
    with open(args.out, "w") as out:
        out.write("id\tsite\toperator\toutcome\tkilled by\n")
        by_file = collections.OrderedDict()
        for mutant in mutants:
            by_file.setdefault(mutant[0], []).append(mutant)
        for relative, group in by_file.items():
            path = os.path.join(ROOT, relative)
            with open(path) as source:
                original = source.read()
            lines = original.split("\n")
            try:
                for _, number, operator, mutated in group:
                    changed = lines[: number - 1] + [mutated] + lines[number:]
                    with open(path, "w") as source:
                        source.write("\n".join(changed))
                    if not build_library(build):
                        outcome, failed = "nobuild", set()
                    else:
                        # A line no single case was seen to run falls back on the whole suite.
                        failed, late = suite.run(select.get(f"{relative}:{number}"))
                        outcome = "timeout" if late else "killed" if failed else "survived"
                    results.append((len(results) + 1, f"{relative}:{number}", operator, outcome, failed))
                    out.write("\t".join(map(str, results[-1][:4])) + "\t" + " ".join(sorted(failed)) + "\n")
                    out.flush()
                    print(f"{len(results)}/{len(mutants)} {relative}:{number} {operator} {outcome}", flush=True)
            finally:
                with open(path, "w") as source:
                    source.write(original)
            if not build_library(build):
                sys.exit("the library does not build after restoring " + relative)
    report(results, suite.cases)
    # A line may hold two mutants of one operator, and the TSV does not tell them apart: compare counts.
    caught.subtract((site, operator) for _, site, operator, outcome, _ in results if outcome in ("killed", "timeout"))
    # Only where every mutant of the line and operator ran: --sample may have left some out.
    tried = collections.Counter((site, operator) for _, site, operator, _, _ in results)
    lost = sorted(key for key, count in caught.items() if count > 0 and tried[key] == per_key[key])
    for site, operator in lost:
        print(f"caught before, not now: {site} {operator}")
    if lost:
        sys.exit(1)


def report(results, cases):
    """The score, every survivor, per case the mutants it alone kills, and the cases that kill none alone."""
    counts = collections.Counter(r[3] for r in results)
    killed = counts["killed"] + counts["timeout"]
    judged = killed + counts["survived"]
    if judged:
        print(f"\nscore: {killed} of {judged} killed ({100.0 * killed / judged:.1f}%), "
              f"{counts['nobuild']} did not build")
    for r in results:
        if r[3] == "survived":
            print(f"survived: {r[1]} {r[2]}")
    alone = collections.defaultdict(list)
    for r in results:
        if len(r[4]) == 1:
            alone[next(iter(r[4]))].append(f"{r[1]} {r[2]}")
    for case in sorted(alone):
        print(f"only {case}: {', '.join(alone[case])}")
    shared = collections.Counter(case for r in results for case in r[4])
    for case in cases:
        if case not in alone:
            print(f"nothing alone: {case} (kills {shared[case]} with others)")


if __name__ == "__main__":
    main()
